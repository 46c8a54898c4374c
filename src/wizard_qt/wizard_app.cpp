#include "wizard_qt/wizard_app.h"

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QTimer>
#include <QTreeWidget>

#include <filesystem>

#include "core/apartment.h"
#include "core/synchronization.h"
#include "wizard/driver.h"
#include "wizard_qt/qt_services.h"
#include "wizard_qt/wizard_dialog.h"

namespace dossync::qt {

int withQtApplication(bool offscreen, const std::function<int()>& body) {
  if (offscreen && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  static int argc = 1;
  static char name[] = "dossync";
  static char* argv[] = {name, nullptr};
  QApplication app(argc, argv);
  QApplication::setApplicationDisplayName("Dossiera");
  installQtServices();
  int code = body();
  apartment().hostUi = std::make_shared<IHostUi>();
  return code;
}

void runWizardWindow(clsOutlookSynchronization& component, std::function<void(QtWizard&)> setup) {
  QMainWindow window;
  window.setWindowTitle("Dossiera");
  auto* label = new QLabel("Dossiera: the synchronisation wizard runs over this window.");
  label->setAlignment(Qt::AlignCenter);
  window.setCentralWidget(label);
  window.resize(820, 560);
  window.show();
  component.setMDIForm(std::make_shared<WindowObject>(&window));
  registerQtWizard(std::move(setup));
  component.openSynchForm();
  component.setMDIForm(nullptr);
}

namespace {

// The first category with a company directly beneath it, in tree order.
std::string categoryWithCompanies(wizard::TreeView& t, const char* childPrefix) {
  for (int32_t i = 1; i <= t.count(); ++i) {
    const wizard::TreeNode& n = t.node(i);
    if (n.key.rfind("Category:", 0) != 0) continue;
    for (int32_t c : n.children)
      if (t.node(c).key.rfind(childPrefix, 0) == 0) return n.key;
  }
  return "";
}

}  // namespace

std::vector<std::string> renderScreenshots(clsOutlookSynchronization& component,
                                           const std::string& dir,
                                           std::function<void(QtWizard&)> setup) {
  std::filesystem::create_directories(dir);
  std::vector<std::string> written;
  auto form = std::make_shared<QtWizard>();
  if (setup) setup(*form);
  WizardDialog& dialog = form->dialog();
  auto shoot = [&](const std::string& name) {
    dialog.syncFromModel();
    QCoreApplication::processEvents();
    std::string path = (std::filesystem::path(dir) / name).string();
    if (dialog.grab().save(QString::fromStdString(path), "PNG")) written.push_back(path);
  };
  auto showTicked = [&](const std::string& key) {
    if (key.empty()) return;
    if (QTreeWidgetItem* it = dialog.item(form->tree().find(key)->index)) {
      dialog.treeWidget()->setCurrentItem(it);
      dialog.treeWidget()->scrollToItem(it, QAbstractItemView::PositionAtTop);
    }
  };
  dialog.session = [&] {
    wizard::WizardDriver d(*form);
    shoot("wizard-1-welcome.png");

    d.click("cmdNav", 3);
    std::string category = categoryWithCompanies(form->tree(), "Company:");
    d.tick(category);
    showTicked(category);
    shoot("wizard-2-select-from-dossiera.png");

    d.click("cmdNav", 3);
    d.type("txtSaveName", "Month-end clients");
    shoot("wizard-3-finish.png");

    if (form->control("cmdPreview").visible) {
      // The dialog is modal: it is pictured and closed from inside its own loop, once the
      // preview's run (and its progress dialog) is over.
      QTimer poll;
      QObject::connect(&poll, &QTimer::timeout, [&] {
        for (QWidget* shown : QApplication::topLevelWidgets()) {
          if (!shown->isVisible() || shown->windowTitle() != "What will change") continue;
          poll.stop();
          shown->resize(720, 460);
          QCoreApplication::processEvents();
          std::string path = (std::filesystem::path(dir) / "wizard-6-preview.png").string();
          if (shown->grab().save(QString::fromStdString(path), "PNG")) written.push_back(path);
          shown->close();
          return;
        }
      });
      poll.start(20);
      d.click("cmdPreview");
    }

    d.click("cmdNav", 2);
    d.click("cmdNav", 2);
    d.click("cmdAdvancedOptions");
    d.click("optInfoType", 3);
    d.type("txtContactsCategory", "Business");
    shoot("wizard-4-advanced-options.png");

    d.click("cmdNav", 2);
    d.click("cmdNav", 3);
    std::string company;
    for (int32_t i = 1; i <= form->tree().count() && company.empty(); ++i) {
      const wizard::TreeNode& n = form->tree().node(i);
      if (n.key.rfind("Company:", 0) == 0 && n.children.size() >= 2) company = n.key;
    }
    d.tick(company);
    showTicked(company);
    shoot("wizard-2-select-contacts.png");

    d.click("cmdNav", 2);
    d.click("optSynchDirection", 3);
    d.click("cmdNav", 3);
    std::string group = categoryWithCompanies(form->tree(), "Contact:");
    d.tick(group);
    if (!group.empty()) {  // opened as a user would, to show the marks beneath it
      if (QTreeWidgetItem* it = dialog.item(form->tree().find(group)->index)) it->setExpanded(true);
    }
    shoot("wizard-2-select-from-outlook.png");

    if (form->bothWaysOffered()) {  // the conflict rule among the advanced options
      d.click("cmdNav", 2);
      d.click("optSynchDirection", 1);
      d.click("cmdAdvancedOptions");
      shoot("wizard-5-both-ways.png");
    }

    d.click("cmdNav", 1);
  };
  form->startWizard(component);
  return written;
}

}  // namespace dossync::qt
