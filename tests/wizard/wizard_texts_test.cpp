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
      {"Save", [&] { name("Quarterly"), form->cmdSaveScheme_Click(); }, "successfully", 10,
       false},
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
