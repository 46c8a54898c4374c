// A host contact -> one Outlook contact, with the business address and numbers of its company
// when the contact inherits them.
#include "base/value.h"
#include "transfer/transfer_support.h"

namespace dossync {

using P = outlook::ContactProperty;

std::string clsOutlookSynchronization::createNewDossieraContactInOutlook(
    int32_t contactID, std::string outlookEntryID) {
  ErrorFrame f(std::string(kSyncLocation) + "createNewDossieraContactInOutlook");
  std::string result = "-1";
  transfer::OpenedItem opened;
  hostdb::IDataAccess* db = nullptr;
  std::unique_ptr<hostdb::Recordset> contact;
  bool found = false;

  f.step([&] { opened = transfer::openOrCreateContact(*this, outlookEntryID); });
  f.step([&] {
    db = hostdb::openHostDatabase(f);
    if (!db || contactID < 0) return;
    contact = std::make_unique<hostdb::Recordset>(*db, "SELECT rstContacts.* FROM rstContacts;");
    found = contact->find("ContactID", contactID);
  });
  if (!found || !opened.item) return result;
  auto& item = *opened.item;
  hostdb::Recordset& c = *contact;
  auto copy = [&](const char* column, P p) { f.step([&] { item.set(p, c.read(column)); }); };

  // Personal fields.
  copy("NamePrefix", P::Title);
  copy("FirstName", P::FirstName);
  copy("MiddleName", P::MiddleName);
  copy("LastName", P::LastName);
  copy("NameSuffix", P::Suffix);
  copy("DisplayName", P::FullName);
  f.step([&] { item.setCategories(outlookCategory_); });
  copy("PersonalEmail", P::Email2Address);
  copy("HomePhone_Main", P::HomeTelephoneNumber);
  copy("HomePhone_Cell", P::Home2TelephoneNumber);
  copy("HomePhone_Fax", P::HomeFaxNumber);
  copy("HomeAddress", P::HomeAddressStreet);
  copy("HomeCity", P::HomeAddressCity);
  copy("HomeProvince", P::HomeAddressState);
  copy("HomePostalCode", P::HomeAddressPostalCode);
  copy("HomeCountry", P::HomeAddressCountry);
  copy("SpouseName", P::Spouse);
  copy("Children", P::Children);
  transfer::copyGenderAndDates(f, item, c);

  // Business fields.
  copy("BusinessName", P::CompanyName);
  copy("BusinessJobTitle", P::JobTitle);
  copy("BusinessDepartment", P::Department);
  copy("BusinessOffice", P::OfficeLocation);
  // The company's address and numbers when the contact inherits them from a company that
  // exists. Once the company is found the contact counts as inherited: a field that then fails
  // to copy is not replaced by the contact's own.
  bool inherited = false;
  std::unique_ptr<hostdb::Recordset> company;
  std::string companyNum;
  if (f.test([&] { return value::toBoolean(c.read("InheritCompanyInfo")); }) &&
      f.step([&] { companyNum = c.read("CompanyNum"); }) && !value::isBlank(companyNum) &&
      value::isNumeric(companyNum)) {
    f.step([&] {
      company = std::make_unique<hostdb::Recordset>(*db, "SELECT Companies.* FROM Companies;");
      inherited = company->find("CompanyID", value::toLong(companyNum));
    });
  }
  if (inherited) {
    hostdb::Recordset& co = *company;
    auto inherit = [&](const char* column, P p) { f.step([&] { item.set(p, co.read(column)); }); };
    inherit("Address", P::BusinessAddressStreet);
    inherit("City", P::BusinessAddressCity);
    inherit("Province", P::BusinessAddressState);
    inherit("PostalCode", P::BusinessAddressPostalCode);
    inherit("Country", P::BusinessAddressCountry);
    // The contact's number, else the company's, else none is assigned.
    auto number = [&](const char* own, const char* companys, P p) {
      f.step([&] {
        std::string mine = c.read(own);
        if (!value::isBlank(mine)) {
          item.set(p, mine);
        } else if (!value::isBlank(co.read(companys))) {
          item.set(p, co.read(companys));
        }
      });
    };
    number("BusinessPhone_Main", "OfficeNumber", P::BusinessTelephoneNumber);
    number("BusinessPhone_Fax", "FaxNumber", P::BusinessFaxNumber);
  }
  f.step([&] {
    if (company) company->close();
  });
  if (!inherited) {
    copy("BusinessAddress", P::BusinessAddressStreet);
    copy("BusinessCity", P::BusinessAddressCity);
    copy("BusinessProvince", P::BusinessAddressState);
    copy("BusinessPostalCode", P::BusinessAddressPostalCode);
    copy("BusinessCountry", P::BusinessAddressCountry);
    copy("BusinessPhone_Main", P::BusinessTelephoneNumber);
    copy("BusinessPhone_Fax", P::BusinessFaxNumber);
  }
  copy("BusinessPhone_Cell", P::Business2TelephoneNumber);
  copy("BusinessWebSite", P::WebPage);
  copy("BusinessEmail", P::Email1Address);

  // The file-as name follows the two contact-only information types.
  const char* fileAs = syncInformationType_ == contactOnlyShowContactName   ? "DisplayName"
                       : syncInformationType_ == contactOnlyShowCompanyName ? "BusinessName"
                                                                            : nullptr;
  if (fileAs) {
    f.step([&] { item.setFileAs(c.read(fileAs)); });
    f.step([&] { showStatus(c.read(fileAs)); });
  }
  f.step([&] { result = transfer::saveItem(*this, opened); });
  return result;
}

}  // namespace dossync
