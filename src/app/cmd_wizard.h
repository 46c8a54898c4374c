// dossync wizard: the synchronisation wizard on the desktop, or rendered offscreen to PNG files.
//   dossync wizard --host-db H --sync-db S [--outlook vdir:DIR|carddav:URL [--profile USER
//                  --password PW]] [--data-file ID]
//   dossync wizard --screenshots DIR [--host-db H --sync-db S --outlook vdir:DIR]
// Without a host database the screenshots use a demonstration practice and a few Outlook
// contacts in a temporary folder.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace dossync::app {

struct WizardOptions {
  std::string hostDb, syncDb, outlook, profile, password, dataFile, screenshots;
  bool insecure = false;
  int32_t companyList = 2;
};

struct WizardCommand {
  CLI::App* command = nullptr;
  WizardOptions options;
};

// Adds the subcommand to app; the answer must outlive parsing.
void addWizardCommand(CLI::App& app, WizardCommand& wizard);
int runWizard(const WizardOptions& o, std::ostream& out, std::ostream& err);

}  // namespace dossync::app
