// Pairs host companies and contacts with Outlook items, per scheme and host data file, in the
// OutlookSync table of the synchronisation database. Look-ups fall back to Outlook (an item
// filed under the record's name) or to the host (a record named like the item).
#include "base/value.h"
#include "core/apartment.h"
#include "core/recordset.h"
#include "hostdb/lookups.h"
#include "store/store.h"

namespace dossync {
namespace {

const std::string kLoc = kSyncLocation;

hostdb::IDataAccess& hostDb() {
  auto& db = apartment().hostDb;
  if (!db) throw RuntimeError(kObjectVariableNotSet, "The companies database is not open");
  return *db;
}

}  // namespace

std::string clsOutlookSynchronization::mappingStatement() const {
  return "SELECT OutlookSync.* From OutlookSync WHERE SchemeNum = " + std::to_string(schemeID_) +
         " AND DataFileID = '" + hostdb::sqlQuoted(dataFileUniqueID_) + "';";
}

std::shared_ptr<outlook::MAPIFolder> clsOutlookSynchronization::contactsFolder() const {
  if (!outlookNameSpace_)
    throw RuntimeError(kObjectVariableNotSet,
                       "Object variable not set: no Outlook session is open (StartOutlook)");
  auto folder = outlookNameSpace_->GetDefaultFolder(outlook::olFolderContacts);
  if (!folder) throw RuntimeError(kObjectVariableNotSet, "Outlook has no default contacts folder");
  return folder;
}

namespace {

// Tells a watched run how a look-up answered (core/run_observer.h).
void tellLookup(IRunObserver::Kind kind, bool mapped, bool named, const std::string& hostNumber,
                const std::string& outlookID, const outlook::ItemPtr& item) {
  observeRun([&](IRunObserver& o) {
    using FoundBy = IRunObserver::FoundBy;
    bool none = outlookID.empty() || hostNumber == "-1";
    FoundBy how = none     ? FoundBy::None
                  : mapped ? FoundBy::Mapping
                  : named  ? FoundBy::Name
                           : FoundBy::None;
    auto contact = std::dynamic_pointer_cast<outlook::ContactItem>(item);
    o.lookupAnswered(kind, how, hostNumber,
                     how == FoundBy::Name && contact ? contact->CompanyName() : "");
  });
}

// getCompanyOutlookID and getContactOutlookID: the mapped entry id, else the item filed under
// the record's name, else "".
std::string hostToOutlook(clsOutlookSynchronization& c, const std::string& procedure,
                          const char* keyColumn, int32_t key, std::string (*nameOf)(int32_t)) {
  ErrorFrame f(kLoc + procedure);
  std::string result;
  bool found = false;
  // A mapping that cannot be read decides nothing: Outlook is not searched then.
  bool read = f.step([&] {
    hostdb::Recordset rs(hostdb::syncDatabase(), c.mappingStatement());
    found = rs.find(keyColumn, key);
    if (found) result = rs.read("OutlookID");
  });
  outlook::ItemPtr item;
  if (read && !found) {
    f.step([&] {
      auto items = c.contactsFolder()->Items();
      item = items->Find("[FileAs] = \"" + nameOf(key) + "\"");
      if (item) result = item->EntryID();
    });
  }
  auto kind = std::string(keyColumn) == "CompanyNum" ? IRunObserver::Kind::Company
                                                     : IRunObserver::Kind::Contact;
  tellLookup(kind, found, item != nullptr, std::to_string(key), result, item);
  return result;
}

// getOutlookCompanyID and getOutlookContactID: the mapped host number, else the host record
// named like the item, else -1. A mapping row without that number (a row of the other kind)
// counts as no counterpart.
int32_t outlookToHost(clsOutlookSynchronization& c, const std::string& procedure,
                      const char* keyColumn, const std::string& entryID, bool company) {
  ErrorFrame f(kLoc + procedure);
  std::string result = "-1";
  bool found = false, named = false;
  outlook::ContactItemPtr item;
  bool read = f.step([&] {
    hostdb::Recordset rs(hostdb::syncDatabase(), c.mappingStatement());
    found = rs.find("OutlookID", entryID);
    if (found) result = rs.read(keyColumn);
  });
  if (read && !found) {
    f.step([&] {
      auto folder = c.contactsFolder();
      item = std::dynamic_pointer_cast<outlook::ContactItem>(
          c.outlookNameSpace()->GetItemFromID(entryID, folder->StoreID()));
      if (!item) return;
      std::string name = company ? item->CompanyName() : item->FullName();
      hostdb::Recordset host(hostDb(), company ? "SELECT Companies.* From Companies;"
                                               : "SELECT Contacts.* From Contacts;");
      named = host.find(company ? "CompanyName" : "DisplayName", name);
      if (named) result = host.read(company ? "CompanyID" : "ContactID");
    });
  }
  int32_t number = -1;
  f.step([&] { number = value::isBlank(result) ? -1 : value::toLong(result); });
  tellLookup(company ? IRunObserver::Kind::Company : IRunObserver::Kind::Contact, found, named,
             std::to_string(number), entryID, item);
  return number;
}

// The four saves: find the row by the Outlook id or by the host key; update it field by field,
// or add a new one. A find that fails decides nothing: no row is updated or added then.
void saveMapping(clsOutlookSynchronization& c, const std::string& procedure, bool byOutlookID,
                 const char* keyColumn, int32_t key, const std::string& entryID) {
  ErrorFrame f(kLoc + procedure);
  std::unique_ptr<hostdb::Recordset> rs;
  bool found = false;
  f.step([&] {
    rs = std::make_unique<hostdb::Recordset>(hostdb::syncDatabase(), c.mappingStatement(),
                                             hostdb::kLockOptimistic);
  });
  if (!rs) return;
  if (!f.step(
          [&] { found = byOutlookID ? rs->find("OutlookID", entryID) : rs->find(keyColumn, key); }))
    return;
  auto now = [] { return value::toText(value::now()); };
  if (found) {
    f.step([&] { rs->write("DataFileID", c.DataFileUniqueID()); });
    if (byOutlookID) {
      f.step([&] { rs->write(keyColumn, std::to_string(key)); });
    } else {
      f.step([&] { rs->write("OutlookID", entryID); });
    }
    f.step([&] { rs->write("DateLastSync", now()); });
  } else {
    f.step([&] { rs->addNew(); });
    f.step([&] { rs->set("SchemeNum", std::to_string(c.SchemeID())); });
    f.step([&] { rs->set("DataFileID", c.DataFileUniqueID()); });
    f.step([&] { rs->set(keyColumn, std::to_string(key)); });
    f.step([&] { rs->set("OutlookID", entryID); });
    f.step([&] { rs->set("DateLastSync", now()); });
    f.step([&] { rs->save(); });
  }
  f.step([&] { rs->close(); });
}

}  // namespace

std::string clsOutlookSynchronization::getCompanyOutlookID(int32_t companyID) {
  return hostToOutlook(*this, "getCompanyOutlookID", "CompanyNum", companyID,
                       hostdb::getCompanyNameFromCompanyID);
}

std::string clsOutlookSynchronization::getContactOutlookID(int32_t contactID) {
  return hostToOutlook(*this, "getContactOutlookID", "ContactNum", contactID,
                       hostdb::getContactNameFromContactID);
}

int32_t clsOutlookSynchronization::getOutlookCompanyID(const std::string& outlookEntryID) {
  return outlookToHost(*this, "getOutlookCompanyID", "CompanyNum", outlookEntryID, true);
}

int32_t clsOutlookSynchronization::getOutlookContactID(const std::string& outlookEntryID) {
  return outlookToHost(*this, "getOutlookContactID", "ContactNum", outlookEntryID, false);
}

void clsOutlookSynchronization::saveCompanyOutlookID(int32_t companyID,
                                                     const std::string& outlookEntryID) {
  saveMapping(*this, "saveCompanyOutlookID", false, "CompanyNum", companyID, outlookEntryID);
}

void clsOutlookSynchronization::saveContactOutlookID(int32_t contactID,
                                                     const std::string& outlookEntryID) {
  saveMapping(*this, "saveContactOutlookID", false, "ContactNum", contactID, outlookEntryID);
}

void clsOutlookSynchronization::saveOutlookCompanyID(const std::string& outlookEntryID,
                                                     int32_t companyID) {
  saveMapping(*this, "saveOutlookCompanyID", true, "CompanyNum", companyID, outlookEntryID);
}

void clsOutlookSynchronization::saveOutlookContactID(const std::string& outlookEntryID,
                                                     int32_t contactID) {
  saveMapping(*this, "saveOutlookContactID", true, "ContactNum", contactID, outlookEntryID);
}

}  // namespace dossync
