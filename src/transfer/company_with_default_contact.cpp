// A host company and its default contact -> one Outlook contact filed under the company name.
#include <span>

#include "base/value.h"
#include "transfer/transfer_support.h"

namespace dossync {

using outlook::ContactProperty;
using P = ContactProperty;

std::string clsOutlookSynchronization::createNewDossieraCompanyWithDefaultContactInOutlook(
    int32_t companyID, std::string outlookEntryID) {
  ErrorFrame f(std::string(kSyncLocation) + "createNewDossieraCompanyWithDefaultContactInOutlook");
  std::string result = "-1";
  transfer::OpenedItem opened;
  hostdb::IDataAccess* db = nullptr;
  std::unique_ptr<hostdb::Recordset> company, contacts;
  bool found = false, haveDefault = false;

  f.step([&] { opened = transfer::openOrCreateContact(*this, outlookEntryID); });
  f.step([&] {
    db = hostdb::openHostDatabase(f);
    if (!db || companyID < 0) return;
    company = std::make_unique<hostdb::Recordset>(*db, "SELECT Companies.* FROM Companies;");
    found = company->find("CompanyID", companyID);
  });
  if (!found || !opened.item) return result;  // nothing is saved; a new item is dropped
  auto& item = *opened.item;
  auto copy = [&](hostdb::Recordset& rs, const char* column, ContactProperty p) {
    f.step([&] { item.set(p, rs.read(column)); });
  };

  // The company's name, its category right after it, then the rest of its columns.
  const std::span<const transfer::HostColumn> companyColumns(transfer::kCompanyColumns);
  copy(*company, companyColumns[0].column, companyColumns[0].property);
  f.step([&] { item.setCategories(outlookCategory_); });
  for (const auto& col : companyColumns.subspan(1)) copy(*company, col.column, col.property);

  // The company's first contact marked default; one whose mark cannot be read is passed over.
  if (f.step([&] {
        contacts = std::make_unique<hostdb::Recordset>(*db, "SELECT Contacts.* FROM Contacts;");
        contacts->find("CompanyNum", companyID);
      })) {
    while (f.test([&] { return !contacts->eof(); })) {
      if (f.test([&] { return value::toBoolean(contacts->read("DefaultContact")); })) {
        haveDefault = true;
        break;
      }
      if (!f.step([&] { contacts->findNext(); })) break;
    }
  }
  if (haveDefault) {
    hostdb::Recordset& c = *contacts;
    for (const auto& col : transfer::kContactPersonalColumns) copy(c, col.column, col.property);
    transfer::copyGenderAndDates(f, item, c);
    copy(c, "BusinessJobTitle", P::JobTitle);
    copy(c, "BusinessDepartment", P::Department);
    copy(c, "BusinessOffice", P::OfficeLocation);
    // The company's own numbers and web site win over the contact's.
    f.step([&] {
      if (value::isBlank(item.BusinessTelephoneNumber()))
        item.setBusinessTelephoneNumber(c.read("BusinessPhone_Main"));
    });
    f.step([&] {
      if (value::isBlank(item.BusinessFaxNumber()))
        item.setBusinessFaxNumber(c.read("BusinessPhone_Fax"));
    });
    copy(c, "BusinessPhone_Cell", P::Business2TelephoneNumber);
    f.step([&] {
      if (value::isBlank(item.WebPage())) item.setWebPage(c.read("BusinessWebSite"));
    });
    copy(c, "BusinessEmail", P::Email2Address);
  }

  std::string name;
  if (f.step([&] { name = company->read("CompanyName"); })) {
    f.step([&] { item.setFileAs(name); });
    f.step([&] { showStatus(name); });
  }
  f.step([&] { result = transfer::saveItem(*this, opened); });
  return result;
}

}  // namespace dossync
