// The dossync command line: parses the arguments, wires the real back ends into the platform
// and runs one command. Answers the process exit code (0 done, 2 failed to initialise,
// 3 ExitProgram, 64 usage, 1 other failures).
#pragma once

#include <iosfwd>
#include <string>

namespace dossync::app {

// "dossync VERSION", as --version prints it.
std::string versionLine();

int runCli(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace dossync::app
