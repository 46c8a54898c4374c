#include <gtest/gtest.h>

#include <algorithm>

#include "base/platform.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

using testing::querySql;

class DriverTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    sql("INSERT INTO Companies (CompanyID, CompanyName, OfficeNumber) VALUES "
        "(1, 'Mapped Chosen', '1'), (2, 'Mapped Left', '2'), (3, 'Named Chosen', '3'),"
        "(4, 'Named Left', '4'), (5, 'New Chosen', '5'), (6, 'New Left', '6');"
        "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, DefaultContact) "
        "VALUES (10, 1, 'Ann', 1), (11, NULL, 'Bob', 0);");
    c().setShowProgress(false);
    c().setDataFileUniqueID("DF");
    c().StartOutlook();
    mapped1 = put("Old One");
    mapped2 = put("Old Two");
    named3 = put("Named Chosen");
    named4 = put("Named Left");
    c().saveCompanyOutlookID(1, mapped1);
    c().saveCompanyOutlookID(2, mapped2);
  }
  std::string put(const std::string& fileAs) {
    auto setNote = [](outlook::ContactItem& i) { i.setBody("kept note"); };
    return testing::saveContact(*c().outlookApplication(), fileAs, setNote)->EntryID();
  }
  outlook::ContactItemPtr item(const std::string& entryID) {
    auto folder = c().contactsFolder();
    return std::dynamic_pointer_cast<outlook::ContactItem>(
        c().outlookNameSpace()->GetItemFromID(entryID, folder->StoreID()));
  }
  void select(std::initializer_list<int> companies) {
    for (int n : companies) c().companyCollection()->add(std::to_string(n), "", "");
  }
  std::string mapped(int company) {
    auto r = querySql(host->syncPath, "SELECT OutlookID FROM OutlookSync WHERE CompanyNum = " +
                                          std::to_string(company) + ";");
    return r.size() == 1 ? r[0] : "<" + std::to_string(r.size()) + " rows>";
  }
  int itemCount() { return c().contactsFolder()->Items()->Count(); }

  std::string mapped1, mapped2, named3, named4;
};

TEST_F(DriverTest, TheDecisionTable) {
  select({1, 3, 5});
  EXPECT_FALSE(c().Synchronize());  // never True, even after a full run
  // Mapped or found by name, chosen: the paired item is updated (what the transfer does not
  // write survives); not chosen: paired, untouched. New and chosen: a new item; not chosen:
  // paired with nothing.
  std::string created = mapped(5);
  ASSERT_NE(item(created), nullptr);
  EXPECT_EQ(mapped(1) + mapped(2) + mapped(3) + mapped(4) + mapped(6),
            mapped1 + mapped2 + named3 + named4);
  EXPECT_EQ(item(mapped1)->FileAs() + "|" + item(mapped1)->Body() + "|" +
                item(mapped2)->CompanyName() + "|" + item(named3)->BusinessTelephoneNumber() + "|" +
                item(named4)->BusinessTelephoneNumber() + "|" + item(created)->CompanyName(),
            "Mapped Chosen|kept note||3||New Chosen");
  EXPECT_EQ(itemCount(), 5);
  EXPECT_EQ(c().counters().rowsWalked, 6);
  EXPECT_EQ(c().counters().itemsCreated, 1);
  EXPECT_EQ(c().counters().itemsUpdated, 2);
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(DriverTest, AnEmptySelectionAndDirectionsAndInformationTypesThatDoNothing) {
  c().StopOutlook();  // an empty selection stops before any table, but Outlook is started
  c().Synchronize();
  EXPECT_NE(c().outlookNameSpace(), nullptr);
  EXPECT_EQ(c().counters().rowsWalked, 0);
  auto rowsBefore = querySql(host->syncPath, "SELECT count(*) FROM OutlookSync;");
  EXPECT_EQ(rowsBefore[0], "2");
  select({1, 2, 3, 4, 5, 6});
  for (auto [direction, info] : std::vector<std::pair<int, int>>{{1, 1}, {2, 3}, {2, 4}, {2, 9}}) {
    c().setSyncDirectionType(direction);
    c().setSyncInformationType(info);
    c().Synchronize();
    EXPECT_EQ(itemCount(), 4) << direction << "/" << info;
    EXPECT_EQ(querySql(host->syncPath, "SELECT count(*) FROM OutlookSync;"), rowsBefore);
  }
}

TEST_F(DriverTest, ProgressRunsUnderTheDialogAndMayPassItsMaximum) {
  auto dialog = testing::registerRecordingProgress();
  auto window = std::make_shared<Object>();
  c().setMDIForm(window);
  c().setShowProgress(true);
  select({5});
  c().Synchronize();
  // Shown over the host's window before the first record, closed after the last.
  ASSERT_FALSE(dialog->calls.empty());
  EXPECT_EQ(dialog->calls.back(), "close");
  EXPECT_EQ(std::count(dialog->calls.begin(), dialog->calls.end(), "show"), 1);
  EXPECT_EQ(dialog->owner(), window);
  // The maximum is the one selected record; the value moves once per row of the table.
  EXPECT_EQ(std::to_string(dialog->maximum()) + "/" + std::to_string(dialog->value()), "1/6");
  EXPECT_EQ(dialog->statuses, (std::vector<std::string>{"Synchronizing New Chosen"}));
  EXPECT_EQ(c().progressDialog(), nullptr);  // released afterwards
  EXPECT_NE(mapped(5), "");
  EXPECT_TRUE(errors().errors.empty()) << errors().errors[0].description();
}

TEST_F(DriverTest, TheDialogOutlivesTheRunThatLetsGoOfItWhileItShows) {
  // Only the component holds the dialog: the run releases it at its end, inside show().
  std::weak_ptr<testing::RecordingProgress> seen;
  platform::registerClass(kProgressDialogClass, [&seen] {
    auto dialog = std::make_shared<testing::RecordingProgress>();
    seen = dialog;
    return dialog;
  });
  c().setShowProgress(true);
  select({5});
  c().Synchronize();
  EXPECT_TRUE(seen.expired());
  EXPECT_NE(mapped(5), "");
}

TEST_F(DriverTest, AMappingThatCannotBeReadLeavesTheRowAndMakesNoItem) {
  auto sync = testing::installFaulty(apartment().syncDb, host->syncPath);
  sync->fails = [](const std::string& call) { return call == "readField OutlookID"; };
  select({1, 5});
  c().Synchronize();
  ASSERT_EQ(errors().errors.size(), 2u);  // companies 1 and 2 have mapping rows
  EXPECT_EQ(mapped(1) + mapped(2), mapped1 + mapped2);
  EXPECT_NE(mapped(5), "");   // an unmapped company is still transferred
  EXPECT_EQ(itemCount(), 5);  // and it is the only new item
}

TEST_F(DriverTest, AWalkWhoseEndCannotBeToldStopsInsideItsOwnFrame) {
  errors().action = kActionResume;
  auto db = testing::installFaulty(apartment().hostDb, host->hostPath);
  db->fails = [](const std::string& call) { return call == "isEOF"; };
  select({1});
  EXPECT_NO_THROW(c().SynchronizeContacts());
  ASSERT_EQ(errors().errors.size(), 1u);
  EXPECT_EQ(errors().errorLocations[0],
            "kvoutlookdx.dll-clsOutlookSynchronization-SynchronizeContacts");
  EXPECT_EQ(c().counters().rowsWalked, 0);
}

// The second company's e-mail fails after its rows were added: no client without its rows, no
// pairing of it. The error service hears the error once; the counts are of what was kept.
TEST_F(DriverTest, ARecordThatFailsIsUndoneInBothDatabasesAndCountedAsFailed) {
  errors().action = kActionResume;
  auto person = [&](const std::string& name) {
    return testing::saveContact(*c().outlookApplication(), name,
                                [&](outlook::ContactItem& i) {
                                  i.setCompanyName(name + " Inc.");
                                  i.setFullName(name);
                                })
        ->EntryID();
  };
  std::string good = person("Good Person"), broken = person("Broken Person");
  int emails = 0;
  apartment().hostDb = std::make_shared<testing::FaultyDataAccess>(
      apartment().hostDb,
      [&](const auto& call) { return call == "writeField Email" && ++emails == 2; });
  c().setSyncDirectionType(syncFromOutlookToDossiera);
  c().setPairCreatedCompanies(true);
  c().companyCollection()->add("", "", good);
  c().companyCollection()->add("", "", broken);
  c().Synchronize();
  ASSERT_EQ(errors().errors.size(), 1u);
  auto paired = [&](const std::string& sql) { return querySql(host->syncPath, sql)[0]; };
  EXPECT_EQ(one("SELECT group_concat(CompanyName) FROM Companies WHERE CompanyID > 6;"),
            "Good Person Inc.");
  EXPECT_EQ(one("SELECT count(*) FROM ClientData;"), "1");
  EXPECT_EQ(one("SELECT count(*) FROM Contacts WHERE CompanyNum NOT IN (SELECT CompanyID FROM "
                "Companies);"),
            "0");
  EXPECT_EQ(paired("SELECT count(*) FROM OutlookSync WHERE OutlookID = '" + broken + "';"), "0");
  EXPECT_EQ(paired("SELECT CompanyNum FROM OutlookSync WHERE OutlookID = '" + good + "';"),
            one("SELECT max(CompanyID) FROM Companies;"));
  const auto& n = c().counters();
  EXPECT_EQ(n.companiesCreated, 1);
  EXPECT_EQ(n.mappingsSaved, 1);
  EXPECT_EQ(n.recordsFailed, 1);
  EXPECT_EQ(n.rowsWalked, 2);
}

}  // namespace
}  // namespace dossync
