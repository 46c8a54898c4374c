#include "app/cmd_wizard.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstring>
#include <ostream>

#include <unistd.h>

#include "app/cli.h"
#include "app/commands.h"

namespace dossync::app {

void addWizardOptions(CLI::App* cmd, WizardOptions& o) {
  cmd->add_option("--host-db", o.hostDb, "The host database");
  cmd->add_option("--sync-db", o.syncDb, "The synchronisation database (created when needed)");
  addOutlookOptions(cmd, o.outlook, o.profile, o.password, o.insecure);
  cmd->add_option("--data-file", o.dataFile, "The host data file's unique id");
  cmd->add_option("--company-list", o.companyList,
                  "Which host list to choose from: 1 shown clients, 2 the whole address book")
      ->check(CLI::IsMember({1, 2}));
  cmd->add_flag("--replace-sync-db", o.replaceSyncDb,
                "Let a --sync-db file that is not a database be replaced by a new one");
  cmd->add_option("--job", o.job,
                  "Take the practice, the store and the profile from this job of config.toml "
                  "(without --host-db and --sync-db: the only job there)");
  cmd->add_option("--screenshots", o.screenshots,
                  "Render the steps offscreen into this folder instead of opening the wizard "
                  "(a demonstration practice when no --host-db is given)");
}

void addWizardCommand(CLI::App& app, WizardCommand& wizard) {
  wizard.command = app.add_subcommand(
      "wizard", "Open the synchronisation wizard, or render its steps to PNG files offscreen");
  addWizardOptions(wizard.command, wizard.options);
}

std::filesystem::path wizardProgram() {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (ec ? std::filesystem::path() : self.parent_path()) / "dossync-wizard";
}

int startWizardProgram(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  std::string program = wizardProgram().string();
  std::vector<std::string> words{program};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  out.flush();
  err.flush();
  ::execv(program.c_str(), argv.data());
  int why = errno;
  err << "dossync: wizard: cannot start " << program << ": "
      << (why == ENOENT ? "there is no such file (dossync-wizard is installed beside dossync)"
                        : std::strerror(why))
      << "\n";
  return kExitInitFailed;
}

}  // namespace dossync::app
