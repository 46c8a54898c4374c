// Per-thread shared state: one set per apartment (thread), shared by every part of the
// component. Two components on one thread share it; the last to open a database or set a
// service wins. The utility objects are created on first use.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "base/utility.h"
#include "core/error_frame.h"
#include "core/run_observer.h"
#include "interfaces/data_access.h"
#include "interfaces/services.h"

namespace dossync {

class clsOutlookSynchronization;

// Work a back end does behind the procedures' back (say, files still being written), finished
// when the outermost procedure returns; what fails then is that procedure's error.
class IdleTask {
 public:
  virtual ~IdleTask() = default;
  virtual void finish() = 0;
  // True (once) when some of the work failed since the last time asked, reported or not: what
  // was committed with it must not be.
  virtual bool takeFailure() { return false; }
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
  // or a message is shown, and when the outermost procedure returns), except while a record is
  // being synchronised (its writes wait for its end). What could not be done is answered, not
  // thrown. `forgetTasks`: the outermost procedure returns.
  //
  // Committing keeps an order, so that nothing the synchronisation database pairs is missing:
  // first the work behind the procedures' back (cards still being written) is finished and made
  // durable, then the host's writes are committed, and only when both succeeded are the
  // synchronisation database's (the pairings); otherwise its group is dropped. The current
  // component hears which (clsOutlookSynchronization::groupEnded), for its counts.
  std::vector<RuntimeError> idleDatabases(bool forgetTasks = false);
  // A point where what was written so far forms a whole (the synchronisation driver calls it
  // between records): once either database holds grouped writes 100 ms old, everything is
  // committed in the order above. Answers what could not be done.
  //
  // Committing costs time of its own, the cards' flush to the disk above all, and that grows
  // with the folder: commit points are spaced so that committing takes about a tenth of the
  // run (kCommitPace times what the last commit took must pass after it), but never more than
  // kCommitSpacing apart.
  std::vector<RuntimeError> commitPoint();
  static constexpr int kCommitPace = 9;
  static constexpr std::chrono::milliseconds kCommitSpacing{1000};
  // The record being synchronised (the driver's pass): its writes in both databases are undone
  // by endRecord(false), kept with the group by endRecord(true). `writesHost`: the run writes
  // the host database as well as the synchronisation database; the group then holds the host's
  // write lock before anything of the record is written (IDataAccess::holdWrites), so that
  // runs writing both databases take the two locks in one order.
  void beginRecord(bool writesHost = false);
  void endRecord(bool keep);
  bool inRecord = false;

  FileUtil& fileUtil();
  GeneralUtil& generalUtil();
  bool hasGeneralUtil() const { return generalUtil_ != nullptr; }

  // The message pump and the mouse pointer, through the host's hooks.
  void doEvents() { hostUi->doEvents(); }
  void setMousePointer(int32_t pointer) { hostUi->setMousePointer(pointer); }

 private:
  std::vector<RuntimeError> commitAll(bool forgetTasks);
  std::chrono::steady_clock::time_point lastCommitEnd_{};
  std::chrono::steady_clock::duration lastCommitCost_{};
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
