// The ODBC engine over the SQLite ODBC driver. (Its data access object runs the shared suite of
// data_access_test.cpp.)
#include "backends/odbc/odbc_data_access.h"
#include "backends/sql/data_access.h"

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "core/apartment.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

namespace fs = std::filesystem;
using testing::querySql;

class OdbcEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!odbc::driverAvailable(odbc::Flavour::SQLite))
      GTEST_SKIP() << "The SQLite ODBC driver is not installed (scripts/deps.sh --test)";
  }
  testing::TempDir dir;
};

TEST_F(OdbcEngineTest, OpeningReportsWhatIsWrongWithTheFileNamingIt) {
  std::ofstream(dir.file("text.db")) << "definitely not a database file, only text ...";
  for (auto [file, number] :
       {std::pair{"none.db", kCannotOpenDatabase}, {"text.db", kNotADatabase}}) {
    RuntimeError e = testing::thrown([&] { odbc::OdbcEngine engine(dir.file(file)); });
    EXPECT_EQ(e.number(), number) << file;
    EXPECT_NE(e.description().find("'" + dir.file(file) + "'"), std::string::npos)
        << e.description();
  }
}

// Beyond ASCII and the 16-bit plane, long, and a parameter used twice: as the native engine has it.
TEST_F(OdbcEngineTest, TextIsStoredAndReadAsUtf8) {
  const std::string path = testing::makeHostDatabase(dir);
  const std::string name = "Ærø Café \xF0\x9F\x98\x80 ‘quoted’";
  const std::string longText(70000, 'z');
  {
    std::unique_ptr<sql::Database> db = odbc::openOdbc(path);
    sql::Statement insert(*db,
                          "INSERT INTO Companies (CompanyID, CompanyName, ContactNotes, City) "
                          "VALUES (?1, ?2, ?3, ?2 || '?');");
    insert.bind(1, int64_t{7});
    insert.bind(2, name);
    insert.bind(3, longText);
    EXPECT_FALSE(insert.step());
  }
  EXPECT_EQ(querySql(path,
                     "SELECT CompanyName || '|' || City || '|' || length(CompanyName) || "
                     "'|' || length(ContactNotes) FROM Companies;"),
            (std::vector<std::string>{name + "|" + name + "?|19|70000"}));
  testing::execSql(path, "UPDATE Companies SET City = 'Ørsted', CategoryNum = 12;");
  std::unique_ptr<sql::Database> db = odbc::openOdbc(path);
  sql::Statement read(*db, "SELECT City, ContactNotes, CategoryNum, CompanyName FROM Companies;");
  ASSERT_TRUE(read.step());
  EXPECT_EQ(read.column(0).s, "Ørsted");
  EXPECT_EQ(read.column(1).s, longText);
  EXPECT_EQ(read.column(2).type, sql::Stored::Int);
  EXPECT_EQ(read.column(2).i, 12);
  EXPECT_EQ(read.column(3).s, name);
  EXPECT_EQ(read.columnDeclType(3),
            querySql(path,
                     "SELECT type FROM pragma_table_info('Companies') WHERE name = "
                     "'CompanyName';")[0]);
}

TEST_F(OdbcEngineTest, AWriteWaitsForAnotherConnectionsLock) {
  const std::string path = testing::makeHostDatabase(dir);
  odbc::OdbcEngine engine(path);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE; INSERT INTO Categories (CategoryID) VALUES (1);",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  std::thread holder([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    sqlite3_exec(other, "COMMIT;", nullptr, nullptr, nullptr);
  });
  auto start = std::chrono::steady_clock::now();
  EXPECT_NO_THROW(engine.exec("INSERT INTO Categories (CategoryID) VALUES (2);"));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
  holder.join();
  sqlite3_close(other);
  EXPECT_EQ(querySql(path, "SELECT count(*) FROM Categories;"), (std::vector<std::string>{"2"}));
}

// The file's first bytes decide; only a file without a database's header goes by its name.
TEST(OdbcFlavourTest, TheFlavourIsTheHeadersTheNamesOnlyForOtherFiles) {
  testing::TempDir dir;
  using odbc::Flavour;
  const Flavour fresh = odbc::driverAvailable(Flavour::Access) ? Flavour::Access : Flavour::SQLite;
  std::ofstream(dir.file("jet.db")) << std::string("\0\1\0\0Standard Jet DB\0", 20);
  std::ofstream(dir.file("ace.x")) << std::string("\0\1\0\0Standard ACE DB\0", 20);
  std::ofstream(dir.file("other.mdb")) << "not a database at all";
  std::ofstream(dir.file("empty.mdb")).flush();
  testing::execSql(dir.file("sqlite.mdb"), "CREATE TABLE t (x);");
  // clang-format off
  const std::pair<const char*, Flavour> cases[] = {
      {"host.db", Flavour::SQLite},  {"jet.db", Flavour::Access},    {"ace.x", Flavour::Access},
      {"sqlite.mdb", Flavour::SQLite}, {"empty.mdb", Flavour::SQLite}, {"other.mdb", Flavour::Access},
      {"new.mdb", fresh},            {"Temp.mdb", fresh},            {"New.ACCDB", fresh}};
  // clang-format on
  for (const auto& [file, flavour] : cases)
    EXPECT_EQ(odbc::flavourOf(dir.file(file)), flavour) << file;
}

// A table without a key (the synchronisation database's of old), in Jet's SQL: one of two
// identical rows is not written at all, nor a row another connection changed.
TEST_F(OdbcEngineTest, JetRowsWithoutAKeyAreNamedByTheirValues) {
  const std::string path = dir.file("sync.db");
  testing::execSql(
      path,
      "CREATE TABLE OutlookSync (SyncID COUNTER, OutlookID VARCHAR(100), Seen BOOLEAN, "
      "DateLastSync DATETIME);"
      "INSERT INTO OutlookSync VALUES (1, 'a', 0, '2024-01-02 03:04:05'), "
      "(2, 'b', 1, NULL), (3, 'dup', 0, NULL), (3, 'dup', 0, NULL);");
  sql::DataAccess db([](const std::string& p) {
    return std::make_unique<odbc::OdbcEngine>(p, false, odbc::Flavour::SQLite, true);
  });
  db.setDatabaseLocation(path);
  ASSERT_TRUE(db.openDatabase(2)) << db.lastError();
  int32_t h = db.openRecordset("SELECT OutlookSync.* FROM OutlookSync;", 1, 3);
  ASSERT_TRUE(db.findFirst(h, "OutlookID", "a"));
  db.writeField(h, "OutlookID", "A");  // a change of case is a change
  db.writeField(h, "Seen", "True");
  db.writeField(h, "DateLastSync", "2025-06-07 08:09:10");
  db.addNew(h);
  EXPECT_EQ(db.readField(h, "SyncID"), "4");
  db.setNewField(h, "OutlookID", std::string(100, 'n'));
  db.saveNew(h);
  EXPECT_EQ(db.readField(h, "OutlookID"), std::string(100, 'n'));
  EXPECT_EQ(
      querySql(path,
               "SELECT SyncID || OutlookID || ifnull(Seen, '-') || "
               "ifnull(DateLastSync, '-') FROM OutlookSync WHERE SyncID IN (1, 4) "
               "ORDER BY SyncID;"),
      (std::vector<std::string>{"1A12025-06-07 08:09:10", "4" + std::string(100, 'n') + "--"}));

  ASSERT_TRUE(db.findFirst(h, "OutlookID", "dup"));  // one of two identical rows
  EXPECT_EQ(testing::errorOf([&] { db.writeField(h, "OutlookID", "one"); }), kNotUpdatable);
  testing::execSql(path, "UPDATE OutlookSync SET OutlookID = 'c' WHERE SyncID = 2;");
  ASSERT_TRUE(db.findFirst(h, "OutlookID", "b"));
  EXPECT_THROW(db.writeField(h, "OutlookID", "d"), RuntimeError);
  ASSERT_TRUE(db.findFirst(h, "OutlookID", "A"));
  db.deleteCurrent(h);
  EXPECT_EQ(querySql(path, "SELECT group_concat(OutlookID, ',') FROM OutlookSync;"),
            (std::vector<std::string>{"c,dup,dup," + std::string(100, 'n')}));
}

class OdbcSyncDatabaseTest : public testing::ComponentFixture {
 protected:
  void SetUp() override {
    ComponentFixture::SetUp();
    if (!odbc::driverAvailable(odbc::Flavour::SQLite)) GTEST_SKIP() << "No SQLite ODBC driver";
    odbc::registerDataAccess();
  }
  void open(const std::string& path) {
    renew();
    component->setSyncDatabaseLocation(path);
  }
};

// Named like an Access file, it is made as a SQLite file (through the temporary "Temp.mdb").
TEST_F(OdbcSyncDatabaseTest, IsMadeThroughTheDriverAndReopenedWithItsRows) {
  const std::string path = dir.file("OutlookSync.mdb");
  open(path);
  ASSERT_TRUE(component->syncDatabaseOpen());
  EXPECT_TRUE(errors->errors.empty());
  EXPECT_TRUE(messages->shown.empty());
  EXPECT_FALSE(fs::exists(dir.file("Temp.mdb")));
  EXPECT_EQ(odbc::flavourOf(path), odbc::Flavour::SQLite);
  EXPECT_EQ(querySql(path,
                     "SELECT group_concat(name, ',') FROM (SELECT name FROM sqlite_master WHERE "
                     "type = 'table' AND name LIKE 'Outlook%' ORDER BY name);"),
            (std::vector<std::string>{"OutlookScheme,OutlookSync"}));
  EXPECT_EQ(querySql(path, "PRAGMA application_id;"), (std::vector<std::string>{"1146311507"}));

  auto& db = apartment().syncDb;
  ASSERT_NE(dynamic_cast<odbc::OdbcDataAccess*>(db.get()), nullptr);
  int32_t h = db->openRecordset("SELECT OutlookScheme.* FROM OutlookScheme;", 1, 3);
  db->addNew(h);
  EXPECT_EQ(db->readField(h, "SchemeID"), "1");
  db->setNewField(h, "SchemeName", "Ærø");
  db->saveNew(h);
  db->closeRecordset(h);
  db->idle();

  open(path);
  ASSERT_TRUE(component->syncDatabaseOpen());
  EXPECT_TRUE(errors->errors.empty());
  EXPECT_EQ(querySql(path, "SELECT SchemeID || ':' || SchemeName FROM OutlookScheme;"),
            (std::vector<std::string>{"1:Ærø"}));
}

// A Jet file where there is no Access driver, a SQLite file where the SQLite driver is missing:
// message 101 names the drivers tried, and the component does not start.
TEST_F(OdbcSyncDatabaseTest, AFileWithoutItsDriverIsLeftAsItIs) {
  if (odbc::driverAvailable(odbc::Flavour::Access)) GTEST_SKIP() << "an Access driver is installed";
  struct {
    const char* file;
    const char* driver;  // set as the SQLite driver's name; nullptr: as installed
    const char* named;   // in the message
  } cases[] = {{"OutlookSync.mdb", nullptr, "Microsoft Access Driver (*.mdb)"},
               {"OutlookSync.db", "No Such SQLite Driver", "No Such SQLite Driver"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = dir.file(c.file);
    if (c.driver)
      testing::execSql(path, "CREATE TABLE OutlookScheme (SchemeName TEXT);");
    else
      std::ofstream(path, std::ios::binary) << std::string("\0\1\0\0Standard Jet DB\0", 20) + "x";
    const std::string before = testing::readFile(path);
    if (c.driver) setenv("DOSSYNC_ODBC_SQLITE_DRIVER", c.driver, 1);
    messages->shown.clear();
    open(path);
    unsetenv("DOSSYNC_ODBC_SQLITE_DRIVER");
    EXPECT_FALSE(component->syncDatabaseOpen());
    EXPECT_TRUE(component->FailedToInitializeFlag());
    ASSERT_EQ(messages->shown.size(), 1u);
    EXPECT_NE(messages->shown[0].text.find("not able to access the synchronization database"),
              std::string::npos);
    EXPECT_NE(messages->shown[0].text.find(c.named), std::string::npos) << messages->shown[0].text;
    EXPECT_EQ(messages->shown[0].number, 101);
    EXPECT_EQ(testing::readFile(path), before);
    EXPECT_FALSE(fs::exists(dir.file("Temp.mdb")));
  }
}

}  // namespace
}  // namespace dossync
