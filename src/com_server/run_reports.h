// The report of every run the host makes through the component, kept as the command line keeps
// them (report/report_store.h): %LOCALAPPDATA%\dossync\<profile>\reports, the profile being the
// component's Outlook profile ("default" when it has none). A report that cannot be written is
// left out; the run is not affected.
// Thread use: the component's apartment thread.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/run_observer.h"

namespace dossync {
class clsOutlookSynchronization;
}

namespace dossync::com {

std::filesystem::path reportsFolder(const std::string& profile);

// The observer to give the component: it lives as long as the component does.
std::shared_ptr<IRunObserver> reportingObserver(clsOutlookSynchronization& component);

}  // namespace dossync::com
