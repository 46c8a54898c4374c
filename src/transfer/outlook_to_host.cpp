// One Outlook contact -> a host company (its business half) with a contact of that company
// (its personal half). Creates the company (with its client record) and the contact when they
// do not exist, overwrites their columns, and pairs both with the item.
#include "base/value.h"
#include "hostdb/lookups.h"
#include "hostdb/new_records.h"
#include "transfer/transfer_support.h"

namespace dossync {

using P = outlook::ContactProperty;

namespace {

// The contact's business columns, after its dates.
constexpr transfer::HostColumn kContactBusiness[] = {
    {"BusinessJobTitle", P::JobTitle},
    {"BusinessDepartment", P::Department},
    {"BusinessOffice", P::OfficeLocation},
    {"BusinessPhone_Cell", P::Business2TelephoneNumber},
    {"BusinessEmail", P::Email2Address}};

// An Outlook date as the host stores it, or nothing for Outlook's "none".
std::optional<std::string> hostDate(const value::Date& d) {
  if (d == outlook::kNoDate || d.year == 0) return std::nullopt;
  return value::toText(value::toDate(value::formatMmmDYyyy(d)));
}

}  // namespace

int32_t clsOutlookSynchronization::createNewOutlookCompanyWithDefaultContactInDossiera(
    std::string outlookEntryID, int32_t companyID) {
  ErrorFrame f(std::string(kSyncLocation) + "createNewOutlookCompanyWithDefaultContactInDossiera");
  int32_t result = 0;
  outlook::ContactItemPtr item;
  hostdb::IDataAccess* db = nullptr;

  f.step([&] {
    auto folder = contactsFolder();
    std::string storeID = folder->StoreID();
    if (!value::isBlank(outlookEntryID))
      item = std::dynamic_pointer_cast<outlook::ContactItem>(
          outlookNameSpace_->GetItemFromID(outlookEntryID, storeID));
    db = hostdb::openHostDatabase(f);
  });

  std::unique_ptr<hostdb::Recordset> company;
  bool companyFound = false;
  if (item && db) {
    f.step([&] {
      bool found = false;
      {
        hostdb::Recordset existing(*db, "SELECT Companies.* FROM Companies;");
        if (companyID >= 0) found = existing.find("CompanyID", companyID);
      }
      if (found) {
        ++counters_.companiesUpdated;
      } else {
        companyID = hostdb::getCompanyIDFromClientDataID(hostdb::addNewEntry());
        ++counters_.companiesCreated;
      }
    });
    f.step([&] {
      company = std::make_unique<hostdb::Recordset>(*db, "SELECT Companies.* FROM Companies;",
                                                    hostdb::kLockOptimistic);
      companyFound = company->find("CompanyID", companyID);
    });
  }

  if (companyFound) {
    f.step([&] { showStatus(item->CompanyName()); });
    for (const auto& c : transfer::kCompanyColumns)
      f.step([&] { company->write(c.column, item->get(c.property)); });

    int32_t contactID = -1;
    std::unique_ptr<hostdb::Recordset> contact;
    bool contactFound = false;
    // A pairing that could not be looked up is not taken for "no contact yet": no second
    // contact is made then, and the contact's columns are left as they are.
    if (f.call([&] { contactID = getOutlookContactID(outlookEntryID); })) {
      f.step([&] {
        hostdb::Recordset existing(*db, "SELECT Contacts.* FROM Contacts;");
        if (!existing.find("ContactID", contactID)) {
          contactID = hostdb::addPersonnel(item->FullName(), std::nullopt, companyID);
          ++counters_.contactsCreated;
        }
      });
      f.step([&] {
        contact = std::make_unique<hostdb::Recordset>(*db, "SELECT Contacts.* FROM Contacts;",
                                                      hostdb::kLockOptimistic);
        contactFound = contact->find("ContactID", contactID);
      });
    }
    if (contactFound) {
      hostdb::Recordset& c = *contact;
      for (const auto& col : transfer::kContactPersonalColumns)
        f.step([&] { c.write(col.column, item->get(col.property)); });
      f.step([&] {
        int32_t gender = item->Gender();
        if (gender == outlook::olMale) c.write("Gender", "Male");
        if (gender == outlook::olFemale) c.write("Gender", "Female");
      });
      f.step([&] {
        if (auto d = hostDate(item->Birthday())) c.write("Birthday", *d);
      });
      f.step([&] {
        if (auto d = hostDate(item->Anniversary())) c.write("Anniversary", *d);
      });
      for (const auto& col : kContactBusiness)
        f.step([&] { c.write(col.column, item->get(col.property)); });
      f.step([&] { saveOutlookContactID(outlookEntryID, contactID); });
    }
    contact.reset();
    result = companyID;
    f.step([&] { saveOutlookCompanyID(outlookEntryID, companyID); });
  }
  refreshData_ = true;
  return result;
}

}  // namespace dossync
