// What the command line checks before it lets the component touch a file the user named, so
// that a mistyped path is refused with the option to correct instead of being changed:
//   refuseMistakenDatabases  a --sync-db that is some other file (the component would replace
//                            it with a new database), or a host database and a synchronisation
//                            database that look swapped (the component would add its tables
//                            to the practice's database);
//   prepareStore             a vdir store that is not there: commands that only read never
//                            make it; those that write make its folder only inside a folder
//                            that exists, and say so;
//   displayProblem           the wizard on a desktop that has no display to open.
#pragma once

#include <iosfwd>
#include <string>

namespace dossync::app {

// kExitOk, or kExitUsage after saying on err which option names what. `replaceSyncDb`: the
// user asked for a --sync-db that is not a database to be replaced.
int refuseMistakenDatabases(const std::string& hostDb, const std::string& syncDb,
                            bool replaceSyncDb, std::ostream& err);

enum class StoreUse { Read, Write };
// For a vdir store (--outlook vdir:DIR, or the default one): Read answers whether there is a
// store to read (false: nothing to read, and the store is not to be opened, since opening
// makes it); a store given by the user that is not there at all is an error then. Write makes
// the folder of a given store when its parent folder exists, saying so on err (unless quiet).
// Answers kExitOk with `present` set, or an exit code after saying why on err.
int prepareStore(const std::string& outlookSpec, const std::string& profile, StoreUse use,
                 bool& present, std::ostream& err, bool quiet = false);

// Why a window cannot be opened here ("" when it can): QT_QPA_PLATFORM, DISPLAY and
// WAYLAND_DISPLAY as Qt reads them.
std::string displayProblem();

// The line that follows the component's failed-to-initialise message: which option names the
// database that did not open (as the apartment's data access objects tell).
std::string initFailureHint(const std::string& hostDb, const std::string& syncDb);

}  // namespace dossync::app
