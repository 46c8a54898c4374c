// A host contact -> one Outlook contact, with the business address and numbers of its company
// when the contact inherits them.
#include "core/value.h"
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
    db = hostdb::openHostDatabase();
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
  bool inherited = false;
  f.step([&] {
    if (!value::toBoolean(c.read("InheritCompanyInfo"))) return;
    std::string num = c.read("CompanyNum");
    if (value::isBlank(num) || !value::isNumeric(num)) return;
    hostdb::Recordset company(*db, "SELECT Companies.* FROM Companies;");
    if (!company.find("CompanyID", value::toLong(num))) return;
    item.setBusinessAddressStreet(company.read("Address"));
    item.setBusinessAddressCity(company.read("City"));
    item.setBusinessAddressState(company.read("Province"));
    item.setBusinessAddressPostalCode(company.read("PostalCode"));
    item.setBusinessAddressCountry(company.read("Country"));
    std::string phone = c.read("BusinessPhone_Main");
    if (!value::isBlank(phone)) {
      item.setBusinessTelephoneNumber(phone);
    } else if (!value::isBlank(company.read("OfficeNumber"))) {
      item.setBusinessTelephoneNumber(company.read("OfficeNumber"));
    }
    std::string fax = c.read("BusinessPhone_Fax");
    if (!value::isBlank(fax)) {
      item.setBusinessFaxNumber(fax);
    } else if (!value::isBlank(company.read("FaxNumber"))) {
      item.setBusinessFaxNumber(company.read("FaxNumber"));
    }
    inherited = true;
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
  f.step([&] {
    if (syncInformationType_ == contactOnlyShowContactName) {
      item.setFileAs(c.read("DisplayName"));
      showStatus(c.read("DisplayName"));
    } else if (syncInformationType_ == contactOnlyShowCompanyName) {
      item.setFileAs(c.read("BusinessName"));
      showStatus(c.read("BusinessName"));
    }
  });
  f.step([&] { result = transfer::saveItem(*this, opened); });
  return result;
}

}  // namespace dossync
