#include "hostdb/lookups.h"

#include "core/apartment.h"
#include "core/value.h"
#include "hostdb/host_database.h"
#include "hostdb/recordset.h"

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

// A key read as text, converted; blank answers the fallback.
int32_t toKey(const std::optional<std::string>& text, int32_t fallback) {
  if (!text || value::isBlank(*text)) return fallback;
  return value::toLong(*text);
}

int32_t keyLookUp(const std::string& name, const char* sql, const std::string& key, int32_t value,
                  const std::string& column) {
  ErrorFrame f(std::string(kDbLoc) + name);
  int32_t result = -1;
  f.step([&] {
    if (IDataAccess* db = openHostDatabase()) result = toKey(lookUp(*db, sql, key, value, column), -1);
  });
  return result;
}

bool exists(const std::string& name, const char* sql, const std::string& key, int32_t value) {
  ErrorFrame f(std::string(kDbLoc) + name);
  bool result = false;
  f.step([&] {
    if (value < 1) return;
    if (IDataAccess* db = openHostDatabase()) {
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
    IDataAccess* db = openHostDatabase();
    if (!db) return;
    int32_t companyID = getCompanyIDFromContactID(contactID);
    if (validCompanyID(companyID))
      result = toKey(lookUp(*db, kClientData, "CompanyIDNum", companyID, "ClientDataID"), -1);
  });
  return result;
}

int32_t getDefaultContactIDFromCompanyID(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "getDefaultContactIDFromCompanyID");
  int32_t result = -1;
  f.step([&] {
    IDataAccess* db = openHostDatabase();
    if (!db) return;
    Recordset rs(*db, kContacts);
    rs.find("CompanyNum", companyID);
    while (!rs.eof()) {
      if (value::toBoolean(rs.read("DefaultContact"))) {
        result = toKey(rs.read("ContactID"), -1);
        return;
      }
      apartment().doEvents();
      rs.findNext();
    }
  });
  return result;
}

std::string getCompanyNameFromCompanyID(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "getCompanyNameFromCompanyID");
  std::string result;
  f.step([&] {
    if (IDataAccess* db = openHostDatabase())
      result = lookUp(*db, kCompanies, "CompanyID", companyID, "CompanyName").value_or("");
  });
  return result;
}

std::string getContactNameFromContactID(int32_t contactID) {
  ErrorFrame f(std::string(kDbLoc) + "getContactNameFromContactID");
  std::string result;
  f.step([&] {
    if (IDataAccess* db = openHostDatabase())
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
    IDataAccess* db = openHostDatabase();
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
    IDataAccess* db = openHostDatabase();
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
    IDataAccess* db = openHostDatabase();
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
    IDataAccess* db = openHostDatabase();
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
    IDataAccess* db = openHostDatabase();
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
  f.step([&] {
    IDataAccess* db = openHostDatabase();
    if (!db) return;
    std::string name = value::isBlank(categoryName) ? kHostCategoryDefaultName : categoryName;
    std::string id;
    {
      Recordset rs(*db, kCategories, kLockOptimistic);
      if (rs.find("CategoryName", name)) {
        id = rs.read("CategoryID");
      } else {
        rs.addNew();
        rs.set("CategoryName", name);
        id = rs.read("CategoryID");
        rs.save();
      }
    }
    Recordset host(*db, kHostCategory, kLockOptimistic);
    if (host.hasRow()) {
      host.write("CategoryName", name);
      host.write("CategoryNum", id);
    } else {
      host.addNew();
      host.set("CategoryName", name);
      host.set("CategoryNum", id);
      host.save();
    }
  });
  return 0;
}

}  // namespace dossync::hostdb
