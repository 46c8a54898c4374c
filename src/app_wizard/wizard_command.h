// The dossync-wizard program: the synchronisation wizard on the desktop, or rendered offscreen
// to PNG files, over the command line's databases, stores, jobs and reports. `dossync wizard`
// checks its options (app/cmd_wizard.h defines them for both programs) and hands them here.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include "app/cmd_wizard.h"

namespace dossync {
class clsOutlookSynchronization;
}
namespace dossync::qt {
class QtWizard;
}

namespace dossync::app {

// Parses the wizard's options from the arguments (as `dossync wizard` took them) and runs it;
// answers the process exit code.
int runWizardProgram(int argc, char** argv, std::ostream& out, std::ostream& err);
int runWizard(const WizardOptions& o, std::ostream& out, std::ostream& err);

// Gives the component a recorder that writes each run's report into the profile's reports/
// folder of that store (run_report.h), and answers the setup of a Qt wizard over it: "Show what
// will change" previews the run Finish would make and shows its plan; after Finish, a summary
// of the run with a link to its report. The wizard offers "Both ways", which Finish runs as
// dossync's two-way mode under the conflict rule chosen among the advanced options (kept per
// scheme in the scheme settings file).
std::function<void(qt::QtWizard&)> wizardRunDialogs(clsOutlookSynchronization& component,
                                                    const std::string& outlookSpec);

}  // namespace dossync::app
