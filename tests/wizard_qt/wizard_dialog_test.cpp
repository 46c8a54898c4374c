// The Qt dialog over the real form, offscreen: widgets render the form's controls and what the
// user does in them reaches the form.
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTreeWidget>

#include "wizard/wizard_fixture.h"
#include "wizard_qt/wizard_dialog.h"

namespace dossync {
namespace {

class QtWizardTest : public testing::WizardTest {
 protected:
  static void SetUpTestSuite() {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "dossync_tests";
    static char* argv[] = {name, nullptr};
    if (!QApplication::instance()) new QApplication(argc, argv);
  }
  void SetUp() override {
    WizardTest::SetUp();
    qtForm = std::make_shared<qt::QtWizard>();
  }
  void TearDown() override {
    qtForm.reset();
    WizardTest::TearDown();
  }
  QPushButton* button(const char* name, int index = -1) {
    return qobject_cast<QPushButton*>(qtForm->dialog().widget(name, index));
  }
  QTreeWidgetItem* item(const QString& text) {
    auto found =
        qtForm->dialog().treeWidget()->findItems(text, Qt::MatchExactly | Qt::MatchRecursive);
    return found.empty() ? nullptr : found.front();
  }
  std::shared_ptr<qt::QtWizard> qtForm;
};

TEST_F(QtWizardTest, TickingACategoryInTheTreeWidgetSelectsItsCompaniesAndFinishSynchronises) {
  qt::WizardDialog& dialog = qtForm->dialog();
  bool ran = false;
  dialog.session = [&] {
    ran = true;
    EXPECT_FALSE(button("cmdNav", 2)->isEnabled());
    EXPECT_EQ(button("cmdNav", 3)->text().toStdString(), "&Next >");
    EXPECT_EQ(dialog.widget("fraStep", 1)->x(), -10000);

    button("cmdNav", 3)->click();  // the title follows the form's caption
    EXPECT_EQ(dialog.windowTitle().toStdString(),
              "Outlook Wizard - Select the companies to synchronize");
    EXPECT_EQ(dialog.widget("fraStep", 1)->x(), 0);
    EXPECT_TRUE(dialog.treeWidget()->isVisibleTo(&dialog));
    EXPECT_FALSE(dialog.widget("ReportProgressBar")->isVisibleTo(&dialog));
    ASSERT_NE(item("Corporations"), nullptr);
    item("Corporations")->setCheckState(0, Qt::Checked);
    // The form spread the mark and the widget shows it.
    EXPECT_EQ(item("Acme Ltd")->checkState(0), Qt::Checked);
    EXPECT_EQ(item("Beta Inc")->checkState(0), Qt::Checked);
    EXPECT_EQ(item("Holding")->checkState(0), Qt::Unchecked);
    EXPECT_EQ(item("Gamma")->checkState(0), Qt::Unchecked);

    button("cmdNav", 3)->click();
    EXPECT_EQ(members(1), (std::vector<std::string>{"10", "11", "12"}));
    EXPECT_FALSE(button("cmdNav", 3)->isEnabled());
    button("cmdNav", 4)->click();
  };
  qtForm->startWizard(c());
  ASSERT_TRUE(ran);
  EXPECT_FALSE(qtForm->loaded());
  EXPECT_FALSE(dialog.isVisible());
  // Three new contacts in the local store, paired in the synchronisation database.
  c().StartOutlook();
  EXPECT_EQ(c().contactsFolder()->Items()->Count(), 3);
  EXPECT_EQ(testing::querySql(host->syncPath,
                              "SELECT COUNT(*) FROM OutlookSync WHERE OutlookID <> '';")[0],
            "3");
}

TEST_F(QtWizardTest, OptionButtonsTextBoxesAndTheSchemeListReachTheForm) {
  qt::WizardDialog& dialog = qtForm->dialog();
  testing::execSql(
      host->syncPath,
      "INSERT INTO OutlookScheme (SchemeID, SchemeName, DataFileID, SyncType, InfoType, "
      "CompanyListType, ContactsCategory) VALUES (3, 'Stored', 'DF1', 3, 2, 2, 'FromScheme');");
  dialog.session = [&] {
    auto direction = [&](int i) {
      return qobject_cast<QRadioButton*>(dialog.widget("optSynchDirection", i));
    };
    direction(3)->click();
    direction(3)->click();  // clicking the chosen option keeps it chosen
    EXPECT_EQ(c().SyncDirectionType(), 3);
    EXPECT_TRUE(direction(3)->isChecked() && !direction(2)->isChecked());

    button("cmdAdvancedOptions")->click();
    EXPECT_FALSE(dialog.widget("Frame3")->isEnabled());
    auto* profile = qobject_cast<QLineEdit*>(dialog.widget("txtProfileName"));
    auto* password = qobject_cast<QLineEdit*>(dialog.widget("txtPassword"));
    EXPECT_EQ(password->echoMode(), QLineEdit::Password);
    qtForm->userFocus(&qtForm->control("txtProfileName"));
    Q_EMIT profile->textEdited("Typed");
    EXPECT_EQ(c().Profile(), "");
    qtForm->userFocus(&qtForm->control("txtPassword"));  // leaving the box writes it
    EXPECT_EQ(c().Profile(), "Typed");

    button("cmdNav", 2)->click();
    qtForm->resetScheme();
    dialog.syncFromModel();
    auto* combo = qobject_cast<QComboBox*>(dialog.widget("cboSavedScheme"));
    ASSERT_EQ(combo->count(), 2);
    Q_EMIT combo->activated(1);
    EXPECT_EQ(c().SchemeID(), 3);
    EXPECT_EQ(c().OutlookCategory(), "FromScheme");
    EXPECT_TRUE(direction(3)->isChecked());
    button("cmdNav", 1)->click();
  };
  qtForm->startWizard(c());
  EXPECT_FALSE(qtForm->loaded());
}

TEST_F(QtWizardTest, TheCloseBoxClosesLikeCancel) {
  qt::WizardDialog& dialog = qtForm->dialog();
  dialog.session = [&] { dialog.close(); };
  qtForm->startWizard(c());
  EXPECT_FALSE(qtForm->loaded());
  EXPECT_EQ(c().counters().rowsWalked, 0);
}

}  // namespace
}  // namespace dossync
