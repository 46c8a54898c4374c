// What the wizard says: every control's caption, kind and place, and every message it shows
// through the host's message box.
#include "wizard_fixture.h"

namespace dossync {
namespace {

using testing::WizardTest;
using K = wizard::ControlKind;

// The step a control shows on (-1: the navigation panel, on every step) and the frame inside
// the step that holds it, if any.
std::pair<int32_t, std::string> placeOf(wizard::frmWizard& form, const wizard::Control& c) {
  std::string frame;
  const wizard::Control* p = &c;
  while (!p->container.empty()) {
    if (p->container == "fraStep") return {p->containerIndex, frame};
    if (p->container == "picNav") return {-1, frame};
    frame = p->container;
    p = &form.control(p->container, p->containerIndex);
  }
  return {-2, frame};
}

TEST_F(WizardTest, EveryControlHasItsCaptionKindAndPlace) {
  struct Row {
    const char* name;
    int32_t index;
    K kind;
    const char* text;
    int32_t step;
    const char* frame;
  } rows[] = {
      {"fraStep", 0, K::Frame, "Step 1", -2, ""},
      {"fraStep", 1, K::Frame, "Start", -2, ""},
      {"fraStep", 2, K::Frame, "Step 2", -2, ""},
      {"fraStep", 3, K::Frame, "Step 3", -2, ""},
      {"lblStep", 0, K::Label, "Welcome to the MS Outlook Synchronization Wizard", 0, ""},
      {"Label1", -1, K::Label,
       "This wizard allows you to quickly synchronize your client's information with Microsoft "
       "Outllook",
       0, ""},
      {"Frame1", -1, K::Frame, "Open a saved synchronization scheme", 0, ""},
      {"cboSavedScheme", -1, K::ComboBox, "", 0, "Frame1"},
      {"cmdDeleteScheme", -1, K::CommandButton, "Delete", 0, "Frame1"},
      {"Frame2", -1, K::Frame, "Synchronization options", 0, ""},
      {"optSynchDirection", 2, K::OptionButton,
       "Synchronize your information from Dossiera to Outlook", 0, "Frame2"},
      {"optSynchDirection", 3, K::OptionButton,
       "Synchronize your information from Outlook to Dossiera", 0, "Frame2"},
      {"cmdAdvancedOptions", -1, K::CommandButton, "Advanced Options", 0, ""},
      {"imgStep", 1, K::Image, "", 0, ""},
      {"Label2", -1, K::Label,
       "Select the clients you would like to include in the synchronization process:", 1, ""},
      {"tvwContacts", -1, K::TreeView, "", 1, ""},
      {"lblProgress", -1, K::Label, "Populating list, please wait ...", 1, ""},
      {"ReportProgressBar", -1, K::ProgressBar, "", 1, ""},
      {"imgStep", 0, K::Image, "", 1, ""},
      {"Frame5", -1, K::Frame, "Save Synchronization Scheme", 2, ""},
      {"txtSaveName", -1, K::TextBox, "", 2, "Frame5"},
      {"cmdSaveScheme", -1, K::CommandButton, "Save", 2, "Frame5"},
      {"cmdPreview", -1, K::CommandButton, "Show what will change", 2, ""},
      {"Label9", -1, K::Label,
       "This allows you quickly recall this scheme later with the same clients selected.", 2, ""},
      {"Label8", -1, K::Label,
       "Dossiera allows you to save the synchronization settings for this session as well as "
       "the clients you have selected.",
       2, ""},
      {"imgStep", 2, K::Image, "", 2, ""},
      {"Label3", -1, K::Label, "Synchronization Options", 3, ""},
      {"Frame3", -1, K::Frame, "Information Type", 3, ""},
      {"optInfoType", 1, K::OptionButton, "Company Information (with Default Contact)", 3,
       "Frame3"},
      {"optInfoType", 2, K::OptionButton, "Company Information Only", 3, "Frame3"},
      {"optInfoType", 3, K::OptionButton, "Contact Information (with Contact Name Displayed)", 3,
       "Frame3"},
      {"optInfoType", 4, K::OptionButton, "Contact Information (with Company Name Displayed)", 3,
       "Frame3"},
      {"Frame4", -1, K::Frame, "Outlook Settings", 3, ""},
      {"Label4", -1, K::Label, "Profile Name:", 3, "Frame4"},
      {"txtProfileName", -1, K::TextBox, "", 3, "Frame4"},
      {"Label5", -1, K::Label, "Password:", 3, "Frame4"},
      {"txtPassword", -1, K::TextBox, "", 3, "Frame4"},
      {"Frame6", -1, K::Frame, "Contacts Category", 3, ""},
      {"Label6", -1, K::Label,
       "You can specify the Outlook contacts category you would like the imported clients to be "
       "allocated to.",
       3, "Frame6"},
      {"Label7", -1, K::Label, "Contacts Category:", 3, "Frame6"},
      {"txtContactsCategory", -1, K::TextBox, "", 3, "Frame6"},
      {"chkPairCreated", -1, K::CheckBox, "Pair Outlook contacts with the companies made for them",
       3, ""},
      {"imgStep", 3, K::Image, "", 3, ""},
      {"cmdNav", 1, K::CommandButton, "Cancel", -1, ""},
      {"cmdNav", 2, K::CommandButton, "< &Back", -1, ""},
      {"cmdNav", 3, K::CommandButton, "&Next >", -1, ""},
      {"cmdNav", 4, K::CommandButton, "&Finish", -1, ""},
  };
  EXPECT_EQ(form->caption(), "Outlook Synchronization Wizard");  // before it is started
  for (const Row& row : rows) {
    const wizard::Control& c = form->control(row.name, row.index);
    SCOPED_TRACE(c.fullName());
    EXPECT_EQ(c.text, row.text);
    EXPECT_EQ(c.kind, row.kind);
    EXPECT_EQ(placeOf(*form, c), (std::pair<int32_t, std::string>{row.step, row.frame}));
  }
  // Each step shows its own picture, in step order.
  for (int32_t step = 0; step < 4; ++step) {
    const int32_t index[] = {1, 0, 2, 3};
    EXPECT_EQ(form->control("imgStep", index[step]).picture, step + 1) << step;
  }
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
  const char* notFound = "The selected outlook scheme could not be found.  Please try again.";
  struct Row {
    const char* when;
    std::function<void()> run;
    std::string text;
    int32_t style;
    bool question;
  } rows[] = {
      {"Finish with nothing selected", [&] { form->cmdNav_Click(4); },
       "You must select some companies or contacts to import into Microsoft Outlook before "
       "proceeding.  Go to the first step and select some clients to import.",
       3, false},
      {"Delete with the list empty", [&] { form->cmdDeleteScheme_Click(); },
       "You must select an outlook scheme in the drop down list first.  Please try again.", 10,
       false},
      {"Save without a name", [&] { name(""), form->cmdSaveScheme_Click(); },
       "You must enter a name to save your outlook scheme.", 10, false},
      {"Save under a name in use", [&] { name("Monthly"), form->cmdSaveScheme_Click(); },
       "There is already an outlook synchronization scheme saved as 'Monthly'.  Are you sure "
       "you want to replace this scheme?",
       10, true},
      {"Save", [&] { name("Quarterly"), form->cmdSaveScheme_Click(); },
       "The outlook scheme has been successfully saved.", 10, false},
      {"Pick a scheme that is gone", [&] { gone(), form->cboSavedScheme_Click(); }, notFound, 10,
       false},
      {"Delete a scheme that is gone", [&] { gone(), form->cmdDeleteScheme_Click(); }, notFound, 10,
       false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.when);
    size_t before = shown().size();
    row.run();
    ASSERT_EQ(shown().size(), before + 1);
    const auto& m = shown().back();
    EXPECT_EQ(m.text, row.text);
    EXPECT_EQ(m.style, row.style);
    EXPECT_EQ(m.question, row.question);
    EXPECT_EQ(m.number, 101);
    EXPECT_EQ(m.owner, mdi);
  }
  EXPECT_TRUE(host->errors->errors.empty());
}

}  // namespace
}  // namespace dossync
