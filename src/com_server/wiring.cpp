// What the component reaches on Windows: databases over ODBC, Outlook by automation, and the
// host's own services (progress dialog, wizard).
#include <mutex>

#include "backends/odbc/odbc_data_access.h"
#include "backends/outlook_com/outlook_automation.h"
#include "com_server/host_services.h"
#include "com_server/module.h"

namespace dossync::com {

void wireBackEnds() {
  static std::once_flag once;
  std::call_once(once, [] {
    odbc::registerDataAccess();
    outlook_com::registerOutlookAutomation();
    registerHostClasses();
  });
}

}  // namespace dossync::com
