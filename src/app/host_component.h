// The component as the command line hosts create it: services first, then the data file and
// both databases, with ExitProgram noted. Hold a HostComponent in place (the event handler
// refers to it).
#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "base/error.h"
#include "core/synchronization.h"
#include "interfaces/services.h"

namespace dossync::app {

struct HostComponent {
  std::unique_ptr<clsOutlookSynchronization> component;
  bool exitRequested = false;
};

// Answers kExitOk, or kExitInitFailed after saying on err why the databases did not open.
int openHostComponent(HostComponent& host, std::shared_ptr<IErrorService> errors,
                      std::shared_ptr<IMessageBox> messages, const std::string& dataFile,
                      const std::string& hostDb, const std::string& syncDb, std::ostream& err);

}  // namespace dossync::app
