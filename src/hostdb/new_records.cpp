#include "hostdb/new_records.h"

#include <array>
#include <optional>
#include <vector>

#include "base/value.h"
#include "core/apartment.h"
#include "core/host_database.h"
#include "core/recordset.h"
#include "hostdb/default_contacts.h"
#include "hostdb/lookups.h"

namespace dossync::hostdb {
namespace {

// The detail tables every client has, each keyed by the client's ClientDataID, in the order the
// rows are added: statement, key column.
struct DetailTable {
  const char* sql;
  const char* key;
};
constexpr std::array<DetailTable, 8> kDetailTables = {{
    {"SELECT AccountingServices.* FROM AccountingServices;", "AccountingServicesID"},
    {"SELECT ClientOptions.* FROM ClientOptions;", "ClientOptionsID"},
    {"SELECT ClientNotes.* FROM ClientNotes;", "ClientNotesID"},
    {"SELECT CorpTaxInfo.* FROM CorpTaxInfo;", "CorpTaxInfoID"},
    {"SELECT LawInfo.* FROM LawInfo;", "LawInfoID"},
    {"SELECT OtherInfo.* FROM OtherInfo;", "OtherInfoID"},
    {"SELECT SoftwareInfo.* FROM SoftwareInfo;", "SoftwareInfoID"},
    {"SELECT WSIB_EHTInfo.* FROM WSIB_EHTInfo;", "WSIB_EHTInfoID"},
}};

// First words taken for a title, compared in upper case.
constexpr std::array<const char*, 17> kTitles = {
    "MR",    "MR.", "MRS",  "MRS.", "MS",  "MS.",  "MISS", "MISS.", "MLLE",
    "MLLE.", "MME", "MME.", "SIR",  "REV", "REV.", "DR",   "DR.",
};

bool isTitle(const std::string& word) {
  std::string upper = value::upper(word);
  for (const char* title : kTitles)
    if (upper == title) return true;
  return false;
}

}  // namespace

int32_t addNewEntry() {
  ErrorFrame f(std::string(kDbLoc) + "addNewEntry");
  int32_t result = 0;
  IDataAccess* db = openHostDatabase(f);
  if (!db) return result;
  int32_t companyID = 0;
  std::unique_ptr<Recordset> companies;
  if (f.step([&] {
        companies =
            std::make_unique<Recordset>(*db, "SELECT Companies.* FROM Companies;", kLockOptimistic);
        companies->addNew();
      })) {
    f.step([&] { companies->set("CompanyName", ""); });
    f.step(
        [&] { companies->set("CategoryNum", value::fromLong(getAddressBookDossieraCategory())); });
    f.step([&] { companyID = value::toLong(companies->read("CompanyID")); });
    f.step([&] { companies->save(); });
    companies.reset();
  }
  std::unique_ptr<Recordset> clients;
  if (f.step([&] {
        clients = std::make_unique<Recordset>(*db, "SELECT ClientData.* FROM ClientData;",
                                              kLockOptimistic);
        clients->addNew();
      })) {
    f.step([&] { clients->set("CompanyIDNum", value::fromLong(companyID)); });
    f.step([&] { clients->save(); });
    f.step([&] { result = value::toLong(clients->read("ClientDataID")); });
    clients.reset();
  }
  // Each detail row is only its key: a row whose key could not be set is not added.
  for (const DetailTable& table : kDetailTables) {
    f.step([&] {
      Recordset rs(*db, table.sql, kLockOptimistic);
      rs.addNew();
      rs.set(table.key, value::fromLong(result));
      rs.save();
    });
  }
  return result;
}

int32_t addPersonnel(const std::string& name, std::optional<int32_t> category,
                     std::optional<int32_t> companyNum) {
  ErrorFrame f(std::string(kDbLoc) + "addPersonnel");
  int32_t result = 0;
  IDataAccess* db = openHostDatabase(f);
  if (!db) return result;
  if (value::isBlank(name)) return -1;
  std::unique_ptr<Recordset> contacts, companies;
  f.step([&] {
    contacts =
        std::make_unique<Recordset>(*db, "SELECT Contacts.* FROM Contacts;", kLockOptimistic);
  });
  f.step(
      [&] { companies = std::make_unique<Recordset>(*db, "SELECT Companies.* FROM Companies;"); });
  if (!contacts || !f.step([&] { contacts->addNew(); })) return result;
  auto set = [&](const char* field, const std::string& text) {
    f.step([&] { contacts->set(field, text); });
  };
  PersonName parts = splitPersonName(name);
  set("NamePrefix", parts.namePrefix);
  set("FirstName", parts.firstName);
  set("MiddleName", parts.middleName);
  set("LastName", parts.lastName);
  set("DisplayName", parts.displayName);
  if (category) set("CategoryNum", value::fromLong(*category));
  if (companyNum) {
    set("CompanyNum", value::fromLong(*companyNum));
    std::string companyName;
    if (companies && f.test([&] { return companies->find("CompanyID", *companyNum); }) &&
        f.step([&] { companyName = companies->read("CompanyName"); })) {
      set("BusinessName", companyName);
      set("InheritCompanyInfo", "True");
    }
  }
  std::string companyText;
  f.step([&] { result = value::toLong(contacts->read("ContactID")); });
  f.step([&] { companyText = contacts->read("CompanyNum"); });
  f.step([&] { contacts->save(); });
  contacts.reset();
  companies.reset();
  f.step([&] {
    if (!value::isBlank(companyText) && value::isNumeric(companyText))
      checkForDefault(value::toLong(companyText), true);
  });
  return result;
}

PersonName splitPersonName(const std::string& name) {
  ErrorFrame f(std::string(kDbLoc) + "addPersonnel");
  PersonName result;
  f.step([&] {
    if (value::isBlank(name)) return;
    // Cut at single blanks from the left; the fourth word keeps the rest.
    std::vector<std::string> words;
    size_t start = 0;
    while (words.size() < 3) {
      size_t blank = name.find(' ', start);
      if (blank == std::string::npos) break;
      words.push_back(name.substr(start, blank - start));
      start = blank + 1;
    }
    words.push_back(name.substr(start));

    size_t first = 0;
    if (isTitle(words[0])) {
      result.namePrefix = words[0];
      first = 1;
    }
    const size_t count = words.size() - first;  // words after the title, if any
    auto word = [&](size_t i) { return words[first + i]; };
    if (first == 1) {
      if (count == 1) {
        result.lastName = word(0);
      } else if (count == 2) {
        result.firstName = word(0);
        result.lastName = word(1);
      } else if (count == 3) {
        result.firstName = word(0);
        result.middleName = word(1);
        result.lastName = word(2);
      }
    } else {
      result.firstName = word(0);
      if (count == 2) {
        result.lastName = word(1);
      } else if (count >= 3) {
        result.middleName = word(1);
        result.lastName = count == 3 ? word(2) : word(2) + " " + word(3);
      }
    }
    result.displayName = name;
  });
  return result;
}

}  // namespace dossync::hostdb
