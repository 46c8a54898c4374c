#include "hostdb/lookups.h"

#include "base/value.h"
#include "core/apartment.h"
#include "core/host_database.h"
#include "core/recordset.h"

namespace dossync::hostdb {
namespace {

const std::string kCatLoc = "Dossiera.exe-modDossiera.exe-";

// How deep a parent chain may go before it is taken for a cycle.
constexpr int kMaxChainDepth = 1000;
thread_local int tChainDepth = 0;

struct ChainDepth {
  ChainDepth() {
    if (++tChainDepth > kMaxChainDepth) {
      --tChainDepth;
      throw RuntimeError(kOutOfMemory, "Category or associate chain deeper than " +
                                           std::to_string(kMaxChainDepth) + " levels: a cycle?");
    }
  }
  ~ChainDepth() { --tChainDepth; }
};

// Opens sql read-only, finds key = value, and answers the text of the column, or nothing.
std::optional<std::string> lookUp(IDataAccess& db, const char* sql, const std::string& key,
                                  int32_t value, const std::string& column) {
  Recordset rs(db, sql);
  if (!rs.find(key, value)) return std::nullopt;
  return rs.read(column);
}

// Converts the key read, when a row was found, into `result`: a blank key is no number (type
// mismatch), and leaves the result as it was.
void toKey(const std::optional<std::string>& text, int32_t& result) {
  if (text) result = value::toLong(*text);
}

int32_t keyLookUp(const std::string& name, const char* sql, const std::string& key, int32_t value,
                  const std::string& column) {
  ErrorFrame f(std::string(kDbLoc) + name);
  int32_t result = -1;
  f.step([&] {
    if (IDataAccess* db = openHostDatabase(f)) toKey(lookUp(*db, sql, key, value, column), result);
  });
  return result;
}

bool exists(const std::string& name, const char* sql, const std::string& key, int32_t value) {
  ErrorFrame f(std::string(kDbLoc) + name);
  bool result = false;
  f.step([&] {
    if (value < 1) return;
    if (IDataAccess* db = openHostDatabase(f)) {
      Recordset rs(*db, sql);
      result = rs.find(key, value);
    }
  });
  return result;
}

}  // namespace

int32_t getCompanyIDFromContactID(int32_t contactID) {
  return keyLookUp("getCompanyIDFromContactID", kContacts, "ContactID", contactID, "CompanyNum");
}

int32_t getCompanyIDFromClientDataID(int32_t clientDataID) {
  return keyLookUp("getCompanyIDFromClientDataID", kClientData, "ClientDataID", clientDataID,
                   "CompanyIDNum");
}

int32_t getClientDataIDFromContactID(int32_t contactID) {
  ErrorFrame f(std::string(kDbLoc) + "getClientDataIDFromContactID");
  int32_t result = -1;
  f.step([&] {
    IDataAccess* db = openHostDatabase(f);
    if (!db) return;
    int32_t companyID = getCompanyIDFromContactID(contactID);
    if (validCompanyID(companyID))
      toKey(lookUp(*db, kClientData, "CompanyIDNum", companyID, "ClientDataID"), result);
  });
  return result;
}

int32_t getDefaultContactIDFromCompanyID(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "getDefaultContactIDFromCompanyID");
  int32_t result = -1;
  IDataAccess* db = openHostDatabase(f);
  if (!db) return result;
  std::unique_ptr<Recordset> rs;
  if (!f.step([&] {
        rs = std::make_unique<Recordset>(*db, kContacts);
        rs->find("CompanyNum", companyID);
      }))
    return result;
  // A contact whose mark cannot be read is passed over; a walk that cannot go on ends.
  while (f.test([&] { return !rs->eof(); })) {
    if (f.test([&] { return value::toBoolean(rs->read("DefaultContact")); })) {
      f.step([&] { toKey(rs->read("ContactID"), result); });
      break;
    }
    f.step([&] { apartment().doEvents(); });
    if (!f.step([&] { rs->findNext(); })) break;
  }
  return result;
}

std::string getCompanyNameFromCompanyID(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "getCompanyNameFromCompanyID");
  std::string result;
  f.step([&] {
    if (IDataAccess* db = openHostDatabase(f))
      result = lookUp(*db, kCompanies, "CompanyID", companyID, "CompanyName").value_or("");
  });
  return result;
}

std::string getContactNameFromContactID(int32_t contactID) {
  ErrorFrame f(std::string(kDbLoc) + "getContactNameFromContactID");
  std::string result;
  f.step([&] {
    if (IDataAccess* db = openHostDatabase(f))
      result = lookUp(*db, kCompanies, "ContactID", contactID, "DisplayName").value_or("");
  });
  return result;
}

bool validCompanyID(int32_t companyID) {
  return exists("validCompanyID", kCompanies, "CompanyID", companyID);
}
bool validContactID(int32_t contactID) {
  return exists("validContactID", kContacts, "ContactID", contactID);
}
bool validCategoryID(int32_t categoryID) {
  return exists("validCategoryID", kCategories, "CategoryID", categoryID);
}

bool doesThisCategoryBelongToCategory(int32_t categoryID, int32_t& ancestorID) {
  ErrorFrame f(kCatLoc + "doesThisCategoryBelongToCategory");
  bool result = false;
  f.step([&] {
    IDataAccess* db = openHostDatabase(f);
    if (!db) return;
    ChainDepth depth;
    Recordset rs(*db, kCategories, kLockOptimistic);
    if (categoryID == ancestorID) {
      result = true;
      return;
    }
    if (!rs.find("CategoryID", categoryID)) return;
    std::string parent = rs.read("CategoryNum");
    if (value::isBlank(parent)) return;
    int32_t parentID = value::toLong(parent);
    result = parentID == ancestorID || doesThisCategoryBelongToCategory(parentID, ancestorID);
  });
  return result;
}

bool doesThisCompanyBelongToCategory(int32_t companyID, int32_t& categoryID) {
  ErrorFrame f(kCatLoc + "doesThisCompanyBelongToCategory");
  bool result = false;
  f.step([&] {
    IDataAccess* db = openHostDatabase(f);
    if (!db) return;
    ChainDepth depth;
    Recordset rs(*db, kCompanies);
    if (!rs.find("CompanyID", companyID)) return;
    std::string category = rs.read("CategoryNum");
    if (!value::isBlank(category)) {
      result = doesThisCategoryBelongToCategory(value::toLong(category), categoryID);
      return;
    }
    std::string associateOf = rs.read("CompanyNum");
    if (!value::isBlank(associateOf))
      result = doesThisCompanyBelongToCategory(value::toLong(associateOf), categoryID);
  });
  return result;
}

bool doesThisContactBelongToCategory(int32_t contactID, int32_t& categoryID) {
  ErrorFrame f(kCatLoc + "doesThisContactBelongToCategory");
  bool result = false;
  f.step([&] {
    IDataAccess* db = openHostDatabase(f);
    if (!db) return;
    Recordset rs(*db, kContacts);
    if (!rs.find("ContactID", contactID)) return;
    std::string category = rs.read("CategoryNum");
    if (!value::isBlank(category)) {
      result = doesThisCategoryBelongToCategory(value::toLong(category), categoryID);
      return;
    }
    std::string company = rs.read("CompanyNum");
    if (!value::isBlank(company))
      result = doesThisCompanyBelongToCategory(value::toLong(company), categoryID);
  });
  return result;
}

int32_t getAddressBookDossieraCategory() {
  ErrorFrame f(kCatLoc + "getAddressBookDossieraCategory");
  int32_t result = 0;
  f.step([&] {
    IDataAccess* db = openHostDatabase(f);
    if (!db) return;
    Recordset rs(*db, kHostCategory, kLockOptimistic);
    if (rs.hasRow()) {
      std::string num = rs.read("CategoryNum");
      int32_t id = value::isBlank(num) ? 0 : value::toLong(num);
      result = validCategoryID(id) ? id : createNewHostCategory("");
    } else {
      result = createNewHostCategory("");
    }
  });
  return result;
}

std::string getAddressBookCategoryName() {
  ErrorFrame f(kCatLoc + "getAddressBookCategoryName");
  std::string result;
  f.step([&] {
    IDataAccess* db = openHostDatabase(f);
    if (!db) return;
    Recordset rs(*db, kHostCategory);
    if (rs.hasRow() && !value::isBlank(rs.read("CategoryName"))) {
      result = rs.read("CategoryName");
    } else {
      rs.close();
      createNewHostCategory("");
      result = kHostCategoryDefaultName;
    }
  });
  return result;
}

int32_t createNewHostCategory(const std::string& categoryName) {
  ErrorFrame f(kCatLoc + "createNewHostCategory");
  IDataAccess* db = openHostDatabase(f);
  if (!db) return 0;
  std::string name = value::isBlank(categoryName) ? kHostCategoryDefaultName : categoryName;
  std::string id;
  f.step([&] {
    Recordset rs(*db, kCategories, kLockOptimistic);
    if (rs.find("CategoryName", name)) {
      id = rs.read("CategoryID");
    } else {
      rs.addNew();
      rs.set("CategoryName", name);
      id = rs.read("CategoryID");
      rs.save();
    }
  });
  std::unique_ptr<Recordset> host;
  bool hasRow = false;
  // A table that cannot tell whether it has a row gets neither a write nor a second row.
  if (!f.step([&] {
        host = std::make_unique<Recordset>(*db, kHostCategory, kLockOptimistic);
        hasRow = host->hasRow();
      }))
    return 0;
  if (hasRow) {
    f.step([&] { host->write("CategoryName", name); });
    f.step([&] { host->write("CategoryNum", id); });
  } else {
    f.step([&] { host->addNew(); });
    f.step([&] { host->set("CategoryName", name); });
    f.step([&] { host->set("CategoryNum", id); });
    f.step([&] { host->save(); });
  }
  return 0;
}

}  // namespace dossync::hostdb
