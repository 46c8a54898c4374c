// dossync wizard: the synchronisation wizard on the desktop, or rendered offscreen to PNG files.
//   dossync wizard --host-db H --sync-db S [--outlook vdir:DIR|carddav:URL [--profile USER
//                  --password-file FILE]] [--data-file ID]
//   dossync wizard --screenshots DIR [--host-db H --sync-db S --outlook vdir:DIR]
// Without a host database the screenshots use a demonstration practice and a few Outlook
// contacts in a temporary folder.
//
// The wizard lives in a program of its own, dossync-wizard (app_wizard/), installed beside
// dossync, so that no other command loads Qt or libsecret. dossync checks the options (defined
// here once, for both programs) and then becomes that program.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "app/credentials.h"

namespace CLI {
class App;
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

// The wizard's options on cmd; the answer must outlive parsing.
void addWizardOptions(CLI::App* cmd, WizardOptions& o);
// Adds the subcommand to app, with its options.
void addWizardCommand(CLI::App& app, WizardCommand& wizard);

// dossync-wizard in the folder of the running program.
std::filesystem::path wizardProgram();
// Replaces this process with wizardProgram() given args (the wizard's arguments, as the user
// gave them to dossync), so that its exit code and signals are the command's. Returns only when
// it cannot: kExitInitFailed, having said why on err.
int startWizardProgram(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace dossync::app
