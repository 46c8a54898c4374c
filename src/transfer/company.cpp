// A host company alone -> one Outlook contact filed under the company name; the item's person
// (names) is left as it was.
#include "base/value.h"
#include "transfer/transfer_support.h"

namespace dossync {

using P = outlook::ContactProperty;

std::string clsOutlookSynchronization::createNewDossieraCompanyInOutlook(
    int32_t companyID, std::string outlookEntryID) {
  ErrorFrame f(std::string(kSyncLocation) + "createNewDossieraCompanyInOutlook");
  std::string result = "-1";
  transfer::OpenedItem opened;
  std::unique_ptr<hostdb::Recordset> company;
  bool found = false;

  f.step([&] { opened = transfer::openOrCreateContact(*this, outlookEntryID); });
  f.step([&] {
    hostdb::IDataAccess* db = hostdb::openHostDatabase(f);
    if (!db || companyID < 0) return;
    company = std::make_unique<hostdb::Recordset>(*db, "SELECT Companies.* FROM Companies;");
    found = company->find("CompanyID", companyID);
  });
  if (!found || !opened.item) return result;
  auto& item = *opened.item;
  auto copy = [&](const char* column, P p) { f.step([&] { item.set(p, company->read(column)); }); };

  copy("CompanyName", P::CompanyName);
  f.step([&] { item.setCategories(outlookCategory_); });
  copy("Address", P::BusinessAddressStreet);
  copy("City", P::BusinessAddressCity);
  copy("Province", P::BusinessAddressState);
  copy("PostalCode", P::BusinessAddressPostalCode);
  copy("Country", P::BusinessAddressCountry);
  copy("OfficeNumber", P::BusinessTelephoneNumber);
  copy("FaxNumber", P::BusinessFaxNumber);
  copy("Email", P::Email1Address);
  copy("WebSite", P::WebPage);
  copy("CompanyName", P::FileAs);
  f.step([&] { showStatus(company->read("CompanyName")); });
  f.step([&] { result = transfer::saveItem(*this, opened); });
  return result;
}

}  // namespace dossync
