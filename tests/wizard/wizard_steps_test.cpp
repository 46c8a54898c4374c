// The wizard's steps, navigation buttons, Finish and Cancel, the write-through option handlers
// and the messages it shows, driven headlessly as a user would.
#include "base/platform.h"
#include "wizard_fixture.h"

namespace dossync {
namespace {

using testing::WizardTest;

class RecordingHostUi : public IHostUi {
 public:
  void setMousePointer(int32_t p) override { pointers.push_back(p); }
  std::vector<int32_t> pointers;
};

TEST_F(WizardTest, StartShowsTheWelcomeStepModallyOverTheHostWindow) {
  auto ui = std::make_shared<RecordingHostUi>();
  apartment().hostUi = ui;
  start();
  EXPECT_EQ(d->caption(), "Outlook Wizard - Welcome to the synchronization wizard");
  EXPECT_EQ(nav(), "0: 1 3");
  for (int i = 0; i <= 3; ++i) EXPECT_EQ(d->get("fraStep", i).left, i ? -10000 : 0) << i;
  EXPECT_FALSE(form->finishAllowed() || form->listLoaded());
  EXPECT_EQ(ui->pointers, (std::vector<int32_t>{11, 0}));
  EXPECT_EQ(form->view.shown, 1);
  EXPECT_EQ(form->view.ownerWindow, mdi);
  // The combo box starts empty: nothing fills it before a Delete.
  EXPECT_TRUE(d->comboEntries().empty());
  // Controls of other steps cannot be reached.
  EXPECT_FALSE(d->canUse("txtSaveName"));
  EXPECT_FALSE(d->click("optInfoType", 2));
}

TEST_F(WizardTest, TheStepMachine) {
  start();
  struct Row {
    const char* action;
    const char* nav;
    const char* caption;  // after "Outlook Wizard - "
    bool listLoaded;
  } rows[] = {
      {"cmdAdvancedOptions", "3: 1 2 4", "Advanced Options", false},
      {"cmdNav(2)", "0: 1 3", "Welcome to the synchronization wizard", false},  // not step 2
      {"cmdNav(3)", "1: 1 2 3", "Select the companies to synchronize", true},
      {"cmdNav(3)", "2: 1 2 4", "Finish", true},
  };
  int32_t before = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.nav);
    ASSERT_TRUE(user({row.action}));
    EXPECT_EQ(nav(), row.nav);
    EXPECT_EQ(d->caption(), std::string("Outlook Wizard - ") + row.caption);
    EXPECT_EQ(form->listLoaded(), row.listLoaded);  // jumping back does not fill the tree
    // The step left is moved away and disabled.
    EXPECT_EQ(d->get("fraStep", before).left, -10000);
    EXPECT_FALSE(d->get("fraStep", before).enabled);
    before = d->step();
  }
  EXPECT_GT(form->tree().count(), 0);
  EXPECT_TRUE(d->canUse("txtSaveName"));
  // Next is disabled on step 2; invoked anyway it goes to the welcome step.
  form->cmdNav_Click(3);
  EXPECT_EQ(d->step(), 0);
}

TEST_F(WizardTest, NextRebuildsTheTreeAndBackKeepsTheMarks) {
  start();
  ASSERT_TRUE(user({"cmdNav(3)", "Company:12", "cmdNav(3)"}));  // leaving step 1 forwards
  EXPECT_EQ(members(1), (std::vector<std::string>{"12"}));

  ASSERT_TRUE(d->click("cmdNav", 2));  // back to step 1: the tree is kept as it was
  EXPECT_EQ(d->step(), 1);
  EXPECT_TRUE(d->checked("Company:12"));
  ASSERT_TRUE(d->tick("Company:12", false));
  ASSERT_TRUE(d->tick("Company:13"));
  // A mark on a category means nothing, but it shows that the tree was not refilled.
  form->tree().setChecked(form->tree().find("Category:4")->index, true);
  ASSERT_TRUE(user({"cmdNav(3)", "cmdNav(2)"}));
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Category:4", "Company:13"}));

  ASSERT_TRUE(d->tick("Company:13", false));
  ASSERT_TRUE(user({"Company:14", "cmdNav(2)", "cmdNav(3)"}));  // to the welcome step and back
  // Rebuilt and marked from the selection made when step 1 was last left forwards.
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Company:13"}));
}

TEST_F(WizardTest, FinishWithAnEmptySelectionStaysAndCancelNeverSynchronises) {
  start();
  ASSERT_TRUE(user({"cmdAdvancedOptions", "cmdNav(4)"}));  // its message: checked with the texts
  EXPECT_EQ(shown().size(), 1u);
  EXPECT_EQ(nav(), "3: 1 2 4");
  EXPECT_EQ(form->view.unloads, 0);

  ASSERT_TRUE(user({"cmdNav(2)", "cmdNav(3)", "Company:10", "cmdNav(3)", "cmdNav(1)"}));
  EXPECT_FALSE(form->loaded());
  EXPECT_EQ(form->view.unloads, 1);
  EXPECT_FALSE(d->click("cmdNav", 4));  // nothing can be clicked on an unloaded form
  EXPECT_EQ(c().counters().rowsWalked, 0);
}

TEST_F(WizardTest, OptionsWriteThroughAndTextBoxesWriteWhenTheyLoseFocus) {
  start();
  ASSERT_TRUE(d->click("optSynchDirection", 3));
  EXPECT_EQ(c().SyncDirectionType(), 3);
  EXPECT_FALSE(d->value("optSynchDirection", 2));
  ASSERT_TRUE(d->click("optSynchDirection", 2));
  EXPECT_EQ(c().SyncDirectionType(), 2);
  form->optSynchDirection_Click(1);  // there is no button for both ways: nothing changes
  EXPECT_EQ(c().SyncDirectionType(), 2);

  ASSERT_TRUE(d->click("cmdAdvancedOptions"));
  for (int i = 4; i >= 1; --i) {
    ASSERT_TRUE(d->click("optInfoType", i));
    EXPECT_EQ(c().SyncInformationType(), i);
  }
  ASSERT_TRUE(d->type("txtProfileName", "Office"));
  EXPECT_EQ(c().Profile(), "");  // not yet: the text box still has the focus
  ASSERT_TRUE(d->type("txtPassword", "s3cret"));
  EXPECT_EQ(c().Profile(), "Office");
  ASSERT_TRUE(d->type("txtContactsCategory", "Clients 2024"));
  EXPECT_EQ(c().Password(), "s3cret");
  // Clicking Finish moves the focus first, so the category is written before Finish runs.
  ASSERT_TRUE(d->click("cmdNav", 4));
  EXPECT_EQ(c().OutlookCategory(), "Clients 2024");
}

TEST_F(WizardTest, AdvancedOptionsFollowTheOwnersSettingsAndDirection) {
  c().setSyncDirectionType(3);
  c().setSyncInformationType(4);
  c().setProfile("P");
  c().setPassword("W");
  c().setOutlookCategory("Cat");
  start();
  ASSERT_TRUE(d->click("cmdAdvancedOptions"));
  EXPECT_TRUE(d->value("optSynchDirection", 3) && d->value("optInfoType", 4));
  EXPECT_EQ(d->text("txtProfileName") + d->text("txtPassword") + d->text("txtContactsCategory"),
            "PWCat");
  // Writing into the host, only the profile and password matter.
  for (const char* name : {"Frame6", "Frame3", "txtContactsCategory", "Label6", "Label7"})
    EXPECT_FALSE(d->get(name).enabled) << name;
  EXPECT_FALSE(d->canUse("optInfoType", 1));
  EXPECT_TRUE(d->canUse("txtProfileName") && d->canUse("txtPassword"));

  ASSERT_TRUE(user({"cmdNav(2)", "optSynchDirection(2)", "cmdAdvancedOptions"}));
  EXPECT_TRUE(d->canUse("optInfoType", 1) && d->canUse("txtContactsCategory"));
}

TEST_F(WizardTest, WithNeitherDirectionChosenNextLoadsNothingButStillAppliesTheSelection) {
  start();
  ASSERT_TRUE(user({"cmdNav(3)", "cmdNav(2)"}));
  d->get("optSynchDirection", 2).value = false;
  selection().add("12", "", "");
  ASSERT_TRUE(d->click("cmdNav", 3));
  EXPECT_EQ(d->step(), 1);
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Company:12"}));
}

TEST_F(WizardTest, NextFromTheOutlookDirectionFillsTheTreeFromOutlook) {
  c().StartOutlook();
  auto item = testing::saveContact(*c().outlookApplication(), "Zed Outlook",
                                   [](outlook::ContactItem& i) { i.setCategories("Friends"); });
  c().StopOutlook();

  start();
  ASSERT_TRUE(user({"optSynchDirection(3)", "cmdNav(3)", "Category:Friends"}));
  EXPECT_TRUE(d->checked("Contact:" + item->EntryID()));
  ASSERT_TRUE(d->click("cmdNav", 3));
  EXPECT_EQ(members(3), (std::vector<std::string>{item->EntryID()}));
  EXPECT_EQ(c().outlookNameSpace(), nullptr);  // the wizard let go of Outlook after filling
}

TEST_F(WizardTest, ThePreviewButtonNeedsTheHostsHookAndASelection) {
  start();
  ASSERT_TRUE(user({"cmdNav(3)", "cmdNav(3)"}));
  EXPECT_FALSE(d->canUse("cmdPreview"));  // a view without the hook shows no dead button
  int previews = 0;
  form->setPreviewRun([&](clsOutlookSynchronization&) { ++previews; });
  ASSERT_TRUE(d->click("cmdPreview"));
  EXPECT_EQ(previews, 0);  // nothing selected: the same message as Finish gives
  ASSERT_EQ(shown().size(), 1u);
  EXPECT_EQ(shown()[0].style, 3);
  selection().add("13", "", "");
  ASSERT_TRUE(d->click("cmdPreview"));
  EXPECT_EQ(previews, 1);
  int after = 0;
  form->afterRun = [&](clsOutlookSynchronization& o) { after += o.counters().itemsCreated; };
  ASSERT_TRUE(d->click("cmdNav", 4));
  EXPECT_EQ(after, 1);  // after the run, before the form goes
}

TEST_F(WizardTest, FinishRunsOnlyWhileTheHostHoldsTheRun) {
  start();
  ASSERT_TRUE(user({"cmdNav(3)", "cmdNav(3)"}));
  selection().add("13", "", "");
  auto lock = std::make_shared<int>(0);
  bool free = false, heldAfter = false;
  form->holdRun = [&](clsOutlookSynchronization&) -> std::shared_ptr<void> {
    return free ? lock : nullptr;
  };
  form->afterRun = [&](clsOutlookSynchronization&) { heldAfter = lock.use_count() > 1; };
  ASSERT_TRUE(d->click("cmdNav", 4));
  EXPECT_EQ(c().counters().itemsCreated, 0);  // another run holds it: nothing ran
  EXPECT_TRUE(form->loaded());                // and Finish may be clicked again
  free = true;
  ASSERT_TRUE(d->click("cmdNav", 4));
  EXPECT_EQ(c().counters().itemsCreated, 1);
  EXPECT_TRUE(heldAfter);
  EXPECT_EQ(lock.use_count(), 1);  // let go once the run is over
}

TEST_F(WizardTest, OpenSynchFormRunsTheRegisteredFormAndReleasesIt) {
  bool sawCurrentWizard = false;
  wizard::registerHeadlessWizard([&](wizard::WizardDriver& w) {
    sawCurrentWizard = apartment().currentWizard.get() == &w.form();
    w.click("cmdNav", 3);
    w.tick("Company:13");
    w.click("cmdNav", 3);
    w.click("cmdNav", 4);
  });
  c().openSynchForm();
  platform::unregisterClass(kWizardFormClass);
  EXPECT_TRUE(sawCurrentWizard);
  EXPECT_EQ(apartment().currentWizard, nullptr);
  EXPECT_EQ(c().counters().itemsCreated, 1);
}

TEST_F(WizardTest, EveryMessageGoesThroughTheHostsMessageBox) {
  testing::execSql(host->syncPath,
                   "INSERT INTO OutlookScheme (SchemeID, SchemeName) VALUES (5, 'Monthly');");
  start();
  auto name = [&](const char* text) { form->control("txtSaveName").text = text; };
  // A combo box entry for a scheme that is not (or no longer) in the database.
  auto gone = [&] {
    auto& combo = form->control("cboSavedScheme");
    combo.items = {{"Click here to open a saved scheme", 0}, {"Gone", 99}};
    combo.listIndex = 1;
  };
  // Each action shows one message, through the host's box; a word of its text tells which.
  struct Row {
    const char* when;
    std::function<void()> run;
    const char* says;
    int32_t style;
    bool question;
  } rows[] = {
      {"Finish with nothing selected", [&] { form->cmdNav_Click(4); }, "select some", 3, false},
      {"Delete with the list empty", [&] { form->cmdDeleteScheme_Click(); }, "drop down", 10,
       false},
      {"Save without a name", [&] { name(""), form->cmdSaveScheme_Click(); }, "enter a name", 10,
       false},
      {"Save under a name in use", [&] { name("Monthly"), form->cmdSaveScheme_Click(); },
       "'Monthly'", 10, true},
      {"Save", [&] { name("Quarterly"), form->cmdSaveScheme_Click(); }, "successfully", 10, false},
      {"Pick a scheme that is gone", [&] { gone(), form->cboSavedScheme_Click(); },
       "could not be found", 10, false},
      {"Delete a scheme that is gone", [&] { gone(), form->cmdDeleteScheme_Click(); },
       "could not be found", 10, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.when);
    size_t before = shown().size();
    row.run();
    ASSERT_EQ(shown().size(), before + 1);
    const auto& m = shown().back();
    EXPECT_NE(m.text.find(row.says), std::string::npos) << m.text;
    EXPECT_EQ(m.style, row.style);
    EXPECT_EQ(m.question, row.question);
    EXPECT_EQ(m.number, 101);
    EXPECT_EQ(m.owner, mdi);
  }
  EXPECT_TRUE(host->errors->errors.empty());
}

}  // namespace
}  // namespace dossync
