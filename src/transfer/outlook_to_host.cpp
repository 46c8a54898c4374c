// One Outlook contact -> a host company with its default contact.
#include "transfer/transfer_support.h"

namespace dossync {

int32_t clsOutlookSynchronization::createNewOutlookCompanyWithDefaultContactInDossiera(
    std::string outlookEntryID, int32_t companyID) {
  ErrorFrame f(std::string(kSyncLocation) + "createNewOutlookCompanyWithDefaultContactInDossiera");
  refreshData_ = true;
  return 0;
}

}  // namespace dossync
