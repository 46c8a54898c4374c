// Per-thread shared state: one set per apartment (thread), shared by every part of the
// component. Two components on one thread share it; the last to open a database or set a
// service wins. The utility objects are created on first use.
#pragma once

#include <memory>
#include <vector>

#include "core/error.h"
#include "core/run_observer.h"
#include "core/services.h"
#include "core/utility.h"
#include "interfaces/data_access.h"

namespace dossync {

class clsOutlookSynchronization;

// Work a back end does behind the procedures' back (say, files still being written), finished
// when the outermost procedure returns; what fails then is that procedure's error.
class IdleTask {
 public:
  virtual ~IdleTask() = default;
  virtual void finish() = 0;
};

struct Apartment {
  hostdb::DataAccessPtr hostDb;  // the host (main) database
  hostdb::DataAccessPtr syncDb;  // the synchronisation database
  clsOutlookSynchronization* currentComponent = nullptr;
  std::shared_ptr<Object> currentWizard;
  // The observer of the run going on (core/run_observer.h); nullptr outside runs.
  IRunObserver* runObserver = nullptr;

  std::shared_ptr<IErrorService> errorService;
  bool errorServiceSet = false;
  std::shared_ptr<IMessageBox> msgBox;
  bool msgBoxSet = false;
  std::shared_ptr<IHostUi> hostUi = std::make_shared<IHostUi>();
  // Procedures (error frames) running on this thread; back at 0, the databases go idle.
  int32_t procedureDepth = 0;
  // Finished, and forgotten, when the outermost procedure returns. Adding one twice adds it once.
  void finishWhenIdle(const std::shared_ptr<IdleTask>& task);
  std::vector<std::weak_ptr<IdleTask>> idleTasks;

  // The databases go idle: read snapshots end and grouped writes are committed (before an error
  // or a message is shown, and when the outermost procedure returns). What could not be
  // committed is answered, not thrown.
  std::vector<RuntimeError> idleDatabases();
  // A point where what was written so far forms a whole (the synchronisation driver calls it
  // between records): grouped writes older than 100 ms are committed here, after the work
  // behind the procedures' back (cards still being written) is done, so that no pairing is
  // committed before what it pairs with exists. Throws what could not be done.
  void commitPoint();

  FileUtil& fileUtil();
  GeneralUtil& generalUtil();
  bool hasGeneralUtil() const { return generalUtil_ != nullptr; }

  // The message pump and the mouse pointer, through the host's hooks.
  void doEvents() { hostUi->doEvents(); }
  void setMousePointer(int32_t pointer) { hostUi->setMousePointer(pointer); }

 private:
  std::unique_ptr<FileUtil> fileUtil_;
  std::unique_ptr<GeneralUtil> generalUtil_;
};

Apartment& apartment();

template <class Call>
void observeRun(Call&& call) {
  IRunObserver* o = apartment().runObserver;
  if (!o) return;
  try {
    call(*o);
  } catch (...) {
    // What the observer could not note is not the run's concern.
  }
}

// Forgets everything of this thread's apartment (tests, and a host shutting down).
void resetApartment();

}  // namespace dossync
