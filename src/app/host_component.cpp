#include "app/host_component.h"

#include <ostream>

#include "app/commands.h"
#include "app/databases.h"
#include "app/path_guards.h"

namespace dossync::app {

int openHostComponent(HostComponent& host, std::shared_ptr<IErrorService> errors,
                      std::shared_ptr<IMessageBox> messages, const std::string& dataFile,
                      const std::string& hostDb, const std::string& syncDb, std::ostream& err) {
  host.component = std::make_unique<clsOutlookSynchronization>();
  auto& c = *host.component;
  c.subscribeExitProgram([&host] { host.exitRequested = true; });
  c.setErrorClass(std::move(errors));
  c.setMsgboxClass(std::move(messages));
  c.setDataFileUniqueID(dataFile);
  c.setMainDatabaseLocation(hostDb);
  c.setSyncDatabaseLocation(syncDb);
  if (c.FailedToInitializeFlag()) {
    err << initFailureHint(hostDb, syncDb) << "\n";
    return kExitInitFailed;
  }
  if (!c.mainDatabaseOpen()) {
    err << "dossync: the host database " << databases::displayName(hostDb)
        << " does not exist: check --host-db (init-host makes a new one)\n";
    return kExitInitFailed;
  }
  return kExitOk;
}

}  // namespace dossync::app
