// Saved schemes: saving (new, replaced with No and Yes), loading settings and items for each
// direction, the never-ending load of direction 1 (bounded), deleting and resetting; the
// password kept out of the database when the host has a secret store; "Both ways" (below).
#include "wizard_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <map>

#include "app_wizard/scheme_secrets.h"

namespace dossync {
namespace {

using testing::execSql;

class SchemeTest : public testing::WizardTest {
 protected:
  void save(const std::string& name) {
    ASSERT_TRUE(d->type("txtSaveName", name));
    ASSERT_TRUE(d->click("cmdSaveScheme"));
  }
  // Each OutlookSync row: "scheme:company|contact|Outlook ID".
  std::vector<std::string> syncRows() {
    return q(
        "SELECT SchemeNum || ':' || IFNULL(CompanyNum, '') || '|' || IFNULL(ContactNum, '') "
        "|| '|' || IFNULL(OutlookID, '') FROM OutlookSync ORDER BY SyncID;");
  }
};

TEST_F(SchemeTest, SavingANewSchemeWritesTheFormsSettingsWithoutDataFileAndOneRowPerEntry) {
  c().setProfile("ignored: the text boxes are saved");
  start();
  // Contacts: a ticked company selects its contacts.
  ASSERT_TRUE(user({"cmdAdvancedOptions", "optInfoType(3)"}));
  form->control("txtProfileName").text = "Office";
  form->control("txtPassword").text = "pw";
  form->control("txtContactsCategory").text = "Clients";
  ASSERT_TRUE(user({"cmdNav(2)", "cmdNav(3)", "Company:10", "cmdNav(3)"}));
  selection().add("12", "", "");
  selection().add("", "", "X");
  save("Monthly");
  EXPECT_TRUE(form->schemeSaved());
  EXPECT_EQ(q("SELECT SchemeName || '|' || IFNULL(DataFileID, '<null>') || '|' || CompanyListType "
              "|| '|' || ContactsCategory || '|' || ProfileName || '|' || ProfilePassword || '|' "
              "|| InfoType || '|' || SyncType FROM OutlookScheme;"),
            (std::vector<std::string>{"Monthly|<null>|2|Clients|Office|pw|3|2"}));
  std::string id = q("SELECT SchemeID FROM OutlookScheme;")[0];
  EXPECT_EQ(syncRows(),
            (std::vector<std::string>{id + ":|20|", id + ":|21|", id + ":12||", id + ":||X"}));
  EXPECT_EQ(c().SchemeID(), -1);  // saving never changes the owner

  // The Save button gaining the focus again clears the saved mark.
  ASSERT_TRUE(d->click("txtSaveName"));
  EXPECT_TRUE(form->schemeSaved());
  form->userFocus(&form->control("cmdSaveScheme"));
  EXPECT_FALSE(form->schemeSaved());
}

TEST_F(SchemeTest, SavingNeedsANameAndReplacingAsksWhereNoWritesNothingAndYesAddsBeside) {
  start();
  ASSERT_TRUE(user({"cmdNav(3)", "Company:12", "cmdNav(3)"}));
  save("");
  EXPECT_TRUE(q("SELECT * FROM OutlookScheme;").empty());
  save("Monthly");
  std::string id = q("SELECT SchemeID FROM OutlookScheme;")[0];

  // Names compare without regard to case.
  host->messages->answer = false;
  form->control("txtContactsCategory").text = "Changed";
  save("monthly");
  ASSERT_TRUE(shown().back().question);
  EXPECT_EQ(q("SELECT IFNULL(ContactsCategory, '') FROM OutlookScheme;")[0], "");
  EXPECT_EQ(syncRows().size(), 1u);

  host->messages->answer = true;
  save("MONTHLY");
  EXPECT_EQ(
      q("SELECT SchemeID || '|' || DataFileID || '|' || ContactsCategory FROM OutlookScheme;"),
      (std::vector<std::string>{id + "|DF1|Changed"}));
  // The same selection saved twice under one name: its rows are doubled.
  EXPECT_EQ(syncRows(), (std::vector<std::string>{id + ":12||", id + ":12||"}));
}

class SchemeLoadTest : public SchemeTest {
 protected:
  // A scheme row and its OutlookSync rows, then the list as Delete leaves it.
  void scheme(int id, const std::string& name, const std::string& dataFile, int syncType,
              int infoType, const std::string& rows) {
    execSql(host->syncPath,
            "INSERT INTO OutlookScheme (SchemeID, SchemeName, DataFileID, CompanyListType, "
            "SyncType, InfoType, ContactsCategory, ProfileName, ProfilePassword) VALUES (" +
                std::to_string(id) + ", '" + name + "', " + dataFile + ", 1, " +
                std::to_string(syncType) + ", " + std::to_string(infoType) +
                ", 'Loaded', 'Prof', 'Pass');" + rows);
  }
  void openList() {
    start();
    form->resetScheme();
  }
  // The owner's scheme settings: "scheme|direction|information|list|category|profile|password".
  std::string settings() {
    return std::to_string(c().SchemeID()) + "|" + std::to_string(c().SyncDirectionType()) + "|" +
           std::to_string(c().SyncInformationType()) + "|" + std::to_string(c().companyList()) +
           "|" + c().OutlookCategory() + "|" + c().Profile() + "|" + c().Password();
  }
};

TEST_F(SchemeLoadTest, PickingAHostSchemeLoadsItsSettingsAndItems) {
  scheme(5, "Contacts", "'DF1'", 2, 3,
         "INSERT INTO OutlookSync (SchemeNum, CompanyNum, ContactNum, OutlookID) VALUES "
         "(5, 12, NULL, NULL), (5, NULL, 22, NULL), (5, NULL, NULL, 'X'), (6, 10, NULL, NULL);");
  openList();
  c().setCompanyList(AddressBook);
  ASSERT_TRUE(d->pick("Contacts"));
  EXPECT_EQ(settings(), "5|2|3|1|Loaded|Prof|Pass");
  EXPECT_EQ(d->text("txtSaveName") + "|" + d->text("txtContactsCategory"), "Contacts|Loaded");
  EXPECT_TRUE(d->value("optInfoType", 3) && d->value("optSynchDirection", 2));
  // Company rows give member 1, contact rows member 2; a row with neither adds nothing.
  EXPECT_EQ(selection().entries(),
            (std::vector<SelectionCollection::Entry>{{"12", "", ""}, {"", "22", ""}}));

  // The marks are applied when step 1 is next entered: shown clients with their contacts.
  ASSERT_TRUE(d->click("cmdNav", 3));
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Contact:22"}));
}

// (One with no data file at all: BothWaysTest.)
TEST_F(SchemeLoadTest, ASchemeOfAnotherDataFileLoadsItsItemsButNotItsSettings) {
  scheme(8, "Foreign", "'OTHER'", 2, 2,
         "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (8, 13);");
  openList();
  ASSERT_TRUE(d->pick("Foreign"));
  EXPECT_EQ(settings(), "8|2|1|1|Business||");
  EXPECT_EQ(members(1), (std::vector<std::string>{"13"}));
}

// Counts end-of-rows tests not followed by a move and fails past a bound, so that a
// never-ending reading loop cannot hang the test.
class BoundedDataAccess : public testing::ForwardingDataAccess {
 public:
  using ForwardingDataAccess::ForwardingDataAccess;
  int64_t spins = 0;

 protected:
  void before(const char* call, const std::string&) override {
    if (std::string(call) == "moveNext") spins = 0;
    if (std::string(call) == "isEOF" && ++spins > 100000)
      throw RuntimeError(kOutOfMemory, "bound reached");
  }
};

TEST_F(SchemeLoadTest, ASchemeLoadedWithDirectionOneNeverLeavesItsReadingLoop) {
  scheme(4, "Both ways", "'DF1'", 1, 1,
         "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (4, 12);");
  scheme(3, "Both ways, no rows", "'DF1'", 1, 1, "");
  openList();
  auto bounded = std::make_shared<BoundedDataAccess>(apartment().syncDb);
  apartment().syncDb = bounded;

  ASSERT_TRUE(d->pick("Both ways, no rows"));  // no row: the loop ends at once
  // Direction 1 has no button: selecting it fails after the settings were set.
  ASSERT_EQ(host->errors->errors.size(), 1u);
  EXPECT_EQ(host->errors->errors[0].number(), wizard::kControlArrayElementMissing);
  EXPECT_EQ(c().SyncDirectionType(), 1);
  EXPECT_LT(bounded->spins, 10);

  ASSERT_TRUE(d->pick("Both ways"));
  EXPECT_GT(bounded->spins, 100000);
  // Only the bound ended the load: the row was tested for the end again and again, never
  // used and never passed.
  EXPECT_EQ(host->errors->errors.back().description(), "bound reached");
  EXPECT_TRUE(selection().isEmpty());
}

// With the prompt chosen, picking and Delete do nothing; a scheme that vanished since the list
// was filled is reported (its text is checked with the others) and still sets the number.
TEST_F(SchemeLoadTest, DeleteRemovesTheChosenSchemeAndResets) {
  scheme(5, "Old", "'DF1'", 3, 2,
         "INSERT INTO OutlookSync (SchemeNum, OutlookID) VALUES (5, 'A'), (5, 'B');"
         "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (6, 10);");
  scheme(6, "Kept", "'DF1'", 2, 1, "");
  scheme(7, "Gone", "'DF1'", 2, 1, "");
  openList();
  c().setSchemeID(-1);
  ASSERT_TRUE(d->pick("Click here to open a saved scheme"));
  EXPECT_EQ(c().SchemeID(), -1);
  ASSERT_TRUE(d->click("cmdDeleteScheme"));
  EXPECT_EQ(q("SELECT COUNT(*) FROM OutlookScheme;")[0], "3");
  execSql(host->syncPath, "DELETE FROM OutlookScheme WHERE SchemeID = 7;");
  ASSERT_TRUE(d->pick("Gone"));
  EXPECT_EQ(c().SchemeID(), 7);
  ASSERT_EQ(shown().size(), 1u);
  host->messages->shown.clear();

  ASSERT_TRUE(d->pick("Old"));  // an Outlook scheme: its rows give the Outlook IDs
  EXPECT_EQ(c().SyncDirectionType(), 3);
  EXPECT_TRUE(d->value("optSynchDirection", 3) && !d->value("optSynchDirection", 2));
  EXPECT_EQ(selection().entries(),
            (std::vector<SelectionCollection::Entry>{{"", "", "A"}, {"", "", "B"}}));
  ASSERT_TRUE(d->click("cmdDeleteScheme"));
  EXPECT_TRUE(shown().empty());  // no confirmation, no message
  EXPECT_EQ(q("SELECT SchemeName FROM OutlookScheme;"), (std::vector<std::string>{"Kept"}));
  EXPECT_EQ(q("SELECT SchemeNum FROM OutlookSync;"), (std::vector<std::string>{"6"}));
  // Reset: the list refilled with the prompt chosen, the owner back to its defaults but for
  // the scheme number.
  EXPECT_EQ(d->comboEntries(),
            (std::vector<std::string>{"Click here to open a saved scheme", "Kept"}));
  EXPECT_EQ(d->get("cboSavedScheme").listIndex, 0);
  EXPECT_TRUE(selection().isEmpty());
  EXPECT_EQ(settings(), "5|2|1|1|Business||");
  EXPECT_TRUE(d->value("optSynchDirection", 2));
  EXPECT_EQ(d->text("txtSaveName") + "|" + d->text("txtContactsCategory"), "|Business");
}

// A host's secret store, that can be made to have nowhere to keep anything.
class KeptPasswords : public wizard::ISchemePasswords {
 public:
  bool available = true;
  std::map<std::pair<std::string, int32_t>, std::string> kept;
  bool store(const std::string& db, int32_t id, const std::string&,
             const std::string& pw) override {
    if (available) kept[{db, id}] = pw;
    return available;
  }
  std::optional<std::string> lookup(const std::string& db, int32_t id) override {
    auto it = kept.find({db, id});
    return it == kept.end() ? std::nullopt : std::optional<std::string>(it->second);
  }
  void forget(const std::string& db, int32_t id) override { kept.erase({db, id}); }
};

TEST_F(SchemeTest, WithASecretStoreASavedPasswordStaysOutOfTheDatabase) {
  auto store = std::make_shared<KeptPasswords>();
  form->setSchemePasswords(store);
  start();
  form->control("txtPassword").text = "pw";
  ASSERT_TRUE(user({"cmdNav(3)", "Company:12", "cmdNav(3)"}));
  save("Monthly");
  std::string id = q("SELECT SchemeID FROM OutlookScheme;")[0];
  EXPECT_EQ(q("SELECT IFNULL(ProfilePassword, '') FROM OutlookScheme;"),
            (std::vector<std::string>{""}));
  EXPECT_EQ(store->kept,
            (decltype(store->kept){{{c().SyncDatabaseLocation(), std::stoi(id)}, "pw"}}));
  ASSERT_EQ(shown().size(), 1u);  // saved

  // Nowhere to keep it: saved without it, and the user is told.
  store->available = false;
  form->control("txtPassword").text = "pw2";
  save("Other");
  EXPECT_EQ(q("SELECT IFNULL(ProfilePassword, '') FROM OutlookScheme WHERE SchemeName = 'Other';"),
            (std::vector<std::string>{""}));
  ASSERT_EQ(shown().size(), 3u);
  EXPECT_NE(shown()[1].text.find("without its password"), std::string::npos) << shown()[1].text;
}

TEST_F(SchemeLoadTest, WithASecretStoreThePasswordIsLoadedFromItAndForgottenWithTheScheme) {
  scheme(5, "Kept", "'DF1'", 2, 1, "");
  scheme(6, "Nothing kept", "'DF1'", 2, 1, "");
  scheme(7, "Of old", "'DF1'", 2, 1, "");
  execSql(host->syncPath, "UPDATE OutlookScheme SET ProfilePassword = '' WHERE SchemeID <> 7;");
  auto store = std::make_shared<KeptPasswords>();
  form->setSchemePasswords(store);
  openList();
  const std::string db = c().SyncDatabaseLocation();
  store->kept[{db, 5}] = "pw";
  ASSERT_TRUE(d->pick("Kept"));
  EXPECT_EQ(c().Password(), "pw");
  c().setPassword("given");  // nothing kept: the password the wizard was given stays
  ASSERT_TRUE(d->pick("Nothing kept"));
  EXPECT_EQ(c().Password(), "given");
  ASSERT_TRUE(d->pick("Of old"));  // a password saved in the database before still counts
  EXPECT_EQ(c().Password(), "Pass");
  ASSERT_TRUE(d->pick("Kept"));
  ASSERT_TRUE(d->click("cmdDeleteScheme"));
  EXPECT_TRUE(store->kept.empty());
}

// The desktop's store through libsecret, on its file keyring (no secret service needed).
TEST(SchemeSecretsTest, LibsecretKeepsFindsAndForgets) {
#ifdef __SANITIZE_ADDRESS__
  // libsecret's file keyring keeps a string in GIO's worker for the process's life, which
  // LeakSanitizer cannot tell from a leak of ours (GLib has no frame pointers to unwind).
  GTEST_SKIP() << "libsecret's own allocations are not checked under the sanitizers";
#endif
  auto dir = std::filesystem::path(::testing::TempDir()) / "dossync-keyring";
  std::filesystem::create_directories(dir);
  ::setenv("SECRET_BACKEND", "file", 1);
  ::setenv("SECRET_FILE_TEST_PATH", (dir / "test.keyring").c_str(), 1);
  ::setenv("SECRET_FILE_TEST_PASSWORD", "test", 1);
  auto secrets = app::makeSecretServicePasswords();
  const std::string db = (dir / "sync.db").string();
  ASSERT_TRUE(secrets->store(db, 4, "Monthly", "pw"));
  EXPECT_EQ(secrets->lookup((dir / "." / "sync.db").string(), 4), "pw");  // the same file
  EXPECT_EQ(secrets->lookup(db, 5), std::nullopt);
  secrets->forget(db, 4);
  EXPECT_EQ(secrets->lookup(db, 4), std::nullopt);
  std::filesystem::remove_all(dir);
}

// ---- "Both ways", offered by a host that can run direction 1: the form runs the owner's
// direction 1 without a selection, maps the information types, writes the conflict rule
// through, and a scheme saved with it opens again with it (SyncType 1, no OutlookSync rows, the
// rule kept in the host's scheme settings).

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
  // Both ways has no "Company Information Only": the company with its contact instead.
  ASSERT_TRUE(user({"cmdAdvancedOptions", "optInfoType(2)", "cmdNav(2)", "optSynchDirection(1)"}));
  EXPECT_EQ(
      std::to_string(c().SyncDirectionType()) + "|" + std::to_string(c().SyncInformationType()),
      "1|1");
  ASSERT_TRUE(d->click("cmdNav", 3));  // a note instead of the tree
  EXPECT_TRUE(d->canUse("lblBothWays") && !d->canUse("tvwContacts"));
  ASSERT_TRUE(user({"cmdNav(2)", "cmdAdvancedOptions"}));
  EXPECT_FALSE(d->canUse("optInfoType", 2) || d->canUse("chkPairCreated"));
  ASSERT_TRUE(d->click("optInfoType", 4));
  EXPECT_EQ(c().SyncInformationType(), 7);  // the host's contacts
  ASSERT_TRUE(d->click("optConflict", 2));

  // A one-way direction gives the contact option its own meaning back, and the tree.
  ASSERT_TRUE(user({"cmdNav(2)", "optSynchDirection(2)"}));
  EXPECT_EQ(c().SyncInformationType(), 4);
  ASSERT_TRUE(d->click("cmdNav", 3));
  EXPECT_TRUE(d->canUse("tvwContacts") && !d->canUse("lblBothWays"));
  ASSERT_TRUE(d->click("cmdNav", 2));

  ASSERT_TRUE(user({"optSynchDirection(1)", "cmdAdvancedOptions", "cmdNav(4)"}));  // none selected
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
  // A selection made before choosing both ways.
  ASSERT_TRUE(
      user({"cmdNav(3)", "Company:10", "cmdNav(2)", "optSynchDirection(1)", "cmdAdvancedOptions",
            "optInfoType(3)", "optConflict(2)", "cmdNav(2)", "cmdNav(3)", "cmdNav(3)"}));
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
