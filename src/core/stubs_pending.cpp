// Members that arrive with the Outlook session, the synchronisation driver and the wizard.
#include "core/synchronization.h"

namespace dossync {

void clsOutlookSynchronization::openSynchForm() {
  ErrorFrame f(std::string(kSyncLocation) + "openSyncForm");
}

}  // namespace dossync
