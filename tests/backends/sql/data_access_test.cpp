// Each test runs on a SQLite file, on a PostgreSQL server of the test's own, through the SQLite
// ODBC driver, and there again in the SQL written for Jet (refusing any Jet would not take).
#include "backends/sql/data_access.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include "app/databases.h"
#include "backends/odbc/odbc_data_access.h"
#include "backends/postgres/pg_engine.h"
#include "backends/sql/dialect.h"
#include "backends/sql/tokenizer.h"
#include "core/apartment.h"
#include "test_support.h"

namespace dossync::sql {
namespace {

using hostdb::kLockOptimistic;
using hostdb::kLockReadOnly;

enum class Engine { SQLite, PostgreSQL, ODBC, Jet };
using Rows = std::vector<std::string>;

std::string engineName(const ::testing::TestParamInfo<Engine>& info) {
  static const char* const kNames[] = {"sqlite", "postgres", "odbc", "jet"};
  return kNames[static_cast<int>(info.param)];
}

class DataAccessTest : public ::testing::TestWithParam<Engine> {
 protected:
  static void TearDownTestSuite() { server.reset(); }

  void SetUp() override {
    if (GetParam() == Engine::SQLite) {
      path = testing::makeHostDatabase(dir);
    } else if (GetParam() == Engine::ODBC || GetParam() == Engine::Jet) {
      if (!odbc::driverAvailable(odbc::Flavour::SQLite))
        GTEST_SKIP() << "The SQLite ODBC driver is not installed (scripts/deps.sh --test)";
      path = testing::makeHostDatabase(dir);
    } else {
      if (access("/usr/lib/postgresql/15/bin/postgres", X_OK) != 0)
        GTEST_SKIP() << "PostgreSQL 15 is not installed (scripts/deps.sh --test)";
      if (!server) server = std::make_unique<testing::PostgresServer>();
      std::string name = "t" + std::to_string(++databases);
      server->createDatabase(name);
      path = server->uri(name);
      databases::createHostDatabase(path);
    }
    exec(
        "INSERT INTO Companies (CompanyID, CompanyName, CategoryNum) VALUES "
        "(1, 'Zeta Ltd.', 3), (2, 'acme Inc.', NULL), (5, 'Beta Co.', 3);"
        "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, DefaultContact, "
        "Birthday) VALUES (10, 1, 'Ann', False, '1970-03-05'), (11, 1, 'Bob', True, NULL), "
        "(12, 5, 'Cy', True, '1980-01-02 10:11:12'), (13, 1, 'Dee', True, NULL);");
    db.setDatabaseLocation(path);
    ASSERT_TRUE(db.openDatabase(2)) << db.lastError();
  }
  bool postgres() const { return GetParam() == Engine::PostgreSQL; }
  bool jet() const { return GetParam() == Engine::Jet; }
  std::unique_ptr<DataAccess> makeDataAccess() const {
    if (GetParam() == Engine::ODBC) return std::make_unique<odbc::OdbcDataAccess>();
    if (GetParam() == Engine::Jet)
      return std::make_unique<DataAccess>([](const std::string& path) {
        return std::make_unique<odbc::OdbcEngine>(path, false, odbc::Flavour::SQLite, true);
      });
    return std::make_unique<databases::RoutedDataAccess>();
  }

  // Another program's statements, on a connection of its own (CREATE TABLE in SQLite's words).
  void exec(const std::string& statements) {
    std::unique_ptr<Database> other = databases::open(path);
    for (const std::string& sql : splitStatements(statements)) {
      if (postgres() && findKeyword(sql, "CREATE TABLE") == 0) {
        other->exec(postgresSchema(sql + ";"));
        continue;
      }
      Statement st(*other, sql);
      while (st.step()) {
      }
    }
  }
  // The first column of every row, as text; "<null>" for NULL.
  Rows query(const std::string& sql) {
    std::unique_ptr<Database> other = databases::open(path);
    Statement st(*other, sql);
    Rows out;
    while (st.step()) {
      Stored v = st.column(0);
      out.push_back(v.type == Stored::Null ? "<null>" : fromStored(ColumnInfo{}, v));
    }
    return out;
  }
  int32_t open(const std::string& sql, int32_t lock = kLockReadOnly) {
    return db.openRecordset(sql, 1, lock, true, "");
  }
  int32_t companies(int32_t lock = kLockReadOnly) {
    return open("SELECT Companies.* FROM Companies;", lock);
  }
  Rows walk(int32_t h, const std::string& field) {
    Rows out;
    while (!db.isEOF(h)) {
      out.push_back(db.readField(h, field));
      db.moveNext(h);
    }
    return out;
  }
  Rows stored() { return query("SELECT CompanyName FROM Companies ORDER BY CompanyID;"); }
  void addRow(int32_t h, const std::vector<std::pair<std::string, std::string>>& fields) {
    db.addNew(h);
    for (const auto& [field, value] : fields) db.setNewField(h, field, value);
    db.saveNew(h);
  }

  static inline std::unique_ptr<testing::PostgresServer> server;
  static inline int databases = 0;
  testing::TempDir dir;
  std::string path;
  std::unique_ptr<DataAccess> owned = makeDataAccess();
  DataAccess& db = *owned;
};

INSTANTIATE_TEST_SUITE_P(Engines, DataAccessTest,
                         ::testing::Values(Engine::SQLite, Engine::PostgreSQL, Engine::ODBC,
                                           Engine::Jet),
                         engineName);

// Named in the error (a server's without the password); a missing file is not made.
TEST_P(DataAccessTest, OpeningFailuresNameTheDatabase) {
  std::vector<std::pair<std::string, std::string>> cases;  // location, what the error shows
  auto quoted = [](const std::string& text) { return "'" + text + "'"; };
  if (postgres()) {
    std::string missing = server->uri("nosuch");
    std::string withPassword = missing;
    withPassword.replace(withPassword.find("dossync@"), 8, "dossync:s3cret@");
    cases = {{withPassword, quoted(missing)},
             {"postgres://bob:s3cret@/x?host=" + dir.path() + "&port=1",
              quoted("postgres://bob@/x?host=" + dir.path() + "&port=1")},
             {missing + "&password=s3cret", quoted(missing)}};
  } else {
    std::ofstream(dir.file("text.db")) << "definitely not a database file, only text ...";
    cases = {{dir.file("none.db"), quoted(dir.file("none.db"))},
             {dir.file("text.db"), "not a database"}};
  }
  for (const auto& [location, shown] : cases) {
    auto other = makeDataAccess();
    other->setDatabaseLocation(location);
    EXPECT_FALSE(other->openDatabase(2)) << location;
    EXPECT_FALSE(other->isDatabaseOpen());
    EXPECT_NE(other->lastError().find(shown), std::string::npos) << other->lastError();
    EXPECT_EQ(other->lastError().find("s3cret"), std::string::npos) << other->lastError();
    EXPECT_EQ(testing::errorOf([&] { other->openRecordset("SELECT * FROM Companies;", 1, 1); }),
              kObjectClosed);
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("none.db")));
}

TEST_P(DataAccessTest, TablesWithoutAKeyAndViewsOfATableAreWritable) {
  int32_t h = open("SELECT HostCategory.* FROM HostCategory;", kLockOptimistic);
  addRow(h, {{"CategoryName", "Outlook"}});
  db.writeField(h, "CategoryNum", "7");
  EXPECT_EQ(query("SELECT CategoryName || '/' || CategoryNum FROM HostCategory;"),
            (Rows{"Outlook/7"}));
  if (jet())
    return;  // Jet writes through a query of one table itself; SQLite's views are read-only
  int32_t v = open("SELECT rstContacts.* FROM rstContacts;", kLockOptimistic);
  ASSERT_TRUE(db.findFirst(v, "DisplayName", "cy"));
  db.writeField(v, "FirstName", "Cyril");
  EXPECT_EQ(query("SELECT FirstName FROM Contacts WHERE ContactID = 12;")[0], "Cyril");
}

TEST_P(DataAccessTest, MisusesAreErrorsByNumber) {
  int32_t closed = companies();
  db.closeRecordset(closed);
  int32_t ended = companies();
  walk(ended, "CompanyID");
  int32_t readOnly = companies(), row = companies(kLockOptimistic);
  int32_t contact = open("SELECT Contacts.* FROM Contacts;", kLockOptimistic);
  int32_t join = open(
      "SELECT Contacts.*, Companies.CompanyName FROM Contacts INNER JOIN Companies ON "
      "Contacts.CompanyNum = Companies.CompanyID;",
      kLockOptimistic);
  struct Row {
    const char* what;
    std::function<void()> run;
    int32_t error;
  } rows[] = {
      {"read a closed recordset", [&] { db.readField(closed, "CompanyName"); }, kObjectClosed},
      {"close it again", [&] { db.closeRecordset(closed); }, kObjectClosed},
      {"find in an unknown handle", [&] { db.findFirst(-5, "CompanyID", "1"); }, kObjectClosed},
      {"an unknown table", [&] { open("SELECT Nothing.* FROM Nothing;"); }, kStatementFailed},
      {"move past the end", [&] { db.moveNext(ended); }, kNoCurrentRecord},
      {"read past the end", [&] { db.readField(ended, "CompanyID"); }, kNoCurrentRecord},
      {"write read-only", [&] { db.writeField(readOnly, "CompanyName", "x"); }, kNotUpdatable},
      {"add read-only", [&] { db.addNew(readOnly); }, kNotUpdatable},
      {"delete read-only", [&] { db.deleteCurrent(readOnly); }, kNotUpdatable},
      {"write into a join", [&] { db.writeField(join, "DisplayName", "x"); }, kNotUpdatable},
      {"an unknown field", [&] { db.writeField(row, "NoSuchField", "x"); }, kItemNotFound},
      {"text in a number", [&] { db.writeField(row, "CategoryNum", "twelve"); }, kTypeMismatch},
      {"the key", [&] { db.writeField(row, "CompanyID", "99"); }, kFieldNotUpdatable},
      {"a Boolean", [&] { db.writeField(contact, "DefaultContact", "maybe"); }, kTypeMismatch},
      {"a date", [&] { db.writeField(contact, "Birthday", "someday"); }, kTypeMismatch},
      {"save without a new row", [&] { db.saveNew(row); }, kNoCurrentRecord},
  };
  for (const Row& r : rows) EXPECT_EQ(testing::errorOf(r.run), r.error) << r.what;
  EXPECT_EQ(db.readField(readOnly, "CompanyName"), "Zeta Ltd.");
  EXPECT_EQ(stored(), (Rows{"Zeta Ltd.", "acme Inc.", "Beta Co."}));
  for (int32_t h : {ended, readOnly, row, contact, join}) db.closeRecordset(h);
  EXPECT_EQ(db.openRecordsetCount(), 0u);
}

TEST_P(DataAccessTest, WalkingInKeyOrderOrderByWhereAndFieldNamesInAnyCase) {
  int32_t h = companies();
  EXPECT_TRUE(db.hasCurrentRow(h));
  EXPECT_EQ(walk(h, "CompanyID"), (Rows{"1", "2", "5"}));
  EXPECT_TRUE(db.isEOF(h));
  EXPECT_FALSE(db.hasCurrentRow(h));

  int32_t empty = open("SELECT HostCategory.* FROM HostCategory;");
  EXPECT_FALSE(db.hasCurrentRow(empty));
  EXPECT_TRUE(db.isEOF(empty));
  EXPECT_FALSE(db.findFirst(empty, "CategoryNum", "1"));
  db.findNext(empty);
  EXPECT_TRUE(db.isEOF(empty));

  int32_t o = open("SELECT Companies.* FROM Companies ORDER BY Companies.CompanyName;");
  EXPECT_EQ(walk(o, "companyname"), (Rows{"acme Inc.", "Beta Co.", "Zeta Ltd."}));
  int32_t w =
      open("SELECT Contacts.* FROM Contacts WHERE CompanyNum = 1 AND DisplayName <> 'Bob';");
  EXPECT_EQ(walk(w, "DisplayName"), (Rows{"Ann", "Dee"}));
}

TEST_P(DataAccessTest, FindsCompareTextWithoutRegardToCaseAndMoveTheRow) {
  int32_t h = open("SELECT Contacts.* FROM Contacts;");
  ASSERT_TRUE(db.findFirst(h, "CompanyNum", "1"));
  Rows names;
  for (; !db.isEOF(h); db.findNext(h)) names.push_back(db.readField(h, "DisplayName"));
  EXPECT_EQ(names, (Rows{"Ann", "Bob", "Dee"}));
  EXPECT_FALSE(db.findFirst(h, "CompanyNum", "01"));  // text, not numbers: "01" is not "1"
  EXPECT_TRUE(db.isEOF(h));
  auto found = [&](const char* field, const char* value) {
    return db.findFirst(h, field, value) ? db.readField(h, "ContactID") : "none";
  };
  EXPECT_EQ(found("DisplayName", "ANN"), "10");
  EXPECT_EQ(found("DisplayName", "An"), "none");
  EXPECT_EQ(found("DefaultContact", "True"), "11");
  EXPECT_EQ(found("Birthday", "Mar 5, 1970"), "10");
  EXPECT_EQ(found("ContactName", "Ann"), "none");  // a field the table does not have
  EXPECT_TRUE(db.isEOF(h));

  // Within an ordered recordset, in its order.
  int32_t o = open("SELECT Contacts.* FROM Contacts ORDER BY Contacts.DisplayName;");
  ASSERT_TRUE(db.findFirst(o, "DefaultContact", "True"));
  EXPECT_EQ(db.readField(o, "DisplayName"), "Bob");
  db.findNext(o);
  EXPECT_EQ(db.readField(o, "DisplayName"), "Cy");
  db.moveNext(o);
  EXPECT_EQ(db.readField(o, "DisplayName"), "Dee");
}

TEST_P(DataAccessTest, AccentedLettersCompareAndSortWithoutRegardToCase) {
  exec(
      "INSERT INTO Categories (CategoryID, CategoryName) VALUES (1, 'Émile'), "
      "(2, 'zeta'), (3, 'éclair'), (4, 'Eve'), (5, 'ÉCOLE DUPONT');"
      "UPDATE Companies SET CategoryNum = 3 WHERE CompanyID = 2;");
  int32_t h = open("SELECT Categories.* FROM Categories;");
  ASSERT_TRUE(db.findFirst(h, "CategoryName", "école dupont"));
  EXPECT_EQ(db.readField(h, "CategoryID"), "5");
  EXPECT_FALSE(db.findFirst(h, "CategoryName", "ecole dupont"));  // accents still count
  // Sorting folds accented capitals too ("Émile" after "éclair"), on a table and in a join.
  int32_t o = open("SELECT Categories.* FROM Categories ORDER BY Categories.CategoryName;");
  EXPECT_EQ(walk(o, "CategoryName"), (Rows{"Eve", "zeta", "éclair", "ÉCOLE DUPONT", "Émile"}));
  int32_t j = open(
      "SELECT Categories.CategoryName, Companies.CompanyName FROM Categories INNER JOIN "
      "Companies ON Companies.CategoryNum = Categories.CategoryID ORDER BY "
      "Categories.CategoryName DESC, Companies.CompanyName;");
  EXPECT_EQ(walk(j, "CompanyName"), (Rows{"acme Inc.", "Beta Co.", "Zeta Ltd."}));
  ASSERT_TRUE(db.findFirst(j, "CompanyName", "ZETA LTD."));
}

TEST_P(DataAccessTest, FindsAreIndexedInTheProcessNeverInTheHostsFile) {
  const std::string schemaSql =
      postgres() ? "SELECT indexname || ':' || indexdef FROM pg_indexes ORDER BY indexname;"
                 : "SELECT type || name || sql FROM sqlite_master;";
  const auto schema = query(schemaSql);
  int32_t h = companies(kLockOptimistic);
  EXPECT_FALSE(db.findFirst(h, "Email", "x@y"));
  ASSERT_TRUE(db.findFirst(h, "CompanyName", "ACME INC."));
  db.writeField(h, "CompanyName", "Gamma");
  EXPECT_FALSE(db.findFirst(h, "CompanyName", "acme inc."));
  ASSERT_TRUE(db.findFirst(h, "CompanyName", "gamma"));
  EXPECT_EQ(db.readField(h, "CompanyID"), "2");
  addRow(h, {{"CompanyName", "Delta"}});
  std::string delta = db.readField(h, "CompanyID");
  ASSERT_TRUE(db.findFirst(h, "CompanyName", "DELTA"));
  EXPECT_EQ(db.readField(h, "CompanyID"), delta);
  db.deleteCurrent(h);
  EXPECT_FALSE(db.findFirst(h, "CompanyName", "Delta"));
  // The key column is found without an index; text that is not its decimal form finds nothing.
  EXPECT_TRUE(db.findFirst(h, "CompanyID", "5"));
  EXPECT_FALSE(db.findFirst(h, "CompanyID", "05"));
  EXPECT_FALSE(db.findFirst(h, "CompanyID", delta));
  db.closeRecordset(h);

  exec(
      "INSERT INTO Companies (CompanyID, CompanyName) VALUES (40, 'Omega');"
      "UPDATE Companies SET CompanyName = 'Sigma' WHERE CompanyID = 5;");
  db.idle();
  h = companies();
  EXPECT_TRUE(db.findFirst(h, "CompanyName", "omega"));
  EXPECT_FALSE(db.findFirst(h, "CompanyName", "Beta Co."));
  EXPECT_TRUE(db.findFirst(h, "CompanyName", "SIGMA"));
  int32_t w = open("SELECT Contacts.* FROM Contacts WHERE CompanyNum = 1;");
  EXPECT_FALSE(db.findFirst(w, "DisplayName", "cy"));
  EXPECT_TRUE(db.findFirst(w, "DisplayName", "dee"));
  EXPECT_EQ(query(schemaSql), schema);
}

// A login that may not add the change triggers to the host's tables still finds what other
// programs wrote: its indexes are rebuilt once per snapshot instead.
TEST_P(DataAccessTest, WithoutTheRightToAddTriggersOthersWritesAreStillFound) {
  if (!postgres()) GTEST_SKIP() << "SQLite tells changes by its data version";
  std::string clerk = "clerk_" + std::to_string(databases);
  const std::string to = " IN SCHEMA public TO " + clerk + "; ";
  databases::open(path)->exec("CREATE ROLE " + clerk +
                              " LOGIN; GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES" + to +
                              "GRANT USAGE, SELECT, UPDATE ON ALL SEQUENCES" + to +
                              "DROP TRIGGER dossync_changed ON \"Companies\";");
  std::string uri = path;
  uri.replace(uri.find("dossync@"), 7, clerk);
  databases::RoutedDataAccess seat;
  seat.setDatabaseLocation(uri);
  ASSERT_TRUE(seat.openDatabase(2)) << seat.lastError();
  int32_t h = seat.openRecordset("SELECT Companies.* FROM Companies;", 1, kLockReadOnly);
  EXPECT_TRUE(seat.findFirst(h, "CompanyName", "zeta ltd."));
  // Another seat with the same login writes (a connection of the owner would add the trigger).
  {
    std::unique_ptr<Database> other = databases::open(uri);
    Statement insert(*other,
                     "INSERT INTO Companies (CompanyID, CompanyName) VALUES (40, 'Omega');");
    insert.step();
    Statement triggers(*other,
                       "SELECT count(*) FROM pg_trigger WHERE tgname = 'dossync_changed' AND "
                       "tgrelid = '\"Companies\"'::regclass;");
    ASSERT_TRUE(triggers.step());
    EXPECT_EQ(triggers.columnInt(0), 0);
  }
  seat.idle();
  EXPECT_TRUE(seat.findFirst(h, "CompanyName", "OMEGA"));
}

TEST_P(DataAccessTest, NewRowsTakeTheDatabasesDefaults) {
  exec(
      "CREATE TABLE Flags (ID INTEGER PRIMARY KEY AUTOINCREMENT, Name TEXT, "
      "Done BOOLEAN NOT NULL, Note TEXT DEFAULT 'none', Seen BOOLEAN);");
  for (auto [table, field, value] :
       std::vector<std::array<const char*, 3>>{{"ClientData", "CompanyIDNum", "1"},
                                               {"ClientOptions", "ClientOptionsID", "1"},
                                               {"Flags", "Name", "x"}}) {
    int32_t h = open(std::string("SELECT ") + table + ".* FROM " + table + ";", kLockOptimistic);
    db.addNew(h);
    db.setNewField(h, field, value);
    if (std::string(table) == "ClientData") {
      EXPECT_EQ(db.readField(h, "ShowThisClient"), "True");  // before the save, too
    }
    db.saveNew(h);
  }
  EXPECT_EQ(query("SELECT ShowThisClient FROM ClientData;")[0], "1");
  EXPECT_EQ(query("SELECT SendReminders FROM ClientOptions;")[0], "1");
  for (auto [column, value] :
       std::vector<std::array<const char*, 2>>{{"Done", "0"}, {"Note", "none"}, {"Seen", "<null>"}})
    EXPECT_EQ(query(std::string("SELECT ") + column + " FROM Flags;")[0], value) << column;
}

TEST_P(DataAccessTest, WritesAreStoredAtOnceAndReadBackInTheirTextForms) {
  int32_t h = companies(kLockOptimistic);
  db.findFirst(h, "CompanyID", "2");
  db.writeField(h, "CompanyName", "Acme Incorporated");
  db.writeField(h, "CategoryNum", "");
  EXPECT_EQ(query("SELECT CompanyName FROM Companies WHERE CompanyID=2;")[0], "Acme Incorporated");
  EXPECT_EQ(query("SELECT CategoryNum FROM Companies WHERE CompanyID=2;")[0], "<null>");

  int32_t c = open("SELECT Contacts.* FROM Contacts;", kLockOptimistic);
  db.findFirst(c, "ContactID", "10");
  EXPECT_EQ(db.readField(c, "DefaultContact"), "False");
  for (auto [written, read] : std::vector<std::pair<const char*, const char*>>{
           {"True", "True"}, {"0", "False"}, {"-1", "True"}, {"false", "False"}}) {
    db.writeField(c, "DefaultContact", written);
    EXPECT_EQ(db.readField(c, "DefaultContact"), read) << written;
  }
  EXPECT_EQ(db.readField(c, "Birthday"), "1970-03-05");
  db.writeField(c, "Birthday", "Dec 25, 1999");
  EXPECT_EQ(db.readField(c, "Birthday"), "1999-12-25");
  db.writeField(c, "Anniversary", "");
  EXPECT_EQ(db.readField(c, "Anniversary"), "");
  db.findFirst(c, "ContactID", "12");
  EXPECT_EQ(db.readField(c, "Birthday"), "1980-01-02 10:11:12");
  EXPECT_EQ(db.readField(c, "NamePrefix"), "");  // NULL text reads empty
}

class SnapshotTest : public DataAccessTest {
 protected:
  std::string nameOf(const std::string& id) {
    int32_t h = companies();
    db.findFirst(h, "CompanyID", id);
    std::string name = db.readField(h, "CompanyName");
    db.closeRecordset(h);
    return name;
  }
  void rename(const std::string& id, const std::string& name) {
    int32_t w = companies(kLockOptimistic);
    db.findFirst(w, "CompanyID", id);
    db.writeField(w, "CompanyName", name);
    db.closeRecordset(w);
  }
  void TearDown() override { resetApartment(); }
  // The apartment's data access objects point at this one, which the test owns.
  hostdb::DataAccessPtr shared() {
    return hostdb::DataAccessPtr(&db, [](hostdb::IDataAccess*) {});
  }
};

INSTANTIATE_TEST_SUITE_P(Engines, SnapshotTest,
                         ::testing::Values(Engine::SQLite, Engine::PostgreSQL, Engine::ODBC),
                         engineName);

// Reads share a snapshot while a procedure runs; outside procedures, it ends with the last open
// recordset.
TEST_P(SnapshotTest, OthersWritesShowWhenIdleOwnWritesAtOnce) {
  apartment().hostDb = shared();
  EXPECT_EQ(nameOf("1"), "Zeta Ltd.");
  exec("UPDATE Companies SET CompanyName = 'Zeta Two' WHERE CompanyID = 1;");
  EXPECT_EQ(nameOf("1"), "Zeta Two");  // no procedure running: the last close let go
  {
    ErrorFrame procedure("test:outer");
    auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(nameOf("5"), "Beta Co.");
    exec("UPDATE Companies SET CompanyName = 'Beta Two' WHERE CompanyID = 5;");
    std::string during = nameOf("5");
    // Still the procedure's snapshot, unless the machine was so slow that it reached its age
    // limit and was renewed (which is allowed).
    EXPECT_TRUE(during == "Beta Co." ||
                std::chrono::steady_clock::now() - began >= sql::Database::kSnapshotAge);
    rename("2", "Acme Renamed");
    EXPECT_EQ(nameOf("2"), "Acme Renamed");  // our own write, inside the same procedure
    // Stored at once, though made after another program's while reading an older snapshot.
    EXPECT_EQ(stored(), (Rows{"Zeta Two", "Acme Renamed", "Beta Two"}));
  }
  exec("UPDATE Companies SET CompanyName = 'Beta Three' WHERE CompanyID = 5;");
  EXPECT_EQ(nameOf("5"), "Beta Three");  // the procedure returned: idle
}

TEST_P(SnapshotTest, GroupedWritesCommitWhenTheProcedureReturnsOrAnErrorIsReported) {
  db.groupWrites(true);
  apartment().syncDb = shared();
  {
    ErrorFrame procedure("test:outer");
    rename("1", "Zeta Grouped");
    rename("2", "Acme Grouped");
    EXPECT_EQ(stored()[0], "Zeta Ltd.");  // not yet
  }
  EXPECT_EQ(stored(), (Rows{"Zeta Grouped", "Acme Grouped", "Beta Co."}));
  // Writes to one row are joined into one statement, yet every read sees each of them at once.
  {
    ErrorFrame procedure("test:outer");
    int32_t w = open("SELECT Companies.* FROM Companies;", kLockOptimistic);
    int32_t r = open("SELECT Companies.* FROM Companies;");
    ASSERT_TRUE(db.findFirst(r, "CompanyID", "5"));
    EXPECT_EQ(db.readField(r, "Email"), "");
    ASSERT_TRUE(db.findFirst(w, "CompanyID", "5"));
    db.writeField(w, "Email", "info@beta");
    db.writeField(w, "City", "Laval");
    db.writeField(w, "Email", "office@beta");
    EXPECT_EQ(db.readField(w, "Email"), "office@beta");
    EXPECT_EQ(db.readField(r, "Email"), "office@beta");
    EXPECT_TRUE(db.findFirst(r, "City", "LAVAL"));
    ASSERT_TRUE(db.findFirst(w, "CompanyID", "1"));
    db.writeField(w, "City", "Hull");
    EXPECT_EQ(db.readField(r, "City"), "Laval");
  }
  EXPECT_EQ(query("SELECT coalesce(Email, '') || '|' || City FROM Companies WHERE CompanyID "
                  "IN (1, 5) ORDER BY CompanyID;"),
            (Rows{"|Hull", "office@beta|Laval"}));
  rename("5", "Beta at once");
  EXPECT_EQ(stored()[2], "Beta at once");

  struct Checking : testing::RecordingErrorService {
    std::function<void()> check;
    void recordError(const RuntimeError& e) override {
      check();
      RecordingErrorService::recordError(e);
    }
  };
  auto errors = std::make_shared<Checking>();
  Rows seen;
  errors->check = [&] { seen = stored(); };
  apartment().errorService = errors;
  apartment().errorServiceSet = true;
  {
    ErrorFrame procedure("test:outer");
    procedure.step([&] {
      rename("1", "Zeta Failing");
      throw RuntimeError(kInvalidProcedureCall, "something else failed");
    });
  }
  ASSERT_EQ(errors->errors.size(), 1u);
  EXPECT_EQ(seen[0], "Zeta Failing");
}

// However many rows (and pages) of the group's earlier records the failed one changed.
TEST_P(SnapshotTest, AFailedRecordIsUndoneAloneInALargeGroup) {
  db.groupWrites(true);
  apartment().syncDb = shared();
  const std::string notes(3000, 'n');
  {
    ErrorFrame procedure("test:outer");
    for (int k = 0; k < 120; ++k) {
      apartment().beginRecord();
      int32_t w = companies(kLockOptimistic);
      addRow(w, {{"CompanyName", "Client " + std::to_string(k)},
                 {"ContactNotes", notes + std::to_string(k)}});
      db.closeRecordset(w);
      apartment().endRecord(true);
    }
    // Rewrites every client's notes, then fails.
    apartment().beginRecord();
    int32_t w = companies(kLockOptimistic);
    for (; !db.isEOF(w); db.moveNext(w)) db.writeField(w, "ContactNotes", "rewritten");
    db.closeRecordset(w);
    apartment().endRecord(false);
    apartment().beginRecord();
    rename("1", "Zeta After");
    apartment().endRecord(true);
  }
  EXPECT_EQ(query("SELECT count(*) FROM Companies WHERE ContactNotes LIKE 'nnn%';"), Rows{"120"});
  EXPECT_EQ(query("SELECT count(*) FROM Companies WHERE ContactNotes = 'rewritten';"), Rows{"0"});
  EXPECT_EQ(stored()[0], "Zeta After");
}

// Held from the record's start to its group's commit, so that two such runs take the two locks
// in one order, never each holding one and waiting for the other's.
TEST_P(SnapshotTest, ARunWritingBothDatabasesHoldsTheHostsLockFromEachRecordsStart) {
  if (GetParam() != Engine::SQLite && !postgres()) GTEST_SKIP() << "No writers' lock here";
  auto hostLock = [&]() -> std::string {
    if (postgres())  // another session tries the lock, and lets it go as it ends
      return query("SELECT pg_try_advisory_lock(" +
                   std::to_string(postgres::PgEngine::kWritersLock) + ")::int;")[0] == "1"
                 ? "free"
                 : "held";
    sqlite3* other = nullptr;
    sqlite3_open(path.c_str(), &other);
    int rc = sqlite3_exec(other, "BEGIN IMMEDIATE;", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    return rc == SQLITE_BUSY ? "held" : "free";
  };
  db.groupWrites(true);
  apartment().hostDb = shared();
  apartment().syncDb = makeDataAccess();
  for (bool writesHost : {true, false}) {
    {
      ErrorFrame procedure("test:outer");
      apartment().beginRecord(writesHost);
      EXPECT_EQ(hostLock(), writesHost ? "held" : "free");
      EXPECT_EQ(nameOf("1"), "Zeta Ltd.");
      apartment().endRecord(true);
      EXPECT_EQ(hostLock(), writesHost ? "held" : "free");  // until the group is committed
    }
    EXPECT_EQ(hostLock(), "free");
  }
}

// COLLATE NOCASE on SQLite, citext on PostgreSQL; written at once or grouped.
TEST_P(SnapshotTest, AChangeOfCaseIsWrittenWhateverTheColumnsCollation) {
  if (postgres())
    exec(
        "CREATE EXTENSION IF NOT EXISTS citext; ALTER TABLE Companies ALTER COLUMN CompanyName "
        "TYPE citext;");
  rename("5", "BETA CO.");
  EXPECT_EQ(stored()[2], "BETA CO.");
  db.groupWrites(true);
  apartment().syncDb = shared();
  {
    ErrorFrame procedure("test:outer");
    rename("1", "ZETA LTD.");
    int32_t c = open("SELECT Contacts.* FROM Contacts;", kLockOptimistic);
    ASSERT_TRUE(db.findFirst(c, "ContactID", "10"));
    db.writeField(c, "DisplayName", "ann");
    db.writeField(c, "BusinessEmail", "Ann@Example.org");
  }
  EXPECT_EQ(stored()[0], "ZETA LTD.");
  EXPECT_EQ(
      query("SELECT DisplayName || ' ' || BusinessEmail FROM Contacts WHERE ContactID = 10;")[0],
      "ann Ann@Example.org");
}

// The server refuses a grouped write to a row another connection changed since the group's
// snapshot began, dropping the writes before it: all are made again in a new snapshot.
TEST_P(SnapshotTest, AGroupMeetingAnotherConnectionsChangeIsWrittenAgain) {
  if (!postgres()) GTEST_SKIP() << "SQLite: no other write can come between a group's";
  db.groupWrites(true);
  apartment().syncDb = shared();
  {
    ErrorFrame procedure("test:outer");
    rename("2", "Acme Grouped");
    rename("5", "Beta Grouped");
    exec("UPDATE Companies SET City = 'Elsewhere' WHERE CompanyID IN (1, 5);");
    rename("1", "Zeta Ours");
    EXPECT_EQ(stored()[1], "acme Inc.");  // not yet
  }
  EXPECT_EQ(query("SELECT CompanyName || '|' || coalesce(City, '') FROM Companies ORDER BY "
                  "CompanyID;"),
            (Rows{"Zeta Ours|Elsewhere", "Acme Grouped|", "Beta Grouped|Elsewhere"}));
}

// A row is read with the columns its callers use; the first read of another reads that one too.
TEST_P(DataAccessTest, ColumnsReadLaterAndDeletedRows) {
  int32_t h = open("SELECT Contacts.* FROM Contacts WHERE CompanyNum = 1;");
  EXPECT_EQ(db.readField(h, "DisplayName"), "Ann");
  EXPECT_EQ(db.readField(h, "Birthday"), "1970-03-05");
  db.moveNext(h);
  EXPECT_EQ(db.readField(h, "DefaultContact"), "True");
  EXPECT_EQ(db.readField(h, "DisplayName"), "Bob");
  db.closeRecordset(h);

  h = open("SELECT Contacts.* FROM Contacts WHERE CompanyNum = 1;");
  EXPECT_EQ(db.readField(h, "DisplayName"), "Ann");
  int32_t w = open("SELECT Contacts.* FROM Contacts;", kLockOptimistic);
  db.deleteCurrent(w);  // Ann, whom h still shows
  EXPECT_EQ(testing::errorOf([&] { db.readField(h, "CompanyNum"); }), kNoCurrentRecord);
  EXPECT_FALSE(db.isEOF(w));
  EXPECT_EQ(testing::errorOf([&] { db.readField(w, "DisplayName"); }), kNoCurrentRecord);
  db.moveNext(w);
  EXPECT_EQ(walk(w, "DisplayName"), (Rows{"Bob", "Cy", "Dee"}));
  EXPECT_EQ(query("SELECT count(*) FROM Contacts;")[0], "3");
}

TEST_P(DataAccessTest, TextLongerThanItsColumnIsRefusedNamingTableColumnAndSize) {
  int32_t h = companies(kLockOptimistic);
  db.writeField(h, "OfficeNumber", std::string(30, 'x'));
  RuntimeError e = testing::thrown([&] { db.writeField(h, "OfficeNumber", std::string(31, 'x')); });
  EXPECT_EQ(e.number(), kFieldTooSmall);
  EXPECT_NE(e.description().find("Companies.OfficeNumber"), std::string::npos);
  EXPECT_NE(e.description().find("30"), std::string::npos);
  // Sizes count characters, not bytes; memo columns have no limit.
  db.writeField(h, "OfficeNumber", std::string(15, 'x') + "ééééééééééééééé");
  db.writeField(h, "ContactNotes", std::string(100000, 'y'));
  EXPECT_EQ(db.readField(h, "ContactNotes").size(), 100000u);
}

TEST_P(DataAccessTest, NewRowsKnowTheirKeyBeforeTheyAreSaved) {
  int32_t h = companies(kLockOptimistic);
  db.addNew(h);
  EXPECT_FALSE(db.isEOF(h));
  std::string key = db.readField(h, "CompanyID");
  EXPECT_EQ(key, "6");
  db.setNewField(h, "CompanyName", "");
  db.setNewField(h, "CategoryNum", "3");
  EXPECT_EQ(db.readField(h, "CategoryNum"), "3");
  // A second recordset adding to the same table meanwhile gets the next key, and so does a
  // third whose key nobody asked for, saved before the others.
  int32_t other = companies(kLockOptimistic);
  db.addNew(other);
  EXPECT_EQ(db.readField(other, "CompanyID"), "7");
  int32_t third = companies(kLockOptimistic);
  db.addNew(third);
  db.saveNew(third);
  EXPECT_EQ(db.readField(third, "CompanyID"), "8");
  db.saveNew(h);
  EXPECT_EQ(db.readField(h, "CompanyID"), key);
  db.saveNew(other);
  EXPECT_EQ(
      query("SELECT CompanyID || ':' || coalesce(CompanyName, '-') FROM Companies ORDER BY 1;"),
      (Rows{"1:Zeta Ltd.", "2:acme Inc.", "5:Beta Co.", "6:", "7:-", "8:-"}));
  // Without a key handed out ahead, the insert numbers the row; detail tables take the key the
  // caller gives.
  int32_t category = open("SELECT Categories.* FROM Categories;", kLockOptimistic);
  addRow(category, {{"CategoryName", "Suppliers"}});
  EXPECT_EQ(db.readField(category, "CategoryID"),
            query("SELECT max(CategoryID) FROM Categories;")[0]);
  int32_t d = open("SELECT LawInfo.* FROM LawInfo;", kLockOptimistic);
  addRow(d, {{"LawInfoID", "42"}});
  EXPECT_EQ(db.readField(d, "LawInfoID"), "42");
  EXPECT_EQ(testing::errorOf([&] { db.saveNew(d); }), kNoCurrentRecord);
}

// Another synchronisation or the host's program never draws a key read before save again: not
// asking for one ahead inside a snapshot of its own, nor letting the insert number the row.
TEST_P(DataAccessTest, KeysHandedOutAheadAreTakenForOtherConnectionsToo) {
  if (jet()) GTEST_SKIP() << "Jet's numbers are promised within one connection only";
  auto owner = makeDataAccess();
  DataAccess& other = *owner;
  other.setDatabaseLocation(path);
  ASSERT_TRUE(other.openDatabase(2));
  int32_t theirs =
      other.openRecordset("SELECT Companies.* FROM Companies;", 1, kLockOptimistic, true, "");
  EXPECT_EQ(other.readField(theirs, "CompanyName"), "Zeta Ltd.");  // a snapshot of before
  int32_t h = companies(kLockOptimistic);
  db.addNew(h);
  EXPECT_EQ(db.readField(h, "CompanyID"), "6");
  other.addNew(theirs);
  EXPECT_EQ(other.readField(theirs, "CompanyID"), "7");
  exec("INSERT INTO Companies (CompanyName) VALUES ('Host Program');");
  other.saveNew(theirs);
  db.saveNew(h);
  other.closeRecordset(theirs);
  EXPECT_EQ(query("SELECT CompanyID FROM Companies ORDER BY CompanyID;"),
            (Rows{"1", "2", "5", "6", "7", "8"}));
  EXPECT_EQ(query("SELECT CompanyName FROM Companies WHERE CompanyID = 8;"),
            (Rows{"Host Program"}));
}

// Inside procedures and at their commit points alike; ending it leaves the database as it was,
// the auto-numbers included.
TEST_P(DataAccessTest, APreviewSeesItsWritesAndLeavesNothingBehind) {
  ASSERT_TRUE(db.beginPreview());
  {
    ErrorFrame procedure("test:preview");
    db.groupWrites(true);
    int32_t h = companies(kLockOptimistic);
    db.addNew(h);
    std::string key = db.readField(h, "CompanyID");
    EXPECT_EQ(key, "6");
    db.setNewField(h, "CompanyName", "Preview Ltd.");
    db.saveNew(h);
    ASSERT_TRUE(db.findFirst(h, "CompanyID", "1"));
    db.writeField(h, "CompanyName", "Changed");
    db.commitPoint();
    int32_t again = companies();
    ASSERT_TRUE(db.findFirst(again, "CompanyName", "preview ltd."));
    EXPECT_EQ(db.readField(again, "CompanyID"), key);
    ASSERT_TRUE(db.findFirst(again, "CompanyID", "1"));
    EXPECT_EQ(db.readField(again, "CompanyName"), "Changed");
  }
  db.idle();  // the outermost procedure returned: nothing is committed
  EXPECT_EQ(stored(), (Rows{"Zeta Ltd.", "acme Inc.", "Beta Co."}));
  db.endPreview();
  EXPECT_EQ(stored(), (Rows{"Zeta Ltd.", "acme Inc.", "Beta Co."}));
  int32_t h = companies(kLockOptimistic);
  EXPECT_FALSE(db.findFirst(h, "CompanyName", "Preview Ltd."));
  db.addNew(h);
  EXPECT_EQ(db.readField(h, "CompanyID"), "6");  // the number the preview showed is still free
  db.saveNew(h);
  EXPECT_EQ(query("SELECT count(*) FROM Companies;")[0], "4");
}

}  // namespace
}  // namespace dossync::sql
