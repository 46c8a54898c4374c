#include "core/synchronization.h"

#include <gtest/gtest.h>

#include <fstream>

#include "base/platform.h"
#include "core/apartment.h"
#include "test_support.h"

namespace dossync {
namespace {

class ComponentTest : public testing::ComponentFixture {
 protected:
  // The settings a scheme holds: "direction info list category profile password".
  static std::string scheme(clsOutlookSynchronization& s) {
    return std::to_string(s.SyncDirectionType()) + " " + std::to_string(s.SyncInformationType()) +
           " " + std::to_string(s.companyList()) + " " + s.OutlookCategory() + " [" + s.Profile() +
           "] [" + s.Password() + "]";
  }
};

TEST_F(ComponentTest, ConstructionSetsTheDefaultsAndResetRestoresTheSchemeSettingsOnly) {
  clsOutlookSynchronization d;
  EXPECT_EQ(scheme(d), "2 1 1 Business [] []");
  EXPECT_EQ(d.SchemeID(), -1);
  EXPECT_EQ(d.AppName(), "Dossiera");
  EXPECT_TRUE(d.showProgress() && d.DisplayLoginDialog() && d.OpenNewSession());
  EXPECT_FALSE(d.RefreshData() || d.closeOutlookWhenFinished() || d.FailedToInitializeFlag());
  EXPECT_EQ(d.MainDatabaseLocation() + d.DataFileUniqueID(), "");
  EXPECT_EQ(d.MDIForm(), nullptr);
  ASSERT_NE(d.companyCollection(), nullptr);
  EXPECT_TRUE(d.companyCollection()->isEmpty());

  d.setSyncDirectionType(3);
  d.setSyncInformationType(4);
  d.setCompanyList(2);
  d.setOutlookCategory("Clients");
  d.setProfile("work");
  d.setPassword("pw");
  d.setDisplayLoginDialog(false);
  d.setRefreshData(true);
  d.setShowProgress(false);
  d.setDataFileUniqueID("DF-1");
  d.setSchemeID(12);
  d.resetOutlookSchemeToDefault();
  EXPECT_EQ(scheme(d), "2 1 1 Business [] []");
  // Everything else stays, the scheme number included.
  EXPECT_EQ(d.SchemeID(), 12);
  EXPECT_FALSE(d.DisplayLoginDialog() || d.showProgress());
  EXPECT_TRUE(d.RefreshData());
  EXPECT_EQ(d.DataFileUniqueID(), "DF-1");
}

// (A missing file is quietly not open: cli_test's missing-host.)
TEST_F(ComponentTest, AnUnreadableHostFileShowsTheMessage) {
  std::ofstream(dir.file("junk.db")) << "this is not a database, just some text";
  component->setMainDatabaseLocation(dir.file("junk.db"));
  EXPECT_FALSE(component->mainDatabaseOpen());
  EXPECT_TRUE(component->FailedToInitializeFlag());
  ASSERT_EQ(messages->shown.size(), 1u);
  EXPECT_EQ(messages->shown[0].text,
            "The outlook synchronization was not able to access the companies database and "
            "needs to close.");
  EXPECT_EQ(messages->shown[0].style, 3);
  EXPECT_EQ(messages->shown[0].number, 101);
  EXPECT_EQ(messages->shown[0].owner.get(), component.get());
}

using BareComponentTest = testing::ApartmentTest;

TEST_F(BareComponentTest, WithoutServicesAFailureOnlySetsTheFlag) {
  clsOutlookSynchronization c;
  std::ofstream(dir.file("junk.db")) << "junk";
  EXPECT_FALSE(c.openMainDatabase(dir.file("junk.db")));
  EXPECT_TRUE(c.FailedToInitializeFlag());
}

// Every component of the thread shares the apartment's databases: the last opener wins.
TEST_F(ComponentTest, ADatabaseThatFailsToOpenLeavesNoEarlierOneAnswering) {
  testing::Host host(dir);
  ASSERT_TRUE(apartment().hostDb->isDatabaseOpen());
  ASSERT_TRUE(apartment().syncDb->isDatabaseOpen());
  auto first = apartment().hostDb;
  EXPECT_TRUE(component->openMainDatabase(host.hostPath));
  EXPECT_TRUE(apartment().hostDb->isDatabaseOpen());
  EXPECT_NE(apartment().hostDb, first);
  platform::registerClass(platform::kDataAccess, [] {
    auto db = std::make_shared<testing::FaultyDataAccess>();
    db->fails = [](const std::string& call) { return call == "openDatabase"; };
    return db;
  });
  clsOutlookSynchronization& c = *host.component;
  EXPECT_FALSE(c.openMainDatabase(host.hostPath));
  c.openOutlookSyncDatabase(host.syncPath);
  for (auto* db : {&apartment().hostDb, &apartment().syncDb}) {
    ASSERT_NE(*db, nullptr);
    EXPECT_FALSE((*db)->isDatabaseOpen());
  }
  EXPECT_TRUE(c.FailedToInitializeFlag());
  EXPECT_EQ(host.errors->errors.size(), 2u);
}

TEST(SelectionCollection, IndexWalkAndMembers) {
  SelectionCollection s;
  s.add("12", "", "");
  s.add("", "7", "");
  s.add("", "", "ENTRY-1");
  s.add("12", "", "");
  EXPECT_EQ(s.count(), 4);
  EXPECT_EQ(s.indexOf(12, 1), 0);
  EXPECT_EQ(s.indexOf(7, 1), -1);
  EXPECT_EQ(s.indexOf(7, 2), 1);
  EXPECT_EQ(s.indexOf("ENTRY-1", 3), 2);
  std::vector<std::string> walked;
  for (s.moveFirst(); !s.atEnd(); s.moveNext()) walked.push_back(s.currentItem());
  EXPECT_EQ(walked, (std::vector<std::string>{"12", "7", "ENTRY-1", "12"}));
  EXPECT_EQ(s.currentItem(), "");
  s.moveFirst();
  s.moveNext();
  EXPECT_EQ(s.member(2) + "|" + s.member(1), "7|");
  s.clear();
  EXPECT_TRUE(s.isEmpty());
  EXPECT_EQ(s.indexOf(12, 1), -1);
}

}  // namespace
}  // namespace dossync
