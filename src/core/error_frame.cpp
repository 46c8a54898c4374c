#include "core/error_frame.h"

#include <exception>
#include <vector>

#include "core/apartment.h"
#include "core/synchronization.h"

namespace dossync {
namespace {

thread_local uint64_t tErrorsReported = 0;

}  // namespace

ErrorFrame::ErrorFrame(std::string location) : location_(std::move(location)) {
  Apartment& a = apartment();
  ++a.procedureDepth;
  if (a.errorServiceSet && a.errorService) {
    a.errorService->enterProcedure(location_);
    entered_ = true;
  }
}

ErrorFrame::~ErrorFrame() {
  Apartment& a = apartment();
  // The outermost procedure is returning: what the back ends left to do in the background is
  // done now, and a failure of it is this procedure's.
  if (a.procedureDepth == 1) {
    for (const auto& e : a.idleDatabases(true)) report(e);
  }
  if (entered_ && a.errorServiceSet && a.errorService) {
    try {
      a.errorService->leaveProcedure();
    } catch (...) {
      // A failing error service must not take the host down.
    }
  }
  --a.procedureDepth;
}

void ErrorFrame::handleCurrentException() {
  try {
    throw;
  } catch (const RuntimeError& e) {
    handle(e);
  } catch (const std::bad_alloc&) {
    handle(RuntimeError(kOutOfMemory, "Out of memory", location_));
  } catch (const std::exception& e) {
    handle(RuntimeError(kInvalidProcedureCall, e.what(), location_));
  } catch (...) {
    handle(RuntimeError(kInvalidProcedureCall, "Unknown failure", location_));
  }
}

// Nothing is left uncommitted while the host tells the user, except the record being
// synchronised: it is undone as a whole when the driver leaves it.
void ErrorFrame::handle(const RuntimeError& error) {
  auto failed = apartment().idleDatabases();
  report(error);
  for (const auto& e : failed) report(e);
}

uint64_t ErrorFrame::errorsReported() {
  return tErrorsReported;
}

void ErrorFrame::report(const RuntimeError& error) {
  Apartment& a = apartment();
  ++tErrorsReported;
  observeRun([&](IRunObserver& o) { o.errorReported(error, location_); });
  int32_t action = kActionLeave;
  if (a.errorServiceSet && a.errorService) {
    try {
      a.errorService->recordError(error);
      a.errorService->reportError();
      action = a.errorService->chooseAction();
    } catch (...) {
      action = kActionLeave;
    }
  }
  switch (action) {
    case kActionResume:
      return;
    case kActionExitProgram:
      leaving_ = true;
      if (a.currentComponent) a.currentComponent->raiseExitProgram();
      return;
    default:
      leaving_ = true;
      return;
  }
}

}  // namespace dossync
