#include "app/demo_data.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <unordered_set>
#include <vector>

#include "app/databases.h"
#include "backends/sql/database.h"

namespace dossync::app {

const std::array<const char*, 24> kDemoNameWords = {
    "Maple",    "Northern", "Lakeshore",  "Summit",    "Harbour",    "Pioneer",
    "Granite",  "Cedar",    "Aurora",     "Birchwood", "Riverside",  "Keystone",
    "Beacon",   "Meridian", "Oakridge",   "Prairie",   "Heritage",   "Bluewater",
    "Frontier", "Redwood",  "Silverline", "Westgate",  "Lighthouse", "Falcon"};
const std::array<const char*, 16> kDemoTrades = {
    "Bakery",      "Construction", "Dental",   "Consulting",  "Logistics", "Printing",
    "Landscaping", "Plumbing",     "Software", "Auto Repair", "Catering",  "Design",
    "Electric",    "Florists",     "Pharmacy", "Realty"};
const std::array<const char*, 6> kDemoSuffixes = {"Inc.",   "Ltd.", "Corp.",
                                                  "& Sons", "Co.",  "Holdings"};
const std::array<DemoCity, 10> kDemoCities = {{{"Toronto", "ON", "416", 'M'},
                                               {"Ottawa", "ON", "613", 'K'},
                                               {"Montréal", "QC", "514", 'H'},
                                               {"Vancouver", "BC", "604", 'V'},
                                               {"Calgary", "AB", "403", 'T'},
                                               {"Halifax", "NS", "902", 'B'},
                                               {"Winnipeg", "MB", "204", 'R'},
                                               {"Regina", "SK", "306", 'S'},
                                               {"Kingston", "ON", "613", 'K'},
                                               {"Québec", "QC", "418", 'G'}}};
const std::array<const char*, 10> kDemoStreets = {
    "King Street West",  "Main Street",     "Queen Street",   "Rue Sainte-Catherine",
    "Yonge Street",      "Bank Street",     "Portage Avenue", "Jasper Avenue",
    "Barrington Street", "Granville Street"};
namespace {

using sql::Database;
using sql::Statement;
using sql::Stored;

// SplitMix64: small, fast and the same on every platform.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
  int32_t between(int32_t lo, int32_t hi) {  // inclusive
    return lo + static_cast<int32_t>(next() % static_cast<uint64_t>(hi - lo + 1));
  }
  bool chance(int percent) { return between(1, 100) <= percent; }
  template <class T, size_t N>
  const T& pick(const std::array<T, N>& a) {
    return a[next() % N];
  }

 private:
  uint64_t state_;
};

constexpr std::array<const char*, 24> kFirstNames = {
    "Anne",     "Brian",  "Chloé",  "David", "Emma",  "François", "Grace",   "Henry",
    "Isabelle", "James",  "Karen",  "Liam",  "Marie", "Noah",     "Olivia",  "Paul",
    "Quinn",    "Rachel", "Samuel", "Tara",  "Umar",  "Victoria", "William", "Yvonne"};
constexpr std::array<const char*, 24> kLastNames = {
    "Anderson", "Bouchard", "Campbell", "Dubois",   "Evans",     "Fraser", "Gagnon",  "Henderson",
    "Irving",   "Johnston", "King",     "Lavoie",   "MacDonald", "Nguyen", "O'Brien", "Patel",
    "Roy",      "Singh",    "Tremblay", "van Dyke", "Wilson",    "Young",  "Zhang",   "Côté"};
using City = DemoCity;
constexpr std::array<const char*, 6> kTitles = {"President", "Controller", "Office Manager",
                                                "Owner",     "Bookkeeper", "Director"};
constexpr std::array<const char*, 5> kPrefixes = {"Mr.", "Ms.", "Mrs.", "Dr.", ""};

std::string phone(Random& r, const City& c) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "(%s) 555-%04d", c.area, r.between(100, 9999));
  return buf;
}

std::string postal(Random& r, const City& c) {
  char buf[8];
  auto letter = [&] { return static_cast<char>('A' + r.between(0, 25)); };
  std::snprintf(buf, sizeof buf, "%c%d%c %d%c%d", c.postal, r.between(1, 9), letter(),
                r.between(1, 9), letter(), r.between(0, 9));
  return buf;
}

std::string slug(const std::string& s) {
  std::string out;
  for (char ch : s) {
    if ((ch >= 'a' && ch <= 'z') || (ch >= '0' && ch <= '9'))
      out += ch;
    else if (ch >= 'A' && ch <= 'Z')
      out += static_cast<char>(ch - 'A' + 'a');
  }
  return out;
}

Stored text(const std::string& s) {
  return Stored{Stored::Text, 0, 0, s};
}
Stored integer(int64_t i) {
  return Stored{Stored::Int, i, 0, {}};
}
Stored null() {
  return Stored{};
}

int64_t insert(Database& db, const std::string& table, const std::vector<std::string>& columns,
               const std::vector<Stored>& values) {
  std::string cols, params;
  for (size_t i = 0; i < columns.size(); ++i) {
    if (i) cols += ", ", params += ", ";
    cols += sql::quoteIdentifier(columns[i]);
    params += "?" + std::to_string(i + 1);
  }
  auto info = db.table(table);
  if (!info) db.fail(kStatementFailed, "No table " + table);
  sql::StatementUse st(db.cached("INSERT INTO " + sql::quoteIdentifier(table) + " (" + cols +
                                 ") VALUES (" + params + ")" + db.engine().insertSuffix(*info) +
                                 ";"));
  for (size_t i = 0; i < values.size(); ++i) st->bind(static_cast<int>(i + 1), values[i]);
  st->step();
  return db.engine().insertedKey(st->engineStatement());
}

int64_t count(Database& db, const std::string& query) {
  sql::StatementUse st(db.cached(query));
  return st->step() ? st->columnInt(0) : 0;
}

}  // namespace

DemoSummary fillDemoPractice(const std::string& path, const DemoOptions& options) {
  std::unique_ptr<Database> opened = databases::open(path);
  Database& db = *opened;
  Random r(options.seed);
  DemoSummary sum;
  int64_t companiesBefore = count(db, "SELECT COUNT(*) FROM Companies;");
  if (companiesBefore > 0 && !options.append)
    throw RuntimeError(kInvalidProcedureCall,
                       databases::displayName(path) + " already holds " +
                           std::to_string(companiesBefore) +
                           " companies: give --append to add a demo practice to them");
  db.exec("BEGIN;");

  // Categories: two trees and the host's own category; those a practice appended to already
  // has are used again.
  auto category = [&](const std::string& name, std::optional<int64_t> parent) {
    sql::StatementUse find(
        db.cached("SELECT CategoryID FROM Categories WHERE CategoryName = ?1 AND " +
                  std::string(parent ? "CategoryNum = ?2;" : "CategoryNum IS NULL;")));
    find->bind(1, text(name));
    if (parent) find->bind(2, integer(*parent));
    if (find->step()) return find->columnInt(0);
    ++sum.categories;
    return insert(db, "Categories", {"CategoryName", "CategoryNum"},
                  {text(name), parent ? integer(*parent) : null()});
  };
  int64_t clients = category("Clients", std::nullopt);
  int64_t corporations = category("Corporations", clients);
  int64_t holding = category("Holding Companies", corporations);
  int64_t soleProps = category("Sole Proprietors", clients);
  int64_t partnerships = category("Partnerships", clients);
  int64_t suppliers = category("Suppliers", std::nullopt);
  int64_t banks = category("Banks", suppliers);
  int64_t lawyers = category("Lawyers", suppliers);
  int64_t hostCat = category("Dossiera clients", std::nullopt);
  if (count(db, "SELECT COUNT(*) FROM HostCategory;") == 0)
    insert(db, "HostCategory", {"CategoryNum", "CategoryName"},
           {integer(hostCat), text("Dossiera clients")});
  const std::array<int64_t, 8> companyCategories = {corporations, holding, soleProps, partnerships,
                                                    banks,        lawyers, hostCat,   clients};

  if (count(db, "SELECT COUNT(*) FROM CustomAddressFields;") == 0) {
    insert(
        db, "CustomAddressFields",
        {"ContactLabel1", "ContactLabel2", "ContactLabel3", "ContactLabel4", "ContactLabel5"},
        {text("Client Since"), text("Referred By"), text("Preferred Contact"), text(""), text("")});
  }
  if (count(db, "SELECT COUNT(*) FROM CustomFields;") == 0) {
    insert(db, "CustomFields",
           {"RemittanceCustomInfo1", "RemittanceCustomInfo2", "RemittanceCustomInfo3",
            "RemittanceCustomInfo4", "RemittanceCustomInfo5", "RemittanceCustomType1",
            "RemittanceCustomType2", "RemittanceCustomType3", "RemittanceCustomType4",
            "RemittanceCustomType5"},
           {text("BUSINESSPHONE_MAIN"), text("BusinessEmail"), text("BIRTHDAY"), text("Fee"),
            text(""), integer(3), integer(3), integer(3), integer(1), integer(0)});
  }

  std::vector<int64_t> companyIds;
  std::unordered_set<std::string> usedNames;
  if (companiesBefore > 0) {
    sql::StatementUse names(db.cached("SELECT CompanyName FROM Companies;"));
    while (names->step()) usedNames.insert(names->column(0).s);
  }
  for (int32_t n = 0; n < options.companies; ++n) {
    const City& c = r.pick(kDemoCities);
    bool foreign = r.chance(8);
    std::string name = std::string(r.pick(kDemoNameWords)) + " " + r.pick(kDemoTrades) + " " +
                       r.pick(kDemoSuffixes);
    if (r.chance(30)) name = std::string(r.pick(kDemoNameWords)) + " " + name;
    // A practice knows each of its clients by its own name: a name already taken gets the
    // company's city, then a branch number.
    if (!usedNames.insert(name).second) {
      std::string base = name + " (" + (foreign ? "Buffalo" : c.city) + ")";
      name = base;
      for (int branch = 2; !usedNames.insert(name).second; ++branch)
        name = base + " " + std::to_string(branch);
    }
    std::string domain = slug(name).substr(0, 18) + ".ca";
    std::optional<int64_t> associateOf;
    if (!companyIds.empty() && r.chance(10)) associateOf = companyIds[r.next() % companyIds.size()];
    // An associate usually takes its parent's place in the tree.
    std::optional<int64_t> cat;
    if (!associateOf || r.chance(30)) cat = r.pick(companyCategories);
    if (!cat && !associateOf && r.chance(50)) cat = clients;
    int64_t id = insert(
        db, "Companies",
        {"CompanyName", "CategoryNum", "CompanyNum", "Address", "City", "Province", "PostalCode",
         "Country", "OfficeNumber", "FaxNumber", "Email", "WebSite", "DefaultContactName",
         "DefaultContactPhoneNumber", "DefaultContactFaxNumber", "DefaultContactEmail"},
        {text(name), cat ? integer(*cat) : null(), associateOf ? integer(*associateOf) : null(),
         text(std::to_string(r.between(1, 2999)) + " " + r.pick(kDemoStreets)),
         text(foreign ? "Buffalo" : c.city), text(foreign ? "NY" : c.province),
         text(foreign ? std::to_string(r.between(14201, 14280)) : postal(r, c)),
         text(foreign ? "USA" : (r.chance(70) ? "Canada" : "")),
         text(r.chance(90) ? phone(r, c) : ""), text(r.chance(60) ? phone(r, c) : ""),
         text("info@" + domain), text("www." + domain), text(""), text(""), text(""), text("")});
    companyIds.push_back(id);
    ++sum.companies;

    int64_t client = insert(db, "ClientData", {"CompanyIDNum", "ShowThisClient"},
                            {integer(id), integer(r.chance(92) ? 1 : 0)});
    ++sum.clients;
    for (const char* t : {"AccountingServices", "ClientOptions", "ClientNotes", "CorpTaxInfo",
                          "LawInfo", "OtherInfo", "SoftwareInfo", "WSIB_EHTInfo"}) {
      insert(db, t, {std::string(t) + "ID"}, {integer(client)});
    }

    int32_t contacts = r.between(options.minContacts, options.maxContacts);
    int32_t defaultIndex = contacts > 0 ? r.between(0, contacts - 1) : -1;
    std::string defaultName, defaultPhone, defaultFax, defaultEmail, birthdayText;
    for (int32_t k = 0; k < contacts; ++k) {
      std::string first = r.pick(kFirstNames), last = r.pick(kLastNames);
      std::string prefix = r.pick(kPrefixes);
      std::string display = first + " " + last;
      bool inherit = r.chance(60);
      bool male = r.chance(50);
      std::string birthday;
      if (r.chance(60)) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", r.between(1940, 2000), r.between(1, 12),
                      r.between(1, 28));
        birthday = buf;
      }
      std::string email = slug(first).substr(0, 1) + slug(last) + "@" + domain;
      std::string mainPhone = r.chance(80) ? phone(r, c) : "";
      std::string fax = r.chance(30) ? phone(r, c) : "";
      bool isDefault = k == defaultIndex;
      insert(db, "Contacts",
             {"CompanyNum",
              "CategoryNum",
              "DefaultContact",
              "InheritCompanyInfo",
              "NamePrefix",
              "FirstName",
              "LastName",
              "DisplayName",
              "Gender",
              "Birthday",
              "SpouseName",
              "BusinessName",
              "BusinessJobTitle",
              "BusinessDepartment",
              "BusinessPhone_Main",
              "BusinessPhone_Cell",
              "BusinessPhone_Fax",
              "BusinessAddress",
              "BusinessCity",
              "BusinessProvince",
              "BusinessPostalCode",
              "BusinessCountry",
              "BusinessEmail",
              "PersonalEmail",
              "HomePhone_Main",
              "HomeAddress",
              "HomeCity",
              "HomeProvince",
              "HomePostalCode",
              "HomeCountry",
              "Custom1",
              "Custom2",
              "Notes"},
             {integer(id),
              null(),
              integer(isDefault ? 1 : 0),
              integer(inherit ? 1 : 0),
              text(prefix),
              text(first),
              text(last),
              text(display),
              text(r.chance(85) ? (male ? "Male" : "Female") : ""),
              birthday.empty() ? null() : text(birthday),
              text(r.chance(40) ? r.pick(kFirstNames) : ""),
              text(name),
              text(r.pick(kTitles)),
              text(r.chance(30) ? "Finance" : ""),
              text(mainPhone),
              text(r.chance(70) ? phone(r, c) : ""),
              text(fax),
              text(inherit ? "" : std::to_string(r.between(1, 999)) + " " + r.pick(kDemoStreets)),
              text(inherit ? "" : c.city),
              text(inherit ? "" : c.province),
              text(inherit ? "" : postal(r, c)),
              text(inherit ? "" : "Canada"),
              text(email),
              text(r.chance(50) ? slug(first) + "." + slug(last) + "@example.net" : ""),
              text(r.chance(60) ? phone(r, c) : ""),
              text(std::to_string(r.between(1, 300)) + " " + r.pick(kDemoStreets)),
              text(c.city),
              text(c.province),
              text(postal(r, c)),
              text("Canada"),
              text(std::to_string(r.between(1995, 2025))),
              text(r.chance(50) ? "Website" : ""),
              text(r.chance(30) ? "Prefers e-mail.\r\nCall before noon." : "")});
      ++sum.contacts;
      if (isDefault) {
        defaultName = display, defaultPhone = mainPhone, defaultFax = fax, defaultEmail = email;
        birthdayText = birthday;
      }
    }
    if (defaultIndex >= 0) {
      sql::StatementUse st(db.cached(
          "UPDATE Companies SET DefaultContactName = ?1, DefaultContactPhoneNumber = ?2, "
          "DefaultContactFaxNumber = ?3, DefaultContactEmail = ?4 WHERE CompanyID = ?5;"));
      st->bind(1, defaultName);
      st->bind(2, defaultPhone);
      st->bind(3, defaultFax);
      st->bind(4, defaultEmail);
      st->bind(5, id);
      st->step();
    }
    for (int32_t s = r.between(1, 3); s > 0; --s) {
      char due[16];
      std::snprintf(due, sizeof due, "2026-%02d-%02d", r.between(1, 12), r.between(1, 28));
      insert(db, "Schedule", {"ClientNum", "DueDate", "Task", "Custom1", "Custom2", "Custom3"},
             {integer(client), text(due), text(s == 1 ? "Year-end statements" : "HST return"),
              text(defaultPhone), text(defaultEmail), text(birthdayText)});
      ++sum.scheduleRows;
    }
  }

  // People who belong to no company: filed under a category, or directly in the address book.
  int32_t loose = std::max(1, options.companies / 20);
  for (int32_t k = 0; k < loose; ++k) {
    const City& c = r.pick(kDemoCities);
    std::string first = r.pick(kFirstNames), last = r.pick(kLastNames);
    bool filed = r.chance(70);
    insert(db, "Contacts",
           {"CategoryNum", "FirstName", "LastName", "DisplayName", "HomePhone_Main", "HomeCity",
            "HomeProvince", "HomeCountry", "PersonalEmail"},
           {filed ? integer(r.chance(50) ? lawyers : banks) : null(), text(first), text(last),
            text(first + " " + last), text(phone(r, c)), text(c.city), text(c.province),
            text("Canada"), text(slug(first) + "@example.org")});
    ++sum.contacts;
  }
  db.exec("COMMIT;");
  return sum;
}

}  // namespace dossync::app
