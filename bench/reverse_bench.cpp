// Outlook-to-host synchronisation speed: N contacts that another program wrote as vCard 3.0
// files into the contacts folder of a vCard store, every one selected (as "sync --select all"
// lists them: a walk of the folder's items), information type 1, into an empty practice
// ("fresh"), then again into the practice just filled with the same synchronisation database
// ("again": each contact is updated through its pairing, and each gets a new company, since
// its company was paired with -1). Listing the contacts counts as part of the run.
// Beside it, the floor of the same work: reading the N card files, plus one SQLite transaction
// (WAL, synchronous NORMAL) per contact with the 13 rows a new client takes (company, client
// record, eight detail rows, contact, two pairing rows). Floor and runs take turns, best of each.
// Each synchronisation runs in a child process of its own (peak memory: bench/child_run.h).
// With --cli PATH, each synchronisation is that program run as a user runs it ("dossync sync
// --direction 3 --select all", its own HOME and XDG folders, its report written unless
// --no-reports): the time is the whole program's, from its start to its end.
//
//   reverse_bench [--runs K] [--limit SECONDS] [--cli PATH [--no-reports]] [N ...]
//   default: 3 runs, 1000 5000
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "app/demo_data.h"
#include "app/outlook_wiring.h"
#include "backends/sqlite/host_database.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "child_run.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "interfaces/object_model.h"

namespace fs = std::filesystem;
using namespace dossync;

namespace {

// SplitMix64: the same cards on every machine.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
  int between(int lo, int hi) { return lo + static_cast<int>(next() % (hi - lo + 1)); }
  bool chance(int percent) { return between(1, 100) <= percent; }
  template <size_t N>
  const char* pick(const std::array<const char*, N>& a) {
    return a[next() % N];
  }

 private:
  uint64_t state_;
};

constexpr std::array<const char*, 48> kFirst = {
    "Anne",     "Brian",   "Chloé",  "David",  "Emma",   "François", "Grace",   "Henry",
    "Isabelle", "James",   "Karen",  "Liam",   "Marie",  "Noah",     "Olivia",  "Paul",
    "Quinn",    "Rachel",  "Samuel", "Tara",   "Umar",   "Victoria", "William", "Yvonne",
    "Zoë",      "Mathieu", "Priya",  "Sean",   "Hélène", "Omar",     "Ingrid",  "Kenji",
    "Aisha",    "Bruno",   "Claire", "Dmitri", "Elena",  "Farid",    "Gabriel", "Hannah",
    "Ivan",     "Julie",   "Kofi",   "Louise", "Marco",  "Nadia",    "Oscar",   "Sophie"};
constexpr std::array<const char*, 48> kLast = {
    "Anderson",   "Bouchard",  "Campbell", "Dubois",   "Evans",    "Fraser",    "Gagnon",
    "Henderson",  "Irving",    "Johnston", "King",     "Lavoie",   "MacDonald", "Nguyen",
    "O'Brien",    "Patel",     "Roy",      "Singh",    "Tremblay", "van Dyke",  "Wilson",
    "Young",      "Zhang",     "Côté",     "Bélanger", "Chen",     "Kowalski",  "Murphy",
    "Okafor",     "Pelletier", "Sato",     "Walsh",    "Abbott",   "Bergeron",  "Carter",
    "Desjardins", "Ellis",     "Fontaine", "Gill",     "Hughes",   "Ibrahim",   "Jensen",
    "Kim",        "Lefebvre",  "Morin",    "Novak",    "Ouellet",  "Russo"};
constexpr std::array<const char*, 5> kGenerations = {"", "Jr.", "Sr.", "II", "III"};
constexpr std::array<const char*, 8> kTitles = {"President", "Controller", "Office Manager",
                                                "Owner",     "Bookkeeper", "Director",
                                                "Partner",   "Accountant"};
using City = app::DemoCity;
constexpr const auto& kCities = app::kDemoCities;
constexpr const auto& kWords = app::kDemoNameWords;
constexpr const auto& kTrades = app::kDemoTrades;
constexpr const auto& kSuffixes = app::kDemoSuffixes;
constexpr const auto& kStreets = app::kDemoStreets;

std::string lower(std::string s) {
  std::string out;
  for (char c : s) {
    if (c >= 'A' && c <= 'Z')
      out += static_cast<char>(c - 'A' + 'a');
    else if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
      out += c;
  }
  return out;
}

std::string phone(Random& r, const City& c) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "(%s) 555-%04d", c.area, r.between(100, 9999));
  return buf;
}

struct Card {
  std::string uid, text;
};

// Card i of a store, as an ordinary address book writes it: CRLF lines, a UUID for UID and file
// name. Every card has a person and a company name of its own (the synchronisation pairs a
// contact with a host record of the same name), drawn by a permutation of the index: two
// words, a trade and a suffix for the first 55,296 companies, numbered companies after them;
// first name, middle initial or none and last name for 62,208 people, then again with Jr., Sr.,
// II and III.
Card makeCard(Random& r, int i) {
  char uid[40];
  uint64_t a = r.next(), b = r.next();
  std::snprintf(uid, sizeof uid, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(a >> 32),
                static_cast<unsigned>(a >> 16) & 0xFFFF, static_cast<unsigned>(a) & 0xFFFF,
                static_cast<unsigned>(b >> 48),
                static_cast<unsigned long long>(b & 0xFFFFFFFFFFFFULL));
  constexpr int kStride = 30011;  // prime, so coprime with both counts below
  constexpr int kCompanies = 24 * 24 * 16 * 6, kPeople = 48 * 48 * 27;
  int c = static_cast<int>((static_cast<int64_t>(i) * kStride) % kCompanies);
  std::string word = kWords[c % 24], trade = kTrades[c / 576 % 16];
  std::string company =
      i < kCompanies ? word + " " + kWords[c / 24 % 24] + " " + trade + " " + kSuffixes[c / 9216]
                     : std::to_string(1000000 + i) + " Ontario Inc.";
  int p = static_cast<int>((static_cast<int64_t>(i) * kStride) % kPeople);
  std::string first = kFirst[p % 48], last = kLast[p / 48 % 48];
  std::string middle = p / 2304 ? std::string(1, static_cast<char>('A' + p / 2304 - 1)) : "";
  std::string generation = kGenerations[i / kPeople % kGenerations.size()];
  const City& city = kCities[r.next() % kCities.size()];
  std::string full = first + (middle.empty() ? "" : " " + middle + ".") + " " + last +
                     (generation.empty() ? "" : " " + generation);
  std::string domain = lower(word + trade) + ".ca";
  std::string t = "BEGIN:VCARD\r\nVERSION:3.0\r\nPRODID:-//Example//Address Book 4.2//EN\r\n";
  t += "UID:" + std::string(uid) + "\r\n";
  t += "FN:" + full + "\r\n";
  t += "N:" + last + ";" + first + ";" + (middle.empty() ? "" : middle + ".") + ";;" + generation +
       "\r\n";
  t += "ORG:" + company + ";\r\n";
  if (r.chance(80)) t += "TITLE:" + std::string(r.pick(kTitles)) + "\r\n";
  char postal[16];
  std::snprintf(postal, sizeof postal, "%c%d%c %d%c%d", city.postal, r.between(1, 9),
                'A' + r.between(0, 25), r.between(1, 9), 'A' + r.between(0, 25), r.between(1, 9));
  t += "ADR;TYPE=WORK:;;" + std::to_string(r.between(1, 9999)) + " " + r.pick(kStreets) + ";" +
       city.city + ";" + city.province + ";" + postal + ";Canada\r\n";
  if (r.chance(30)) {
    const City& home = kCities[r.next() % kCities.size()];
    t += "ADR;TYPE=HOME:;;" + std::to_string(r.between(1, 999)) + " " + r.pick(kStreets) + ";" +
         home.city + ";" + home.province + ";;Canada\r\n";
  }
  t += "TEL;TYPE=WORK,VOICE:" + phone(r, city) + "\r\n";
  if (r.chance(50)) t += "TEL;TYPE=CELL:" + phone(r, city) + "\r\n";
  if (r.chance(25)) t += "TEL;TYPE=WORK,FAX:" + phone(r, city) + "\r\n";
  if (r.chance(20)) t += "TEL;TYPE=HOME,VOICE:" + phone(r, city) + "\r\n";
  t += "EMAIL;TYPE=INTERNET,WORK:" + lower(first) + "." + lower(last) + "@" + domain + "\r\n";
  if (r.chance(40)) t += "EMAIL;TYPE=INTERNET:info@" + domain + "\r\n";
  if (r.chance(15)) t += "EMAIL;TYPE=INTERNET,HOME:" + lower(first) + lower(last) + "@mail.ca\r\n";
  if (r.chance(30)) t += "URL:https://www." + domain + "/\r\n";
  if (r.chance(35)) {
    char d[16];
    std::snprintf(d, sizeof d, "%04d-%02d-%02d", r.between(1940, 2000), r.between(1, 12),
                  r.between(1, 28));
    t += std::string("BDAY:") + d + "\r\n";
  }
  if (r.chance(10)) t += std::string("NOTE:Met at the ") + city.city + " trade fair.\r\n";
  t += "REV:2026-10-0" + std::to_string(r.between(1, 9)) + "T12:00:00Z\r\nEND:VCARD\r\n";
  return {uid, t};
}

void writeFile(const fs::path& path, const std::string& text) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    std::exit(1);
  }
  ::close(fd);
}

// The profile "default" of the store at `root`, as the vCard store lays it out.
void writeStore(const fs::path& root, int n) {
  fs::path contacts = root / "default" / "contacts";
  fs::create_directories(contacts);
  Random r(20261101);
  for (int i = 0; i < n; ++i) {
    Card c = makeCard(r, i);
    writeFile(contacts / (c.uid + ".vcf"), c.text);
  }
}

void exec(sqlite3* db, const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
    std::fprintf(stderr, "floor: %s\n", message ? message : "?");
    std::exit(1);
  }
}

// Reading every card file of the folder, and per card one transaction of 13 plain inserts into
// a practice of the host's schema (and a pairing table beside it).
double ioFloor(const fs::path& contacts, const fs::path& dbPath) {
  sqlite::createHostDatabase(dbPath.string());
  sqlite3* db = nullptr;
  sqlite3_open(dbPath.c_str(), &db);
  exec(db,
       "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
       "CREATE TABLE OutlookSync (SyncID INTEGER PRIMARY KEY AUTOINCREMENT, SchemeNum INTEGER,"
       " DataFileID VARCHAR(20), CompanyNum INTEGER, ContactNum INTEGER, OutlookID VARCHAR(100),"
       " OutlookCategory VARCHAR(100), DateLastSync DATETIME);"
       "CREATE INDEX ix_OutlookSync_OutlookID ON OutlookSync(OutlookID);");
  const char* sql[] = {
      "INSERT INTO Companies (CompanyName, CategoryNum, Address, City, Province, PostalCode,"
      " Country, OfficeNumber, Email, WebSite, DefaultContactName, ContactNotes)"
      " VALUES ('Maple Bakery Inc.', 1, '1234 King Street West', 'Toronto', 'ON', 'M5V 2T6',"
      " 'Canada', '(416) 555-0123', 'info@maplebakery.ca', 'https://www.maplebakery.ca/',"
      " 'Anne Bouchard', ?1);",
      "INSERT INTO ClientData (CompanyIDNum, ShowThisClient) VALUES (last_insert_rowid(), 1);",
      "INSERT INTO AccountingServices (AccountingServicesID) VALUES (?2);",
      "INSERT INTO ClientOptions (ClientOptionsID) VALUES (?2);",
      "INSERT INTO ClientNotes (ClientNotesID) VALUES (?2);",
      "INSERT INTO CorpTaxInfo (CorpTaxInfoID) VALUES (?2);",
      "INSERT INTO LawInfo (LawInfoID) VALUES (?2);",
      "INSERT INTO OtherInfo (OtherInfoID) VALUES (?2);",
      "INSERT INTO SoftwareInfo (SoftwareInfoID) VALUES (?2);",
      "INSERT INTO WSIB_EHTInfo (WSIB_EHTInfoID) VALUES (?2);",
      "INSERT INTO Contacts (CompanyNum, CategoryNum, DefaultContact, FirstName, LastName,"
      " DisplayName, Gender, Birthday, BusinessName, BusinessJobTitle, BusinessPhone_Cell,"
      " BusinessEmail, BusinessNotes) VALUES (?2, 1, 1, 'Anne', 'Bouchard', 'Anne Bouchard',"
      " 'Female', '1971-04-12', 'Maple Bakery Inc.', 'Controller', '(416) 555-0456',"
      " 'anne.bouchard@maplebakery.ca', ?1);",
      "INSERT INTO OutlookSync (SchemeNum, DataFileID, CompanyNum, ContactNum, OutlookID,"
      " DateLastSync) VALUES (-1, '', -1, NULL, ?3, '2026-11-01 12:00:00');",
      "INSERT INTO OutlookSync (SchemeNum, DataFileID, CompanyNum, ContactNum, OutlookID,"
      " DateLastSync) VALUES (-1, '', NULL, ?2, ?3, '2026-11-01 12:00:00');"};
  std::vector<sqlite3_stmt*> statements;
  for (const char* s : sql) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, s, -1, &st, nullptr) != SQLITE_OK) {
      std::fprintf(stderr, "floor: %s\n", sqlite3_errmsg(db));
      std::exit(1);
    }
    statements.push_back(st);
  }
  const std::string summary =
      "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Arial;}}\\f0\\fs20 Default Contact: Anne Bouchard\\par "
      "Phone: (416) 555-0123\\par E-mail: anne.bouchard@maplebakery.ca\\par }";
  std::vector<char> buffer(1 << 16);
  auto start = std::chrono::steady_clock::now();
  for (const auto& entry : fs::directory_iterator(contacts)) {
    int fd = ::open(entry.path().c_str(), O_RDONLY);
    if (fd < 0 || ::read(fd, buffer.data(), buffer.size()) <= 0) std::abort();
    ::close(fd);
    std::string id = entry.path().stem().string();
    exec(db, "BEGIN;");
    sqlite3_int64 company = 0, client = 0, contact = 0;
    for (size_t i = 0; i < statements.size(); ++i) {
      sqlite3_stmt* st = statements[i];
      sqlite3_bind_text(st, 1, summary.c_str(), -1, SQLITE_STATIC);
      sqlite3_bind_int64(st, 2, i == 10 ? company : i == 12 ? contact : client);
      sqlite3_bind_text(st, 3, id.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(st) != SQLITE_DONE) {
        std::fprintf(stderr, "floor: %s\n", sqlite3_errmsg(db));
        std::exit(1);
      }
      sqlite3_reset(st);
      if (i == 0) company = sqlite3_last_insert_rowid(db);
      if (i == 1) client = sqlite3_last_insert_rowid(db);
      if (i == 10) contact = sqlite3_last_insert_rowid(db);
    }
    exec(db, "COMMIT;");
  }
  double t = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  for (sqlite3_stmt* st : statements) sqlite3_finalize(st);
  sqlite3_close(db);
  return t;
}

// One synchronisation of every contact of the store into the practice, as "dossync sync
// --direction 3 --select all" does it; the listing is timed with it. `fresh`: the practice is
// empty and every contact makes a company and a contact; else every contact is paired already.
void syncOnce(bench::Timer& timer, const fs::path& store, const fs::path& host,
              const fs::path& syncDb, int n, bool fresh) {
  app::registerOutlook("vdir:" + store.string());
  resetApartment();
  auto component = std::make_unique<clsOutlookSynchronization>();
  component->setMainDatabaseLocation(host.string());
  component->setSyncDatabaseLocation(syncDb.string());
  component->setShowProgress(false);
  component->setSyncDirectionType(syncFromOutlookToDossiera);
  component->setSyncInformationType(companyWithDefaultContact);
  timer.start();
  component->StartOutlook();
  auto items = component->contactsFolder()->Items();
  SelectionCollection& chosen = *component->companyCollection();
  for (int32_t i = 1, count = items->Count(); i <= count; ++i) {
    auto item = items->Item(i);
    if (item && item->Class() == outlook::olContact) chosen.add("", "", item->EntryID());
  }
  component->Synchronize();
  timer.stop();
  const auto& c = component->counters();
  if (chosen.count() != n || c.companiesCreated != n || c.contactsCreated != (fresh ? n : 0)) {
    timer.fail("selected " + std::to_string(chosen.count()) + ", companies created " +
               std::to_string(c.companiesCreated) + ", contacts created " +
               std::to_string(c.contactsCreated) + " of " + std::to_string(n));
  }
  items.reset();
  component.reset();
  resetApartment();
}

// The same synchronisation through the command line: `cli` run in a process of its own.
bench::Measured syncByCli(const bench::Options& o, const fs::path& store, const fs::path& host,
                          const fs::path& syncDb, const fs::path& dir, int n, bool fresh) {
  std::vector<std::string> env = bench::homeUnder(dir, o.reports);
  bench::Measured m =
      bench::runProgram({o.cli, "sync", "--host-db", host.string(), "--sync-db", syncDb.string(),
                         "--outlook", "vdir:" + store.string(), "--direction", "3", "--info", "1",
                         "--select", "all", "--no-progress"},
                        env, dir / "cli.log", o.limit);
  if (!m.ok()) return m;
  sqlite3* db = nullptr;
  sqlite3_stmt* st = nullptr;
  int companies = -1;
  if (sqlite3_open_v2(host.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
      sqlite3_prepare_v2(db, "SELECT count(*) FROM Companies;", -1, &st, nullptr) == SQLITE_OK &&
      sqlite3_step(st) == SQLITE_ROW)
    companies = sqlite3_column_int(st, 0);
  sqlite3_finalize(st);
  sqlite3_close(db);
  if (companies != (fresh ? n : 2 * n))
    m.failure = "the practice holds " + std::to_string(companies) + " companies after the run";
  return m;
}

// Where a benchmark keeps its files; removed at the end, and when a run fails.
fs::path root;

}  // namespace

int main(int argc, char** argv) {
  bench::Options options = bench::parseOptions(argc, argv, "reverse_bench", {1000, 5000});
  const int runs = options.runs, limit = options.limit;
  const std::vector<int>& sizes = options.sizes;
  sqlite::registerSqliteClasses();
  root = fs::temp_directory_path() / ("dossync-reverse-" + std::to_string(::getpid()));
  std::printf("%8s %12s %12s %9s %9s %9s %9s %9s %9s\n", "N", "fresh rec/s", "again rec/s",
              "floor s", "fresh/flr", "again/flr", "cpu s", "fresh MiB", "again MiB");
  double previous = 0, startMiB = 0;
  for (int n : sizes) {
    fs::path dir = root / std::to_string(n);
    fs::path store = dir / "outlook";
    writeStore(store, n);
    fs::path contacts = store / "default" / "contacts";
    // Floor and synchronisations take turns (the disk's speed varies with what else the machine
    // does), each run into a practice and synchronisation database of its own; best of each.
    double floor = 1e9;
    bench::Measured fresh, again;
    fresh.seconds = again.seconds = 1e9;
    for (int k = 0; k < runs; ++k) {
      std::string run = std::to_string(k);
      fs::path host = dir / ("host" + run + ".db"), sync = dir / ("sync" + run + ".db");
      floor = std::min(floor, ioFloor(contacts, dir / ("floor" + run + ".db")));
      sqlite::createHostDatabase(host.string());
      bench::Measured f =
          options.cli.empty()
              ? bench::inChild([&](bench::Timer& t) { syncOnce(t, store, host, sync, n, true); },
                               limit)
              : syncByCli(options, store, host, sync, dir, n, true);
      bench::check(f, "fresh", n, root);
      bench::Measured a =
          options.cli.empty()
              ? bench::inChild([&](bench::Timer& t) { syncOnce(t, store, host, sync, n, false); },
                               limit)
              : syncByCli(options, store, host, sync, dir, n, false);
      bench::check(a, "again", n, root);
      startMiB = std::max({startMiB, f.startMiB, a.startMiB});
      if (f.seconds < fresh.seconds) fresh = f;
      if (a.seconds < again.seconds) again = a;
    }
    bench::printRow(n, fresh, again, floor, previous);
    previous = fresh.seconds;
  }
  if (options.cli.empty())
    std::printf("(peak memory of each run in a process of its own, which started with %.0f MiB)\n",
                startMiB);
  else
    std::printf("(each run: %s sync, reports %s, timed from its start to its end)\n",
                options.cli.c_str(), options.reports ? "on" : "off");
  fs::remove_all(root);
  return 0;
}
