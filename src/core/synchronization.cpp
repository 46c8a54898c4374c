#include "core/synchronization.h"

#include "core/apartment.h"
#include "core/platform.h"

namespace dossync {

namespace {
const std::string kLoc = kSyncLocation;
}

clsOutlookSynchronization::clsOutlookSynchronization() {
  apartment().currentComponent = this;
  mdiForm_ = nullptr;
  appName_ = "Dossiera";
  mainDatabaseLocation_.clear();
  mainDatabaseOpen_ = false;
  syncDatabaseLocation_.clear();
  syncDatabaseOpen_ = false;
  failedToInitialize_ = false;
  resetOutlookSchemeToDefault();
  schemeID_ = -1;
  closeOutlookWhenFinished_ = false;
  displayLoginDialog_ = true;
  openNewSession_ = true;
  refreshData_ = false;
  showProgress_ = true;
  companyCollection_ = std::make_shared<SelectionCollection>();
  companyCollection_->initialize();
}

clsOutlookSynchronization::~clsOutlookSynchronization() {
  companyCollection_.reset();
  outlookApp_.reset();
  outlookNameSpace_.reset();
  Apartment& a = apartment();
  if (a.currentComponent == this) a.currentComponent = nullptr;
}

void clsOutlookSynchronization::setErrorClass(std::shared_ptr<IErrorService> service) {
  Apartment& a = apartment();
  a.errorService = std::move(service);
  a.generalUtil().setErrorService(a.errorService);
  a.errorServiceSet = true;
}

void clsOutlookSynchronization::setMsgboxClass(std::shared_ptr<IMessageBox> service) {
  Apartment& a = apartment();
  a.msgBox = std::move(service);
  a.msgBoxSet = true;
}

std::shared_ptr<IMessageBox> clsOutlookSynchronization::messageBox() const {
  return apartment().msgBox;
}

void clsOutlookSynchronization::setMainDatabaseLocation(const std::string& path) {
  ErrorFrame f(kLoc + "MainDatabaseLocation");
  apartment().currentComponent = this;
  f.step([&] {
    mainDatabaseLocation_ = path;
    if (apartment().fileUtil().fileExists(path)) {
      mainDatabaseOpen_ = openMainDatabase(path);
    } else {
      mainDatabaseOpen_ = false;
    }
  });
}

hostdb::DataAccessPtr openDataAccess(const std::string& path, const std::string& appName) {
  auto dao = platform::create<hostdb::IDataAccess>(platform::kDataAccess);
  if (dao->isDatabaseOpen()) dao->closeDatabase();
  dao->setErrorService(apartment().errorService);
  dao->setAppName(appName);
  dao->setConnectionKind(2);
  dao->setDatabaseLocation(path);
  dao->setCursorLocation(3);
  dao->setAccessMode(2);
  dao->openDatabase(2);
  return dao;
}

bool clsOutlookSynchronization::openMainDatabase(const std::string& fileName) {
  ErrorFrame f(kLoc + "openMainDatabase");
  apartment().currentComponent = this;
  bool open = false;
  f.step([&] { apartment().hostDb = openDataAccess(fileName, appName_); });
  f.step([&] {
    auto& db = apartment().hostDb;
    open = db && db->isDatabaseOpen();
    if (!open) {
      if (auto mb = messageBox()) {
        mb->showMessage(
            "The outlook synchronization was not able to access the companies database and "
            "needs to close.",
            3, self(), 0, 0, 101);
      }
      failedToInitialize_ = true;
    }
  });
  return open;
}

void clsOutlookSynchronization::resetOutlookSchemeToDefault() {
  ErrorFrame f("kvlabeldx3.dll-frmWizard-resetOutlookSchemeToDefault");
  f.step([&] {
    syncInformationType_ = companyWithDefaultContact;
    syncDirectionType_ = syncFromDossieraToOutlook;
    companyList_ = Dossiera;
    profile_.clear();
    password_.clear();
    outlookCategory_ = "Business";
  });
}

int32_t clsOutlookSynchronization::subscribeExitProgram(std::function<void()> handler) {
  int32_t token = nextHandlerToken_++;
  exitProgramHandlers_[token] = std::move(handler);
  return token;
}

void clsOutlookSynchronization::unsubscribeExitProgram(int32_t token) {
  exitProgramHandlers_.erase(token);
}

void clsOutlookSynchronization::raiseExitProgram() {
  auto handlers = exitProgramHandlers_;  // a handler may unsubscribe
  for (auto& [token, h] : handlers) {
    try {
      h();
    } catch (...) {
      // An event handler's failure stays in the host.
    }
  }
}

}  // namespace dossync
