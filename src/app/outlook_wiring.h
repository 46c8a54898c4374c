// Which back end answers "Outlook.Application" for the command line:
//   --outlook vdir:DIR        a profiles root of vCard folders, or a plain vdir (DIR holds the
//                             cards itself, as khard and vdirsyncer keep them: vdir_store.h),
//                             whose state then goes to $XDG_STATE_HOME/dossync/vdir/<name>;
//   --outlook carddav:URL     an address book on a CardDAV server (http:// or https://), its
//                             copy kept under $XDG_DATA_HOME/dossync/carddav; the profile is
//                             the account's user name, the password its password;
//   nothing                   the vCard store under $XDG_DATA_HOME/dossync/outlook (or
//                             ~/.local/share/dossync/outlook).
#pragma once

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "interfaces/object_model.h"

namespace dossync::app {
struct Credentials;
}

namespace dossync::app {

// The profiles root of the store an --outlook value names ("" for the default): for a CardDAV
// address book, the root its copies are kept in. Throws RuntimeError 5 for a kind of store that
// is not known.
std::string vdirRoot(const std::string& outlookSpec);

// The folder of that profile of the store: ROOT/<profile>, the profile "" being the store's
// default; for a plain vdir, its state folder. Throws RuntimeError 5 as vdirRoot does, and for a
// profile name that is no folder name.
std::string profileFolder(const std::string& outlookSpec, const std::string& profile);

// Where the reports of that profile's runs are kept, under $XDG_STATE_HOME/dossync/reports
// (~/.local/state/dossync/reports by default), one folder per store and profile:
//   the default store          reports/<profile>;
//   a plain vdir               reports/<name>, <name> made from the folder (vdir::plainVdirName);
//   a profiles root, CardDAV   reports/<name>/<profile>, <name> made the same way from the root
//                              (for CardDAV, its copy's root: one per server and address book).
// Throws RuntimeError 5 as profileFolder does.
std::string reportsFolder(const std::string& outlookSpec, const std::string& profile);
// $XDG_STATE_HOME/dossync (or ~/.local/state/dossync): what dossync keeps of its own (state of
// stores it does not lay out itself, reports, the jobs' last outcomes).
std::filesystem::path stateRoot();
// Where the reports of that profile were kept before: its folder's reports/ ("" for a plain
// vdir, whose reports never moved).
std::string oldReportsFolder(const std::string& outlookSpec, const std::string& profile);

// Registers the store with the platform as "Outlook.Application". `insecure`: a CardDAV server's
// TLS certificate is not verified.
void registerOutlook(const std::string& outlookSpec, bool insecure = false);

// For the stores made after this call: a card changed on a CardDAV server after the run read it
// keeps the server's value of a property both changed (a two-way run whose conflicts go to the
// address book); false (the default) keeps the run's. Other stores have no such race.
void keepServerValuesOnConflict(bool keep);

// Whether `vdir:DIR` names a plain vdir (cards in DIR itself, as khard and vdirsyncer keep them),
// which dossync uses as its one profile.
bool isPlainStore(const std::string& outlookSpec);

// Whether the store names a server (whose logon is worth checking before any work).
bool isServerStore(const std::string& outlookSpec);

// A logged-on session of the registered store, for the commands that work on it directly.
struct Session {
  std::shared_ptr<outlook::Application> application;
  std::shared_ptr<outlook::NameSpace> nameSpace;
};
Session openSession(const std::string& profile, const std::string& password = "");

// For a store on a server, logs on before anything else is opened, so that a refused logon is
// one clear error on `err` (answers the exit code, kExitBusy for a server out of reach), not one
// per record; the session is kept in *held and later logons of the run attach to it. A logon
// refused without a password asks for one when standard input is a terminal (credentials.h),
// and keeps it in `c`. Other stores: 0, nothing done.
int checkServerLogon(Credentials& c, Session* held, std::ostream& err);

}  // namespace dossync::app
