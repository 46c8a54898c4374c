// The dossync command line: parses the arguments, wires the real back ends into the platform
// and runs one command. Answers the process exit code (0 done, 2 failed to initialise,
// 3 ExitProgram, 64 usage, 1 other failures).
#pragma once

#include <iosfwd>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace dossync::app {

struct PasswordOptions;
struct SyncOptions;

int runCli(int argc, char** argv, std::ostream& out, std::ostream& err);
// What every dossync program does first: files readable by their owner only, the allocator's
// settings.
void setUpProcess();

// -q (errors only) and -v (a line per record) on cmd, the one excluding the other.
void addVerbosityOptions(CLI::App* cmd, bool& quiet, bool& verbose);

// "dossync VERSION", as --version prints it.
std::string versionLine();

// The options of `dossync sync` on cmd (a job's keys are their long names); answers --direction.
CLI::Option* addSyncOptions(CLI::App* cmd, SyncOptions& o);
// --outlook, --profile, the password options and --insecure.
void addOutlookOptions(CLI::App* cmd, std::string& outlook, std::string& profile,
                       PasswordOptions& password, bool& insecure);

}  // namespace dossync::app
