// Members that arrive with the Outlook session, the synchronisation driver and the wizard.
#include "core/synchronization.h"

namespace dossync {

void clsOutlookSynchronization::openSynchForm() {
  ErrorFrame f(std::string(kSyncLocation) + "openSyncForm");
}

bool clsOutlookSynchronization::Synchronize() {
  ErrorFrame f(std::string(kSyncLocation) + "Synchronize");
  return false;
}

}  // namespace dossync
