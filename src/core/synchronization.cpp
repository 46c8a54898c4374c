#include "core/synchronization.h"

#include "base/platform.h"
#include "core/apartment.h"

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
  // A message is about to be shown: the user and the host see every change made so far.
  auto failed = apartment().idleDatabases();
  if (!failed.empty()) throw failed.front();
  return apartment().msgBox;
}

void clsOutlookSynchronization::setMainDatabaseLocation(const std::string& path) {
  ErrorFrame f(kLoc + "MainDatabaseLocation");
  apartment().currentComponent = this;
  mainDatabaseLocation_ = path;
  f.step([&] {
    if (apartment().fileUtil().fileExists(path) || isServerLocation(path)) {
      mainDatabaseOpen_ = openMainDatabase(path);
    } else {
      mainDatabaseOpen_ = false;
    }
  });
}

bool openDataAccess(ErrorFrame& f, hostdb::DataAccessPtr& slot, const std::string& path,
                    const std::string& appName) {
  // The new object answers for the database from the start: whatever fails below, the
  // previous one is gone.
  f.step([&] {
    slot.reset();
    slot = platform::create<hostdb::IDataAccess>(platform::kDataAccess);
  });
  auto dao = [&]() -> hostdb::IDataAccess& {
    if (!slot) throw RuntimeError(kObjectVariableNotSet, "Object variable not set: no data access");
    return *slot;
  };
  f.step([&] {
    if (dao().isDatabaseOpen()) dao().closeDatabase();
  });
  f.step([&] { dao().setErrorService(apartment().errorService); });
  f.step([&] { dao().setAppName(appName); });
  f.step([&] { dao().setConnectionKind(2); });
  f.step([&] { dao().setDatabaseLocation(path); });
  f.step([&] { dao().setCursorLocation(3); });
  f.step([&] { dao().setAccessMode(2); });
  f.step([&] { dao().openDatabase(2); });
  // An object that cannot tell is taken for closed.
  return f.test([&] { return slot && slot->isDatabaseOpen(); });
}

bool clsOutlookSynchronization::openMainDatabase(const std::string& fileName) {
  ErrorFrame f(kLoc + "openMainDatabase");
  apartment().currentComponent = this;
  bool open = openDataAccess(f, apartment().hostDb, fileName, appName_);
  // A database that did not open is fatal to the host whatever the error service chose.
  if (!open) {
    f.step([&] {
      if (auto mb = messageBox()) {
        mb->showMessage(
            "The outlook synchronization was not able to access the companies database and "
            "needs to close.",
            3, self(), 0, 0, 101);
      }
    });
    failedToInitialize_ = true;
  }
  // The host application reads the file while a run writes it: a run's writes are committed
  // a record at a time, at most about 100 ms apart (commit points), never half a record.
  if (open) f.step([&] { apartment().hostDb->groupWrites(true); });
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

void clsOutlookSynchronization::groupEnded(bool committed) {
  if (apartment().runObserver) observeRun([&](IRunObserver& o) { o.groupEnded(committed); });
  if (committed) {
    committed_ = counters_;
    groupRecords_ = 0;
    return;
  }
  Counters now = counters_;
  counters_ = committed_;
  counters_.rowsWalked = now.rowsWalked;
  counters_.recordsFailed = now.recordsFailed + groupRecords_;
  counters_.commitsFailed = now.commitsFailed + 1;
  committed_ = counters_;
  groupRecords_ = 0;
}

}  // namespace dossync
