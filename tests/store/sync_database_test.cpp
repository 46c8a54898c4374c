#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

namespace fs = std::filesystem;
using testing::querySql;

class SyncDatabaseTest : public testing::ComponentFixture {
 protected:
  // The table's columns: "name type, ...".
  std::string columns(const std::string& table) {
    return querySql(
        path, "SELECT group_concat(name || ' ' || type, ', ') FROM pragma_table_info('" + table +
                  "');")[0];
  }
  std::string path = dir.file("sync.db");
};

// A missing file is made with both tables, through the temporary file an earlier run may have
// left behind.
TEST_F(SyncDatabaseTest, AMissingOrBrokenFileIsMadeAGoodOneKeptWithItsRows) {
  std::ofstream(dir.file("Temp.mdb")) << "left over from an earlier run";
  component->setSyncDatabaseLocation(path);
  EXPECT_TRUE(component->syncDatabaseOpen());
  EXPECT_FALSE(component->FailedToInitializeFlag());
  EXPECT_FALSE(fs::exists(dir.file("Temp.mdb")));
  EXPECT_EQ(columns("OutlookScheme"),
            "SchemeID INTEGER, DataFileID VARCHAR(20), SchemeName VARCHAR(100), CompanyListType "
            "INTEGER, SyncType INTEGER, InfoType INTEGER, ContactsCategory VARCHAR(100), "
            "ProfileName VARCHAR(100), ProfilePassword VARCHAR(100), DateLastSync DATETIME");
  EXPECT_EQ(columns("OutlookSync"),
            "SyncID INTEGER, SchemeNum INTEGER, DataFileID VARCHAR(20), CompanyNum INTEGER, "
            "ContactNum INTEGER, OutlookID VARCHAR(255), OutlookCategory VARCHAR(100), "
            "DateLastSync DATETIME");
  EXPECT_TRUE(errors->errors.empty());
  EXPECT_TRUE(messages->shown.empty());

  // A good file is kept with its rows; a file that is not a database is replaced.
  testing::execSql(path, "INSERT INTO OutlookScheme (SchemeName) VALUES ('kept');");
  component->setSyncDatabaseLocation(path);
  EXPECT_TRUE(component->syncDatabaseOpen());
  EXPECT_EQ(querySql(path, "SELECT SchemeName FROM OutlookScheme;"),
            (std::vector<std::string>{"kept"}));

  std::string junk = dir.file("junk.db");
  std::ofstream(junk) << "garbage garbage garbage garbage garbage garbage garbage garbage";
  EXPECT_FALSE(component->verifySyncDatabase(dir.file("absent.db")));
  EXPECT_FALSE(component->verifySyncDatabase(junk));
  EXPECT_TRUE(fs::exists(junk));  // verification itself deletes nothing
  component->setSyncDatabaseLocation(junk);
  EXPECT_TRUE(component->syncDatabaseOpen());
  EXPECT_FALSE(component->FailedToInitializeFlag());
  EXPECT_EQ(querySql(junk, "SELECT count(*) FROM OutlookSync;"), (std::vector<std::string>{"0"}));
}

// With one table there, appending it fails: Resume goes on to add the other table, Leave stops
// there; either way the usable file is kept and opened rather than replaced.
TEST_F(SyncDatabaseTest, AMissingTableIsAddedOnlyWhenTheServiceResumesPastTheExistingOne) {
  for (int32_t action : {kActionResume, kActionLeave}) {
    SCOPED_TRACE(action);
    fs::remove(path);
    errors->errors.clear();
    testing::execSql(path,
                     "CREATE TABLE OutlookScheme (SchemeID INTEGER PRIMARY KEY AUTOINCREMENT);");
    errors->action = action;
    component->setSyncDatabaseLocation(path);
    EXPECT_TRUE(component->syncDatabaseOpen());
    ASSERT_EQ(errors->errors.size(), 1u);
    EXPECT_EQ(errors->errors[0].number(), kTableExists);
    EXPECT_EQ(columns("OutlookSync").empty(), action == kActionLeave);
  }
}

TEST_F(SyncDatabaseTest, ADatabaseThatCannotBeCreatedOrOpenedShowsTheWizardMessage) {
  component->setSyncDatabaseLocation(dir.file("no/such/folder/sync.db"));
  EXPECT_TRUE(component->FailedToInitializeFlag());
  ASSERT_FALSE(messages->shown.empty());
  EXPECT_EQ(messages->shown.back().text,
            "The outlook synchronization wizard was not able to access the synchronization "
            "database and needs to close.");
  EXPECT_EQ(messages->shown.back().style, 3);
  EXPECT_EQ(messages->shown.back().number, 101);
}

}  // namespace
}  // namespace dossync
