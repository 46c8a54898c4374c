#include "core/synchronization.h"

#include <gtest/gtest.h>

#include <fstream>

#include "core/apartment.h"
#include "core/platform.h"
#include "test_support.h"

namespace dossync {
namespace {

using testing::RecordingErrorService;
using testing::RecordingMessageBox;

class ComponentTest : public testing::ApartmentTest {
 protected:
  void attachServices(clsOutlookSynchronization& c) {
    c.setErrorClass(errors);
    c.setMsgboxClass(messages);
  }
  std::shared_ptr<RecordingErrorService> errors = std::make_shared<RecordingErrorService>();
  std::shared_ptr<RecordingMessageBox> messages = std::make_shared<RecordingMessageBox>();
};

TEST_F(ComponentTest, ConstructionSetsTheDefaults) {
  clsOutlookSynchronization c;
  EXPECT_EQ(c.SyncDirectionType(), syncFromDossieraToOutlook);
  EXPECT_EQ(c.SyncInformationType(), companyWithDefaultContact);
  EXPECT_EQ(c.companyList(), Dossiera);
  EXPECT_EQ(c.OutlookCategory(), "Business");
  EXPECT_EQ(c.SchemeID(), -1);
  EXPECT_EQ(c.AppName(), "Dossiera");
  EXPECT_TRUE(c.showProgress());
  EXPECT_TRUE(c.DisplayLoginDialog());
  EXPECT_TRUE(c.OpenNewSession());
  EXPECT_FALSE(c.RefreshData());
  EXPECT_FALSE(c.closeOutlookWhenFinished());
  EXPECT_FALSE(c.FailedToInitializeFlag());
  EXPECT_EQ(c.Profile(), "");
  EXPECT_EQ(c.MainDatabaseLocation(), "");
  EXPECT_EQ(c.MDIForm(), nullptr);
  ASSERT_NE(c.companyCollection(), nullptr);
  EXPECT_TRUE(c.companyCollection()->isEmpty());
  // The enumerations keep their published values and names.
  EXPECT_EQ(syncBothsWays, 1);
  EXPECT_EQ(syncFromOutlookToDossiera, 3);
  EXPECT_EQ(contactOnlyShowCompanyName, 4);
  EXPECT_EQ(AddressBook, 2);
}

TEST_F(ComponentTest, ResetRestoresTheSchemeSettingsOnly) {
  clsOutlookSynchronization c;
  c.setSyncDirectionType(3);
  c.setSyncInformationType(4);
  c.setCompanyList(2);
  c.setOutlookCategory("Clients");
  c.setProfile("work");
  c.setPassword("pw");
  c.setDisplayLoginDialog(false);
  c.setRefreshData(true);
  c.setShowProgress(false);
  c.setDataFileUniqueID("DF-1");
  c.setSchemeID(12);
  c.resetOutlookSchemeToDefault();
  EXPECT_EQ(c.SyncDirectionType(), 2);
  EXPECT_EQ(c.SyncInformationType(), 1);
  EXPECT_EQ(c.companyList(), 1);
  EXPECT_EQ(c.OutlookCategory(), "Business");
  EXPECT_EQ(c.Profile(), "");
  EXPECT_EQ(c.Password(), "");
  // Everything else stays, the scheme number included.
  EXPECT_EQ(c.SchemeID(), 12);
  EXPECT_FALSE(c.DisplayLoginDialog());
  EXPECT_TRUE(c.RefreshData());
  EXPECT_FALSE(c.showProgress());
  EXPECT_EQ(c.DataFileUniqueID(), "DF-1");
}

TEST_F(ComponentTest, MissingHostFileIsQuietlyNotOpen) {
  clsOutlookSynchronization c;
  attachServices(c);
  c.setMainDatabaseLocation(dir.file("absent.db"));
  EXPECT_FALSE(c.mainDatabaseOpen());
  EXPECT_FALSE(c.FailedToInitializeFlag());
  EXPECT_TRUE(messages->shown.empty());
  EXPECT_EQ(c.MainDatabaseLocation(), dir.file("absent.db"));
}

TEST_F(ComponentTest, UnreadableHostFileShowsTheMessageAndSetsTheFlag) {
  std::ofstream(dir.file("junk.db")) << "this is not a database, just some text";
  clsOutlookSynchronization c;
  attachServices(c);
  c.setMainDatabaseLocation(dir.file("junk.db"));
  EXPECT_FALSE(c.mainDatabaseOpen());
  EXPECT_TRUE(c.FailedToInitializeFlag());
  ASSERT_EQ(messages->shown.size(), 1u);
  EXPECT_EQ(messages->shown[0].text,
            "The outlook synchronization was not able to access the companies database and "
            "needs to close.");
  EXPECT_EQ(messages->shown[0].style, 3);
  EXPECT_EQ(messages->shown[0].number, 101);
  EXPECT_EQ(messages->shown[0].owner.get(), &c);
}

TEST_F(ComponentTest, HostDatabaseOpensThroughTheApartmentsDataAccessObject) {
  std::string host = testing::makeHostDatabase(dir);
  clsOutlookSynchronization c;
  attachServices(c);
  c.setMainDatabaseLocation(host);
  EXPECT_TRUE(c.mainDatabaseOpen());
  ASSERT_NE(apartment().hostDb, nullptr);
  EXPECT_TRUE(apartment().hostDb->isDatabaseOpen());
  EXPECT_NE(std::find(errors->entered.begin(), errors->entered.end(),
                      "kvoutlookdx.dll-clsOutlookSynchronization-openMainDatabase"),
            errors->entered.end());
  // A second component on the same thread shares the apartment: the last opener wins.
  clsOutlookSynchronization other;
  EXPECT_TRUE(other.openMainDatabase(host));
  EXPECT_TRUE(apartment().hostDb->isDatabaseOpen());
}

TEST_F(ComponentTest, ADatabaseThatFailsToOpenLeavesNoEarlierOneAnswering) {
  testing::Host host(dir);
  ASSERT_TRUE(apartment().hostDb->isDatabaseOpen());
  ASSERT_TRUE(apartment().syncDb->isDatabaseOpen());
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

TEST_F(ComponentTest, WithoutAnErrorServiceNothingIsRecordedAndNothingEscapes) {
  clsOutlookSynchronization c;
  std::ofstream(dir.file("junk.db")) << "junk";
  EXPECT_FALSE(c.openMainDatabase(dir.file("junk.db")));
  EXPECT_TRUE(c.FailedToInitializeFlag());  // no message box: the flag alone tells
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
  EXPECT_EQ(s.member(2), "7");
  EXPECT_EQ(s.member(1), "");
  s.clear();
  EXPECT_TRUE(s.isEmpty());
  EXPECT_EQ(s.indexOf(12, 1), -1);
}

}  // namespace
}  // namespace dossync
