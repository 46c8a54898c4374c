// The Qt dialog over the real form, offscreen: widgets render the form's controls and what the
// user does in them reaches the form.
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QTimer>
#include <QTreeWidget>
#include <QUrl>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "app_wizard/wizard_command.h"
#include "wizard/wizard_fixture.h"
#include "wizard_qt/wizard_dialog.h"

namespace dossync {
namespace {

// Every file under the folder with its bytes.
std::map<std::string, std::string> filesUnder(const std::string& dir) {
  std::map<std::string, std::string> out;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir))
    if (e.is_regular_file()) out[e.path().string()] = testing::readFile(e.path().string());
  return out;
}

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
    // Finish writes the run's report under $XDG_STATE_HOME, a scheme its settings under
    // $XDG_CONFIG_HOME: the test's own folders.
    for (const char* name : kXdg)
      ::setenv(name, (std::filesystem::path(dir.path()) / name).c_str(), 1);
    qtForm = std::make_shared<qt::QtWizard>();
  }
  void TearDown() override {
    qtForm.reset();
    for (const char* name : kXdg) ::unsetenv(name);
    WizardTest::TearDown();
  }
  static constexpr const char* kXdg[] = {"XDG_STATE_HOME", "XDG_CONFIG_HOME"};
  QPushButton* button(const char* name, int index = -1) {
    return qobject_cast<QPushButton*>(qtForm->dialog().widget(name, index));
  }
  QRadioButton* radio(const char* name, int index) {
    return qobject_cast<QRadioButton*>(qtForm->dialog().widget(name, index));
  }
  QTreeWidgetItem* item(const QString& text) {
    auto found =
        qtForm->dialog().treeWidget()->findItems(text, Qt::MatchExactly | Qt::MatchRecursive);
    return found.empty() ? nullptr : found.front();
  }
  // The dialog of that title the next click opens modally, read and closed inside its loop.
  void onDialog(const QString& title, std::function<void(QWidget&)> read) {
    auto* poll = new QTimer(qApp);
    QObject::connect(poll, &QTimer::timeout, [poll, title, read] {
      for (QWidget* shown : QApplication::topLevelWidgets()) {
        if (!shown->isVisible() || shown->windowTitle() != title) continue;
        poll->deleteLater();
        poll->stop();
        read(*shown);
        shown->close();
        return;
      }
    });
    poll->start(10);
  }
  std::shared_ptr<qt::QtWizard> qtForm;
};

TEST_F(QtWizardTest, TickingACategoryInTheTreeWidgetSelectsItsCompaniesAndFinishCloses) {
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
    EXPECT_EQ(item("Beta Inc")->checkState(0), Qt::Checked);
    EXPECT_EQ(item("Holding")->checkState(0), Qt::Unchecked);

    button("cmdNav", 3)->click();
    EXPECT_EQ(members(1), (std::vector<std::string>{"10", "11", "12"}));
    EXPECT_FALSE(button("cmdNav", 3)->isEnabled());
    button("cmdNav", 4)->click();
  };
  qtForm->startWizard(c());
  ASSERT_TRUE(ran);
  EXPECT_FALSE(qtForm->loaded());
  EXPECT_FALSE(dialog.isVisible());
}

TEST_F(QtWizardTest, OptionButtonsTextBoxesAndTheSchemeListReachTheForm) {
  qt::WizardDialog& dialog = qtForm->dialog();
  testing::execSql(
      host->syncPath,
      "INSERT INTO OutlookScheme (SchemeID, SchemeName, DataFileID, SyncType, InfoType, "
      "CompanyListType, ContactsCategory) VALUES (3, 'Stored', 'DF1', 3, 2, 2, 'FromScheme');");
  dialog.session = [&] {
    radio("optSynchDirection", 3)->click();
    radio("optSynchDirection", 3)->click();  // clicking the chosen option keeps it chosen
    EXPECT_EQ(c().SyncDirectionType(), 3);
    EXPECT_TRUE(radio("optSynchDirection", 3)->isChecked() &&
                !radio("optSynchDirection", 2)->isChecked());

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
    EXPECT_TRUE(radio("optSynchDirection", 3)->isChecked());
    button("cmdNav", 1)->click();
  };
  qtForm->startWizard(c());
  EXPECT_FALSE(qtForm->loaded());
}

TEST_F(QtWizardTest, ShowWhatWillChangePreviewsTheRunOfFinishAndChangesNoFile) {
  app::wizardRunDialogs(c(), "vdir:" + host->outlookRoot)(*qtForm);
  c().StartOutlook();  // the store exists, with one contact that must stay as it is
  testing::saveContact(*c().outlookApplication(), "Kept Contact");
  c().StopOutlook();
  qt::WizardDialog& dialog = qtForm->dialog();
  std::string summary, plan;
  dialog.session = [&] {
    button("cmdNav", 3)->click();
    item("Corporations")->setCheckState(0, Qt::Checked);
    button("cmdNav", 3)->click();
    ASSERT_TRUE(button("cmdPreview")->isVisibleTo(&dialog));
    auto before = filesUnder(dir.path());
    onDialog("What will change", [&](QWidget& shown) {
      summary = shown.findChild<QLabel*>("summary")->text().toStdString();
      plan = shown.findChild<QPlainTextEdit*>("plan")->toPlainText().toStdString();
    });
    button("cmdPreview")->click();
    EXPECT_EQ(filesUnder(dir.path()), before);
    button("cmdNav", 1)->click();
  };
  qtForm->startWizard(c());
  EXPECT_NE(summary.find("create-item"), std::string::npos) << summary;
  EXPECT_NE(plan.find("Acme Ltd"), std::string::npos) << plan;
  EXPECT_NE(plan.find(summary), std::string::npos) << plan;  // the line on top sums the text up
}

TEST_F(QtWizardTest, FinishFromOutlookWithThePairingOptionLinksItsReport) {
  app::wizardRunDialogs(c(), "vdir:" + host->outlookRoot)(*qtForm);
  c().StartOutlook();
  testing::saveContact(*c().outlookApplication(), "Harbour Printing",
                       [](auto& i) { i.setCompanyName("Harbour Printing"); });
  c().StopOutlook();
  qt::WizardDialog& dialog = qtForm->dialog();
  QString reportLabel;
  dialog.session = [&] {
    radio("optSynchDirection", 3)->click();
    button("cmdAdvancedOptions")->click();
    auto* pair = qobject_cast<QCheckBox*>(dialog.widget("chkPairCreated"));
    ASSERT_TRUE(pair->isEnabled() && !pair->isChecked());
    pair->click();
    EXPECT_TRUE(pair->isChecked());
    EXPECT_TRUE(c().pairCreatedCompanies());
    button("cmdNav", 2)->click();
    button("cmdNav", 3)->click();
    ASSERT_NE(item("Harbour Printing"), nullptr);
    item("Harbour Printing")->setCheckState(0, Qt::Checked);
    button("cmdNav", 3)->click();
    onDialog("Synchronization finished",
             [&](QWidget& shown) { reportLabel = shown.findChild<QLabel*>("report")->text(); });
    button("cmdNav", 4)->click();
  };
  qtForm->startWizard(c());
  EXPECT_FALSE(qtForm->loaded());
  auto link = QRegularExpression("href=\"([^\"]+)\"").match(reportLabel);
  ASSERT_TRUE(link.hasMatch()) << reportLabel.toStdString();
  std::string report = QUrl(link.captured(1)).toLocalFile().toStdString();
  EXPECT_TRUE(std::filesystem::exists(report)) << report;
  EXPECT_EQ(std::filesystem::path(report).extension(), ".txt");
}

// The Outlook contact whose CompanyName is that.
outlook::ContactItemPtr itemOfCompany(clsOutlookSynchronization& c, const std::string& name) {
  auto items = c.contactsFolder()->Items();
  for (int32_t i = 1; i <= items->Count(); ++i) {
    auto item = std::dynamic_pointer_cast<outlook::ContactItem>(items->Item(i));
    if (item && item->CompanyName() == name) return item;
  }
  return nullptr;
}

TEST_F(QtWizardTest, BothWaysRunsTheTwoWayModeUnderTheRuleChosen) {
  app::wizardRunDialogs(c(), "vdir:" + host->outlookRoot)(*qtForm);
  // A first two-way run gives every company its item; then a change on each side, and one
  // field changed on both.
  c().setSyncDirectionType(1);
  c().Synchronize();
  c().setSyncDirectionType(2);
  c().StartOutlook();
  auto acme = itemOfCompany(c(), "Acme Ltd");
  ASSERT_NE(acme, nullptr);
  testing::execSql(host->hostPath,
                   "UPDATE Companies SET OfficeNumber = '555-0100', FaxNumber = '111' "
                   "WHERE CompanyID = 10;");
  acme->setBusinessAddressCity("Lyon");
  acme->setBusinessFaxNumber("222");
  acme->Save();
  c().StopOutlook();

  qtForm->dialog().session = [&] {
    ASSERT_TRUE(radio("optSynchDirection", 1)->isVisibleTo(&qtForm->dialog()));
    // Added after the dialog was made, it still follows the other directions with Tab.
    EXPECT_EQ(radio("optSynchDirection", 3)->nextInFocusChain(), radio("optSynchDirection", 1));
    radio("optSynchDirection", 1)->click();
    button("cmdAdvancedOptions")->click();
    radio("optConflict", 2)->click();  // the Outlook value wins
    onDialog("Synchronization finished", [](QWidget&) {});
    button("cmdNav", 4)->click();
  };
  qtForm->startWizard(c());
  ASSERT_FALSE(qtForm->loaded());
  for (const auto& e : host->errors->errors) ADD_FAILURE() << e.description();
  EXPECT_EQ(one("SELECT City || '|' || OfficeNumber || '|' || FaxNumber FROM Companies "
                "WHERE CompanyID = 10;"),
            "Lyon|555-0100|222");
  c().StartOutlook();
  acme = itemOfCompany(c(), "Acme Ltd");
  ASSERT_NE(acme, nullptr);
  EXPECT_EQ(acme->BusinessTelephoneNumber() + "|" + acme->BusinessFaxNumber(), "555-0100|222");
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
