// dossync wizard: the synchronisation wizard on the desktop, or rendered offscreen to PNG files.
//   dossync wizard --host-db H --sync-db S [--outlook vdir:DIR|carddav:URL [--profile USER
//                  --password-file FILE]] [--data-file ID]
//   dossync wizard --screenshots DIR [--host-db H --sync-db S --outlook vdir:DIR]
// Without a host database the screenshots use a demonstration practice and a few Outlook
// contacts in a temporary folder.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

#include "app/credentials.h"

namespace CLI {
class App;
}

namespace dossync {
class clsOutlookSynchronization;
}
namespace dossync::qt {
class QtWizard;
}

namespace dossync::app {

struct WizardOptions {
  std::string hostDb, syncDb, outlook, profile, dataFile, screenshots, job;
  PasswordOptions password;
  bool insecure = false, replaceSyncDb = false;
  int32_t companyList = 2;
};

struct WizardCommand {
  CLI::App* command = nullptr;
  WizardOptions options;
};

// Adds the subcommand to app; the answer must outlive parsing.
void addWizardCommand(CLI::App& app, WizardCommand& wizard);
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
