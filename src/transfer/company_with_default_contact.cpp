// A host company and its default contact -> one Outlook contact filed under the company name.
#include "base/value.h"
#include "transfer/transfer_support.h"

namespace dossync {

using outlook::ContactProperty;
using P = ContactProperty;

namespace {

struct Field {
  const char* column;
  ContactProperty property;
};

// The company part, in order; Categories is set right after CompanyName.
constexpr Field kCompanyPart[] = {{"Address", P::BusinessAddressStreet},
                                  {"City", P::BusinessAddressCity},
                                  {"Province", P::BusinessAddressState},
                                  {"PostalCode", P::BusinessAddressPostalCode},
                                  {"Country", P::BusinessAddressCountry},
                                  {"OfficeNumber", P::BusinessTelephoneNumber},
                                  {"FaxNumber", P::BusinessFaxNumber},
                                  {"Email", P::Email1Address},
                                  {"WebSite", P::WebPage}};

// The default contact's personal part, in order (Gender and the dates follow it).
constexpr Field kContactPersonal[] = {{"NamePrefix", P::Title},
                                      {"FirstName", P::FirstName},
                                      {"MiddleName", P::MiddleName},
                                      {"LastName", P::LastName},
                                      {"NameSuffix", P::Suffix},
                                      {"DisplayName", P::FullName},
                                      {"PersonalEmail", P::Email3Address},
                                      {"HomePhone_Main", P::HomeTelephoneNumber},
                                      {"HomePhone_Cell", P::Home2TelephoneNumber},
                                      {"HomePhone_Fax", P::HomeFaxNumber},
                                      {"HomeAddress", P::HomeAddressStreet},
                                      {"HomeCity", P::HomeAddressCity},
                                      {"HomeProvince", P::HomeAddressState},
                                      {"HomePostalCode", P::HomeAddressPostalCode},
                                      {"HomeCountry", P::HomeAddressCountry},
                                      {"SpouseName", P::Spouse},
                                      {"Children", P::Children}};

}  // namespace

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

  copy(*company, "CompanyName", P::CompanyName);
  f.step([&] { item.setCategories(outlookCategory_); });
  for (const Field& fld : kCompanyPart) copy(*company, fld.column, fld.property);

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
    for (const Field& fld : kContactPersonal) copy(c, fld.column, fld.property);
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
