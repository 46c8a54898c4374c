// "Both ways", offered by a host that can run direction 1: the form runs the owner's direction
// 1 without a selection, maps the information types, writes the conflict rule through, and a
// scheme saved with it opens again with it (SyncType 1, no OutlookSync rows, the rule kept in
// the host's scheme settings). Without the offer the form is the component's wizard (its own
// tests).
#include "app_wizard/scheme_secrets.h"
#include "wizard_fixture.h"

namespace dossync {
namespace {

class BothWaysTest : public testing::WizardTest {
 protected:
  void SetUp() override {
    WizardTest::SetUp();
    settings = app::makeSchemeSettingsFile(dir.file("wizard-schemes.ini"));
    offer();
    // What the run would see: direction, information type and the rule last written through.
    c().setBothWaysRunner([this](clsOutlookSynchronization& o) {
      runs.push_back(std::to_string(o.SyncDirectionType()) + "|" +
                     std::to_string(o.SyncInformationType()) + "|" +
                     (keepOutlook ? "outlook" : "host"));
    });
  }
  void offer() {
    form->offerBothWays({[this](bool outlook) { keepOutlook = outlook; }, settings});
  }
  std::shared_ptr<wizard::ISchemeSettings> settings;
  bool keepOutlook = false;
  std::vector<std::string> runs;
};

TEST_F(BothWaysTest, ChosenItNeedsNoSelectionRunsDirectionOneAndMapsTheInformationTypes) {
  start();
  ASSERT_TRUE(d->click("cmdAdvancedOptions"));
  ASSERT_TRUE(d->click("optInfoType", 2));
  ASSERT_TRUE(d->click("cmdNav", 2));
  // Both ways has no "Company Information Only": the company with its contact instead.
  ASSERT_TRUE(d->click("optSynchDirection", 1));
  EXPECT_EQ(
      std::to_string(c().SyncDirectionType()) + "|" + std::to_string(c().SyncInformationType()),
      "1|1");
  ASSERT_TRUE(d->click("cmdNav", 3));  // a note instead of the tree
  EXPECT_TRUE(d->canUse("lblBothWays") && !d->canUse("tvwContacts"));
  ASSERT_TRUE(d->click("cmdNav", 2));
  ASSERT_TRUE(d->click("cmdAdvancedOptions"));
  EXPECT_FALSE(d->canUse("optInfoType", 2) || d->canUse("chkPairCreated"));
  ASSERT_TRUE(d->click("optInfoType", 4));
  EXPECT_EQ(c().SyncInformationType(), 7);  // the host's contacts
  ASSERT_TRUE(d->click("optConflict", 2));

  // A one-way direction gives the contact option its own meaning back, and the tree.
  ASSERT_TRUE(d->click("cmdNav", 2));
  ASSERT_TRUE(d->click("optSynchDirection", 2));
  EXPECT_EQ(c().SyncInformationType(), 4);
  ASSERT_TRUE(d->click("cmdNav", 3));
  EXPECT_TRUE(d->canUse("tvwContacts") && !d->canUse("lblBothWays"));
  ASSERT_TRUE(d->click("cmdNav", 2));

  ASSERT_TRUE(d->click("optSynchDirection", 1));
  ASSERT_TRUE(d->click("cmdAdvancedOptions"));
  ASSERT_TRUE(d->click("cmdNav", 4));  // with nothing selected
  EXPECT_TRUE(shown().empty());
  EXPECT_EQ(runs, (std::vector<std::string>{"1|7|outlook"}));
}

TEST_F(BothWaysTest, ASchemeSavedWithItOpensAgainWithItsRuleAndWithoutRows) {
  // A one-way scheme of the same name, with a row, that the both-ways one replaces.
  testing::execSql(host->syncPath,
                   "INSERT INTO OutlookScheme (SchemeID, SchemeName, SyncType, InfoType) VALUES "
                   "(6, 'Replaced', 2, 1);"
                   "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (6, 10);");
  host->messages->answer = true;
  start();
  ASSERT_TRUE(d->click("cmdNav", 3));
  ASSERT_TRUE(d->tick("Company:10"));  // a selection made before choosing both ways
  ASSERT_TRUE(d->click("cmdNav", 2));
  ASSERT_TRUE(d->click("optSynchDirection", 1));
  ASSERT_TRUE(d->click("cmdAdvancedOptions"));
  ASSERT_TRUE(d->click("optInfoType", 3));
  ASSERT_TRUE(d->click("optConflict", 2));
  ASSERT_TRUE(d->click("cmdNav", 2));
  ASSERT_TRUE(d->click("cmdNav", 3));
  ASSERT_TRUE(d->click("cmdNav", 3));
  for (const char* name : {"New", "Replaced"}) {
    ASSERT_TRUE(d->type("txtSaveName", name));
    ASSERT_TRUE(d->click("cmdSaveScheme"));
  }
  EXPECT_EQ(q("SELECT SchemeName || '|' || SyncType || '|' || InfoType FROM OutlookScheme "
              "ORDER BY SchemeID;"),
            (std::vector<std::string>{"Replaced|1|3", "New|1|3"}));
  EXPECT_EQ(q("SELECT COUNT(*) FROM OutlookSync;"), (std::vector<std::string>{"0"}));
  std::string id = q("SELECT SchemeID FROM OutlookScheme WHERE SchemeName = 'New';")[0];
  EXPECT_EQ(settings->lookup(c().SyncDatabaseLocation(), std::stoi(id), "conflict"), "outlook");
  EXPECT_EQ(settings->lookup(c().SyncDatabaseLocation(), 6, "conflict"), "outlook");
  d->close();

  // A fresh wizard, its owner reset to the defaults. The replaced scheme has its DataFileID
  // and loads whole; the new one has none, so its other settings stay as they are, but its
  // direction and rule come all the same.
  form = std::make_shared<wizard::HeadlessWizard>();
  d = std::make_unique<wizard::WizardDriver>(*form);
  offer();
  start();
  form->resetScheme();
  EXPECT_EQ(c().SyncDirectionType(), 2);
  EXPECT_FALSE(keepOutlook);  // reset: the practice's value
  ASSERT_TRUE(d->pick("Replaced"));
  EXPECT_TRUE(d->value("optSynchDirection", 1) && d->value("optInfoType", 3));
  EXPECT_EQ(c().SyncDirectionType(), 1);
  EXPECT_EQ(c().SyncInformationType(), 7);
  EXPECT_TRUE(d->value("optConflict", 2));
  EXPECT_TRUE(keepOutlook);
  form->resetScheme();
  ASSERT_TRUE(d->pick("New"));
  EXPECT_EQ(c().SyncDirectionType(), 1);
  EXPECT_EQ(c().SyncInformationType(), 1);
  EXPECT_TRUE(keepOutlook);
  EXPECT_TRUE(host->errors->errors.empty());

  ASSERT_TRUE(d->pick("New"));
  ASSERT_TRUE(d->click("cmdDeleteScheme"));
  EXPECT_EQ(settings->lookup(c().SyncDatabaseLocation(), std::stoi(id), "conflict"), std::nullopt);
  EXPECT_FALSE(keepOutlook);
}

}  // namespace
}  // namespace dossync
