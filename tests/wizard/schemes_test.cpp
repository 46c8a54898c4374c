// Saved schemes: saving (new, replaced with No and Yes), loading settings and items for each
// direction, the never-ending load of direction 1 (bounded), deleting and resetting.
#include <algorithm>

#include "wizard_fixture.h"

namespace dossync {
namespace {

using testing::querySql;
using testing::execSql;

class SchemeTest : public testing::WizardTest {
 protected:
  std::vector<std::string> q(const std::string& sql) { return querySql(host->syncPath, sql); }
  // Goes to step 2 with the given companies ticked.
  void selectAndGoToSave(std::initializer_list<const char*> keys) {
    start();
    ASSERT_TRUE(d->click("cmdNav", 3));
    for (const char* k : keys) ASSERT_TRUE(d->tick(k));
    ASSERT_TRUE(d->click("cmdNav", 3));
    ASSERT_EQ(d->step(), 2);
  }
  void save(const std::string& name) {
    ASSERT_TRUE(d->type("txtSaveName", name));
    ASSERT_TRUE(d->click("cmdSaveScheme"));
  }
  std::string lastMessage() { return shown().empty() ? "" : shown().back().text; }
};

TEST_F(SchemeTest, SavingANewSchemeWritesItsRowWithoutDataFileAndOneRowPerEntry) {
  c().setProfile("ignored: the text boxes are saved");
  selectAndGoToSave({"Company:12", "Company:13"});
  form->control("txtProfileName").text = "Office";
  form->control("txtPassword").text = "pw";
  form->control("txtContactsCategory").text = "Clients";
  save("Monthly");
  EXPECT_EQ(lastMessage(), "The outlook scheme has been successfully saved.");
  EXPECT_TRUE(form->schemeSaved());
  EXPECT_EQ(q("SELECT SchemeName || '|' || IFNULL(DataFileID, '<null>') || '|' || CompanyListType "
              "|| '|' || ContactsCategory || '|' || ProfileName || '|' || ProfilePassword || '|' "
              "|| InfoType || '|' || SyncType FROM OutlookScheme;"),
            (std::vector<std::string>{"Monthly|<null>|2|Clients|Office|pw|1|2"}));
  std::string id = q("SELECT SchemeID FROM OutlookScheme;")[0];
  EXPECT_EQ(q("SELECT SchemeNum || ':' || IFNULL(CompanyNum, '') || ':' || IFNULL(ContactNum, '') "
              "|| ':' || IFNULL(OutlookID, '') FROM OutlookSync ORDER BY SyncID;"),
            (std::vector<std::string>{id + ":12::", id + ":13::"}));
  EXPECT_EQ(c().SchemeID(), -1);  // saving never changes the owner

  // The Save button gaining the focus again clears the saved mark.
  ASSERT_TRUE(d->click("txtSaveName"));
  EXPECT_TRUE(form->schemeSaved());
  form->userFocus(&form->control("cmdSaveScheme"));
  EXPECT_FALSE(form->schemeSaved());
}

TEST_F(SchemeTest, SavingNeedsANameAndAnEmptySelectionSavesOnlyTheScheme) {
  selectAndGoToSave({});
  save("");
  EXPECT_EQ(lastMessage(), "You must enter a name to save your outlook scheme.");
  EXPECT_TRUE(q("SELECT * FROM OutlookScheme;").empty());
  save("Empty");
  EXPECT_EQ(q("SELECT COUNT(*) FROM OutlookScheme;")[0], "1");
  EXPECT_EQ(q("SELECT COUNT(*) FROM OutlookSync;")[0], "0");
}

TEST_F(SchemeTest, ReplacingAsksAndNoWritesNothingWhileYesAddsBesideTheOldRows) {
  selectAndGoToSave({"Company:12"});
  save("Monthly");
  std::string id = q("SELECT SchemeID FROM OutlookScheme;")[0];

  // Names compare without regard to case.
  host->messages->answer = false;
  form->control("txtContactsCategory").text = "Changed";
  save("monthly");
  ASSERT_TRUE(shown().back().question);
  EXPECT_EQ(q("SELECT IFNULL(ContactsCategory, '') FROM OutlookScheme;")[0], "");
  EXPECT_EQ(q("SELECT COUNT(*) FROM OutlookSync;")[0], "1");

  host->messages->answer = true;
  save("MONTHLY");
  EXPECT_EQ(lastMessage(), "The outlook scheme has been successfully saved.");
  EXPECT_EQ(q("SELECT SchemeID || '|' || DataFileID || '|' || ContactsCategory FROM OutlookScheme;"),
            (std::vector<std::string>{id + "|DF1|Changed"}));
  // The same selection saved twice under one name: its rows are doubled.
  EXPECT_EQ(q("SELECT CompanyNum FROM OutlookSync WHERE SchemeNum = " + id + ";"),
            (std::vector<std::string>{"12", "12"}));
}

TEST_F(SchemeTest, ContactAndOutlookSelectionsAndTheirSettingsComeBackAsSaved) {
  c().StartOutlook();
  std::vector<std::string> outlookIDs;
  for (const char* name : {"Zed", "Yan"}) {
    auto item = std::dynamic_pointer_cast<outlook::ContactItem>(
        c().outlookApplication()->CreateItem(outlook::olContactItem));
    item->setFileAs(name);
    item->Save();
    outlookIDs.push_back(item->EntryID());
  }
  c().StopOutlook();
  std::sort(outlookIDs.begin(), outlookIDs.end());  // entries are compared in sorted order
  struct Row {
    const char* name;
    int direction, info;
    std::vector<std::string> ids;
    int member;  // of the selection entries, and so the OutlookSync column they are saved in
  } rows[] = {
      {"Contacts", 2, 4, {"20", "22"}, 2},
      {"From Outlook", 3, 2, outlookIDs, 3},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    form = std::make_shared<wizard::HeadlessWizard>();
    d = std::make_unique<wizard::WizardDriver>(*form);
    start();
    ASSERT_TRUE(d->click("cmdAdvancedOptions"));
    ASSERT_TRUE(d->click("optInfoType", row.info));
    ASSERT_TRUE(d->click("cmdNav", 2));
    ASSERT_TRUE(d->click("optSynchDirection", row.direction));
    ASSERT_TRUE(d->click("cmdNav", 3));
    for (const std::string& id : row.ids) ASSERT_TRUE(d->tick("Contact:" + id));
    ASSERT_TRUE(d->click("cmdNav", 3));
    save(row.name);
    std::string scheme =
        "(SELECT SchemeID FROM OutlookScheme WHERE SchemeName = '" + std::string(row.name) + "')";
    EXPECT_EQ(
        q("SELECT SyncType || '|' || InfoType FROM OutlookScheme WHERE SchemeID = " + scheme + ";"),
        (std::vector<std::string>{std::to_string(row.direction) + "|" + std::to_string(row.info)}));
    std::vector<std::string> saved;
    for (const std::string& id : row.ids)
      saved.push_back(row.member == 2 ? "|" + id + "|" : "||" + id);
    EXPECT_EQ(q("SELECT IFNULL(CompanyNum, '') || '|' || IFNULL(ContactNum, '') || '|' || "
                "IFNULL(OutlookID, '') FROM OutlookSync WHERE SchemeNum = " +
                scheme + " ORDER BY 1;"),
              saved);

    // Loaded on the welcome step as a scheme of this data file, into an owner back at its
    // defaults.
    ASSERT_TRUE(d->click("cmdNav", 2));
    ASSERT_TRUE(d->click("cmdNav", 2));
    execSql(host->syncPath, "UPDATE OutlookScheme SET DataFileID = 'DF1';");
    form->resetScheme();
    ASSERT_EQ(c().SyncDirectionType(), 2);
    ASSERT_EQ(c().SyncInformationType(), 1);
    ASSERT_TRUE(d->pick(row.name));
    EXPECT_EQ(c().SyncDirectionType(), row.direction);
    EXPECT_EQ(c().SyncInformationType(), row.info);
    EXPECT_TRUE(d->value("optSynchDirection", row.direction));
    EXPECT_TRUE(d->value("optInfoType", row.info));
    std::vector<std::string> loaded = members(row.member);
    std::sort(loaded.begin(), loaded.end());
    EXPECT_EQ(loaded, row.ids);
  }
  EXPECT_TRUE(host->errors->errors.empty());
}

class SchemeLoadTest : public SchemeTest {
 protected:
  // A scheme row of this data file and its OutlookSync rows, then the list as Delete leaves it.
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
    shown();
  }
};

TEST_F(SchemeLoadTest, PickingAHostSchemeLoadsItsSettingsAndItems) {
  scheme(5, "Contacts", "'DF1'", 2, 3,
         "INSERT INTO OutlookSync (SchemeNum, CompanyNum, ContactNum, OutlookID) VALUES "
         "(5, 12, NULL, NULL), (5, NULL, 22, NULL), (5, NULL, NULL, 'X'), (6, 10, NULL, NULL);");
  openList();
  EXPECT_EQ(d->comboEntries(), (std::vector<std::string>{"Click here to open a saved scheme", "Contacts"}));
  c().setCompanyList(AddressBook);
  ASSERT_TRUE(d->pick("Contacts"));
  EXPECT_EQ(c().SchemeID(), 5);
  EXPECT_EQ(d->text("txtSaveName"), "Contacts");
  EXPECT_EQ(c().SyncDirectionType(), 2);
  EXPECT_EQ(c().SyncInformationType(), 3);
  EXPECT_EQ(c().companyList(), Dossiera);
  EXPECT_EQ(c().OutlookCategory(), "Loaded");
  EXPECT_EQ(c().Profile(), "Prof");
  EXPECT_EQ(c().Password(), "Pass");
  EXPECT_EQ(d->text("txtContactsCategory"), "Loaded");
  EXPECT_TRUE(d->value("optInfoType", 3));
  EXPECT_FALSE(d->value("optInfoType", 1));
  EXPECT_TRUE(d->value("optSynchDirection", 2));
  // Company rows give member 1, contact rows member 2; a row with neither adds nothing.
  ASSERT_EQ(selection().count(), 2);
  EXPECT_EQ(selection().entries()[0], (SelectionCollection::Entry{"12", "", ""}));
  EXPECT_EQ(selection().entries()[1], (SelectionCollection::Entry{"", "22", ""}));

  // The marks are applied when step 1 is next entered: shown clients with their contacts.
  ASSERT_TRUE(d->click("cmdNav", 3));
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Contact:22"}));
}

TEST_F(SchemeLoadTest, PickingAnOutlookSchemeReadsTheOutlookIDs) {
  scheme(7, "Import", "'DF1'", 3, 1,
         "INSERT INTO OutlookSync (SchemeNum, CompanyNum, OutlookID) VALUES (7, 10, 'AAA'), (7, NULL, 'BBB');");
  openList();
  ASSERT_TRUE(d->pick("Import"));
  EXPECT_EQ(c().SyncDirectionType(), 3);
  EXPECT_TRUE(d->value("optSynchDirection", 3));
  EXPECT_FALSE(d->value("optSynchDirection", 2));
  EXPECT_EQ(members(3), (std::vector<std::string>{"AAA", "BBB"}));
  EXPECT_EQ(members(1), (std::vector<std::string>{"", ""}));
}

TEST_F(SchemeLoadTest, ASchemeOfAnotherDataFileLoadsItsItemsButNotItsSettings) {
  scheme(8, "Foreign", "'OTHER'", 2, 2, "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (8, 13);");
  scheme(9, "Unfiled", "NULL", 2, 2, "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (9, 14);");
  openList();
  ASSERT_TRUE(d->pick("Foreign"));
  EXPECT_EQ(c().SchemeID(), 8);
  EXPECT_EQ(c().SyncInformationType(), 1);
  EXPECT_EQ(c().Profile(), "");
  EXPECT_EQ(members(1), (std::vector<std::string>{"13"}));
  ASSERT_TRUE(d->pick("Unfiled"));
  EXPECT_EQ(c().OutlookCategory(), "Business");
  EXPECT_EQ(members(1), (std::vector<std::string>{"14"}));
}

// Forwards to the real synchronisation database, counting end-of-rows tests that are not
// followed by a move, and failing once there have been too many: the bound that keeps a
// never-ending reading loop from hanging the test.
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
  scheme(4, "Both ways", "'DF1'", 1, 1, "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (4, 12);");
  scheme(3, "Both ways, no rows", "'DF1'", 1, 1, "");
  openList();
  auto bounded = std::make_shared<BoundedDataAccess>(apartment().syncDb);
  apartment().syncDb = bounded;

  ASSERT_TRUE(d->pick("Both ways, no rows"));  // no row: the loop ends at once
  // Direction 1 has no button: selecting it fails after the settings were set.
  ASSERT_EQ(host->errors->errors.size(), 1u);
  EXPECT_EQ(host->errors->errors[0].number(), wizard::kControlArrayElementMissing);
  EXPECT_EQ(host->errors->errorLocations[0], "kvlabeldx3.dll-frmWizard-populateOutlookScheme");
  EXPECT_EQ(c().SyncDirectionType(), 1);
  EXPECT_LT(bounded->spins, 10);

  ASSERT_TRUE(d->pick("Both ways"));
  EXPECT_GT(bounded->spins, 100000);
  // Only the bound ended the load: the row was tested for the end again and again, never
  // used and never passed.
  ASSERT_FALSE(host->errors->errors.empty());
  EXPECT_EQ(host->errors->errors.back().description(), "bound reached");
  EXPECT_EQ(host->errors->errorLocations.back(), "kvoutlookdx.dll-frmWizard-cboSavedScheme_Click");
  EXPECT_TRUE(selection().isEmpty());
}

TEST_F(SchemeLoadTest, ThePromptDoesNothingAndAVanishedSchemeIsReported) {
  scheme(5, "Gone", "'DF1'", 2, 1, "");
  openList();
  c().setSchemeID(-1);
  ASSERT_TRUE(d->pick("Click here to open a saved scheme"));
  EXPECT_EQ(c().SchemeID(), -1);
  EXPECT_TRUE(shown().empty());

  execSql(host->syncPath, "DELETE FROM OutlookScheme;");
  ASSERT_TRUE(d->pick("Gone"));
  EXPECT_EQ(lastMessage(), "The selected outlook scheme could not be found.  Please try again.");
  EXPECT_EQ(c().SchemeID(), 5);
}

TEST_F(SchemeLoadTest, DeleteNeedsAChoiceThenRemovesTheSchemeAndResets) {
  start();
  ASSERT_TRUE(d->click("cmdDeleteScheme"));  // the combo starts empty
  EXPECT_EQ(lastMessage(), "You must select an outlook scheme in the drop down list first.  Please try again.");

  scheme(5, "Old", "'DF1'", 3, 2,
         "INSERT INTO OutlookSync (SchemeNum, OutlookID) VALUES (5, 'A'), (5, 'B');"
         "INSERT INTO OutlookSync (SchemeNum, CompanyNum) VALUES (6, 10);");
  scheme(6, "Kept", "'DF1'", 2, 1, "");
  form->resetScheme();
  size_t messages = shown().size();
  ASSERT_TRUE(d->click("cmdDeleteScheme"));  // the prompt is chosen: nothing happens
  EXPECT_EQ(shown().size(), messages);
  EXPECT_EQ(q("SELECT COUNT(*) FROM OutlookScheme;")[0], "2");

  ASSERT_TRUE(d->pick("Old"));
  EXPECT_EQ(c().SyncDirectionType(), 3);
  ASSERT_TRUE(d->click("cmdDeleteScheme"));
  EXPECT_EQ(shown().size(), messages);  // no confirmation, no message
  EXPECT_EQ(q("SELECT SchemeName FROM OutlookScheme;"), (std::vector<std::string>{"Kept"}));
  EXPECT_EQ(q("SELECT SchemeNum FROM OutlookSync;"), (std::vector<std::string>{"6"}));
  // Reset: the list refilled with the prompt chosen, the owner back to its defaults.
  EXPECT_EQ(d->comboEntries(), (std::vector<std::string>{"Click here to open a saved scheme", "Kept"}));
  EXPECT_EQ(d->get("cboSavedScheme").listIndex, 0);
  EXPECT_EQ(d->text("txtSaveName"), "");
  EXPECT_TRUE(selection().isEmpty());
  EXPECT_EQ(c().SyncDirectionType(), 2);
  EXPECT_EQ(c().SyncInformationType(), 1);
  EXPECT_EQ(c().OutlookCategory(), "Business");
  EXPECT_EQ(c().Profile(), "");
  EXPECT_EQ(c().SchemeID(), 5);  // the reset leaves the scheme number alone
  EXPECT_TRUE(d->value("optSynchDirection", 2));
  EXPECT_EQ(d->text("txtContactsCategory"), "Business");
}

}  // namespace
}  // namespace dossync
