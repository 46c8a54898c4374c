#include "app/path_guards.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <vector>

#include "app/commands.h"
#include "app/console_services.h"
#include "app/databases.h"
#include "app/outlook_wiring.h"
#include "backends/sql/database.h"
#include "base/error.h"
#include "base/value.h"
#include "core/apartment.h"

namespace dossync::app {
namespace fs = std::filesystem;
namespace {

// The tables of an existing database, read without changing it; nothing when it cannot be
// opened (the component then says why).
std::vector<std::string> tablesOf(const std::string& location) {
  std::vector<std::string> names;
  try {
    auto db = databases::open(location);
    sql::Statement st(*db, databases::isServer(location)
                               ? "SELECT table_name FROM information_schema.tables WHERE "
                                 "table_schema = current_schema();"
                               : "SELECT name FROM sqlite_master WHERE type IN ('table', 'view');");
    while (st.step()) names.push_back(st.column(0).s);
  } catch (const RuntimeError&) {
  }
  return names;
}

bool holds(const std::vector<std::string>& tables, const std::string& name) {
  return std::any_of(tables.begin(), tables.end(),
                     [&](const std::string& t) { return value::equalsIgnoreCase(t, name); });
}

bool isSqliteFile(const fs::path& file) {
  char header[16] = {};
  std::ifstream in(file, std::ios::binary);
  return in.read(header, sizeof header) &&
         std::string(header, 16) == std::string("SQLite format 3\0", 16);
}

// A file the component would take for a database: there, and a database or empty.
bool existingDatabase(const std::string& location) {
  if (databases::isServer(location)) return true;
  std::error_code ec;
  return fs::is_regular_file(location, ec) && fs::file_size(location, ec) > 0 &&
         isSqliteFile(location);
}

}  // namespace

int refuseMistakenDatabases(const std::string& hostDb, const std::string& syncDb,
                            bool replaceSyncDb, std::ostream& err) {
  if (!databases::isServer(syncDb)) {
    std::error_code ec;
    fs::file_status status = fs::status(syncDb, ec);
    if (fs::is_directory(status)) {
      err << "dossync: --sync-db " << syncDb << " is a folder: give the file of the "
          << "synchronisation database (a new one is made there when it is missing)\n";
      return kExitUsage;
    }
    if (fs::exists(status) && !replaceSyncDb &&
        (!fs::is_regular_file(status) ||
         (fs::file_size(syncDb, ec) > 0 && !isSqliteFile(syncDb)))) {
      err << "dossync: --sync-db " << syncDb << " is not a database: nothing was changed. "
          << "Check the path, or give --replace-sync-db to replace that file with a new "
          << "synchronisation database\n";
      return kExitUsage;
    }
  }
  // One server database may hold both on purpose (the synchronisation tables beside the host's).
  if (databases::isServer(syncDb) && syncDb == hostDb) return kExitOk;
  if (existingDatabase(syncDb) && holds(tablesOf(syncDb), "Companies")) {
    err << "dossync: --sync-db " << databases::displayName(syncDb)
        << " holds the practice's companies: it looks like the host database. Check --host-db "
           "and --sync-db (swapped?); nothing was changed\n";
    return kExitUsage;
  }
  if (existingDatabase(hostDb)) {
    auto tables = tablesOf(hostDb);
    if (holds(tables, "OutlookSync") || holds(tables, "OutlookScheme")) {
      err << "dossync: --host-db " << databases::displayName(hostDb)
          << " holds the synchronisation tables (OutlookSync, OutlookScheme): it looks like a "
             "synchronisation database. Check --host-db and --sync-db (swapped?); nothing was "
             "changed\n";
      return kExitUsage;
    }
  }
  return kExitOk;
}

int prepareStore(const std::string& spec, const std::string& profile, StoreUse use, bool& present,
                 std::ostream& err, bool quiet) {
  present = true;
  if (isServerStore(spec)) return kExitOk;  // its local copy is dossync's own
  fs::path root;
  std::string folder;
  try {
    root = vdirRoot(spec);
    folder = profileFolder(spec, profile);
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitUsage);
  }
  std::error_code ec;
  bool rootThere = fs::is_directory(root, ec);
  if (use == StoreUse::Read) {
    present =
        rootThere && (fs::is_directory(fs::path(folder) / "contacts", ec) || isPlainStore(spec));
    if (!rootThere && !spec.empty()) {
      err << "dossync: there is no Outlook store at " << root.string()
          << ": check --outlook (vdir:DIR names a folder of vCard files)\n";
      return kExitFailure;
    }
    return kExitOk;
  }
  if (rootThere || spec.empty()) return kExitOk;  // the default store is made where it belongs
  if (fs::exists(root, ec)) {
    err << "dossync: --outlook " << spec << " is not a folder: check the path\n";
    return kExitUsage;
  }
  fs::path parent = root.parent_path();
  if (!parent.empty() && !fs::is_directory(parent, ec)) {
    err << "dossync: neither " << root.string() << " nor the folder it is in exists: check "
        << "--outlook (nothing was made)\n";
    return kExitUsage;
  }
  fs::create_directory(root, ec);
  if (ec) {
    err << "dossync: cannot make the Outlook store folder " << root.string() << ": " << ec.message()
        << "\n";
    return kExitFailure;
  }
  if (!quiet) err << "dossync: made the folder " << root.string() << " for the Outlook store\n";
  return kExitOk;
}

std::string displayProblem() {
  auto set = [](const char* name) {
    const char* v = std::getenv(name);
    return v && *v;
  };
  std::string platform = set("QT_QPA_PLATFORM") ? std::getenv("QT_QPA_PLATFORM") : "";
  bool x11 = set("DISPLAY"), wayland = set("WAYLAND_DISPLAY");
  // A list ("wayland;xcb") is tried in order: any one that can open is enough.
  bool wantsX11 = platform.empty() || platform.find("xcb") != std::string::npos;
  bool wantsWayland = platform.empty() || platform.find("wayland") != std::string::npos;
  if (!wantsX11 && !wantsWayland) return "";  // offscreen, vnc, eglfs, ...: Qt's own business
  if ((wantsX11 && x11) || (wantsWayland && wayland)) return "";
  if (!platform.empty())
    return "QT_QPA_PLATFORM is " + platform + " but " +
           (wantsX11 ? std::string("DISPLAY") : std::string("WAYLAND_DISPLAY")) + " is not set";
  return "neither DISPLAY nor WAYLAND_DISPLAY is set";
}

std::string initFailureHint(const std::string& hostDb, const std::string& syncDb) {
  auto isOpen = [](const hostdb::DataAccessPtr& db) { return db && db->isDatabaseOpen(); };
  bool hostOpen = isOpen(apartment().hostDb), syncOpen = isOpen(apartment().syncDb);
  std::error_code ec;
  bool hostThere = databases::isServer(hostDb) || fs::exists(hostDb, ec);
  if (!hostOpen && hostThere)
    return "dossync: check --host-db: " + databases::displayName(hostDb) +
           " could not be opened as the host database";
  if (!syncOpen)
    return "dossync: check --sync-db: " + databases::displayName(syncDb) +
           " could not be opened or made as the synchronisation database (is its folder there "
           "and writable?)";
  if (!hostOpen)
    return "dossync: check --host-db: there is no host database " + databases::displayName(hostDb) +
           " (init-host makes a new one)";
  return "dossync: check --host-db and --sync-db";
}

}  // namespace dossync::app
