// The ODBC engine over the SQLite ODBC driver: what opening tells of a file, text beyond ASCII
// both ways, the flavour a file is given, and the synchronisation database made and reopened
// through the ODBC connection and catalog. (The data access object itself runs the shared
// suite of data_access_test.cpp.)
#include "backends/odbc/odbc_data_access.h"

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <chrono>
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

bool driverMissing() {
  return !odbc::driverInstalled(odbc::driverName(odbc::Flavour::SQLite));
}
#define SKIP_WITHOUT_DRIVER() \
  if (driverMissing())        \
  GTEST_SKIP() << "The SQLite ODBC driver is not installed (scripts/deps.sh --test)"

TEST(OdbcEngineTest, OpeningReportsWhatIsWrongWithTheFileNamingIt) {
  SKIP_WITHOUT_DRIVER();
  testing::TempDir dir;
  const std::string missing = dir.file("none.db");
  try {
    odbc::OdbcEngine engine(missing);
    FAIL() << "opened";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kCannotOpenDatabase);
    EXPECT_NE(e.description().find("'" + missing + "'"), std::string::npos) << e.description();
  }
  EXPECT_FALSE(fs::exists(missing));  // the driver would have made it

  const std::string text = dir.file("text.db");
  std::ofstream(text) << "definitely not a database file, only text ...";
  try {
    odbc::OdbcEngine engine(text);
    FAIL() << "opened";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kNotADatabase);
    EXPECT_NE(e.description().find("'" + text + "'"), std::string::npos) << e.description();
    EXPECT_NE(e.description().find("not a database"), std::string::npos) << e.description();
  }
  odbc::OdbcDataAccess db;
  db.setDatabaseLocation(text);
  EXPECT_FALSE(db.openDatabase(2));
  EXPECT_NE(db.lastError().find("text.db"), std::string::npos);
}

// Text beyond ASCII (and beyond the 16-bit plane), long text and a parameter used twice go in
// and come out as the native engine stores and reads them.
TEST(OdbcEngineTest, TextIsStoredAndReadAsUtf8) {
  SKIP_WITHOUT_DRIVER();
  testing::TempDir dir;
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

// A write waits while another connection holds the write lock, and goes ahead once it is let go.
TEST(OdbcEngineTest, AWriteWaitsForAnotherConnectionsLock) {
  SKIP_WITHOUT_DRIVER();
  testing::TempDir dir;
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

TEST(OdbcEngineTest, AccessOnlyForAccessFilesThatAreNotSqliteFiles) {
  testing::TempDir dir;
  using odbc::Flavour;
  EXPECT_EQ(odbc::flavourOf(dir.file("host.db")), Flavour::SQLite);
  EXPECT_EQ(odbc::flavourOf(dir.file("new.mdb")), Flavour::Access);
  EXPECT_EQ(odbc::flavourOf(dir.file("New.ACCDB")), Flavour::Access);
  EXPECT_EQ(odbc::flavourOf(dir.file("Temp.mdb")), Flavour::SQLite);  // made, then copied
  std::ofstream(dir.file("empty.mdb")).flush();
  EXPECT_EQ(odbc::flavourOf(dir.file("empty.mdb")), Flavour::SQLite);
  testing::execSql(dir.file("sqlite.mdb"), "CREATE TABLE t (x);");
  EXPECT_EQ(odbc::flavourOf(dir.file("sqlite.mdb")), Flavour::SQLite);
  std::ofstream(dir.file("jet.mdb")) << std::string("\0\1\0\0Standard Jet DB\0", 20);
  EXPECT_EQ(odbc::flavourOf(dir.file("jet.mdb")), Flavour::Access);
}

class OdbcSyncDatabaseTest : public testing::ApartmentTest {
 protected:
  void SetUp() override {
    ApartmentTest::SetUp();
    if (driverMissing()) GTEST_SKIP() << "The SQLite ODBC driver is not installed";
    odbc::registerDataAccess();
    component = std::make_unique<clsOutlookSynchronization>();
    component->setErrorClass(errors);
    component->setMsgboxClass(messages);
  }
  std::shared_ptr<testing::RecordingErrorService> errors =
      std::make_shared<testing::RecordingErrorService>();
  std::shared_ptr<testing::RecordingMessageBox> messages =
      std::make_shared<testing::RecordingMessageBox>();
  std::unique_ptr<clsOutlookSynchronization> component;
};

// A synchronisation database named like an Access file is made as a SQLite file through the
// temporary "Temp.mdb" on a machine with the SQLite driver, opened through ODBC, and kept with
// its rows when opened again.
TEST_F(OdbcSyncDatabaseTest, IsMadeThroughTheDriverAndReopenedWithItsRows) {
  const std::string path = dir.file("OutlookSync.mdb");
  component->setSyncDatabaseLocation(path);
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

  component = std::make_unique<clsOutlookSynchronization>();
  component->setErrorClass(errors);
  component->setMsgboxClass(messages);
  component->setSyncDatabaseLocation(path);
  ASSERT_TRUE(component->syncDatabaseOpen());
  EXPECT_TRUE(errors->errors.empty());
  EXPECT_EQ(querySql(path, "SELECT SchemeID || ':' || SchemeName FROM OutlookScheme;"),
            (std::vector<std::string>{"1:Ærø"}));
}

}  // namespace
}  // namespace dossync
