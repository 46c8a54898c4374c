// What the wizard says: every message it shows goes through the host's message box.
#include "wizard_fixture.h"

namespace dossync {
namespace {

using testing::WizardTest;

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
