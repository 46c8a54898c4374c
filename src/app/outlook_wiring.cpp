#include "app/outlook_wiring.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <ostream>

#include "app/commands.h"
#include "app/console_services.h"
#include "app/credentials.h"
#include "backends/carddav/carddav_store.h"
#include "backends/vdir/vdir_store.h"
#include "base/error.h"
#include "base/platform.h"

namespace dossync::app {
namespace {

constexpr const char* kCardDav = "carddav:";

std::atomic<bool> gServerWinsConflicts{false};

std::string dataRoot() {
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg && *xdg) return std::string(xdg) + "/dossync";
  const char* home = std::getenv("HOME");
  return std::string(home && *home ? home : ".") + "/.local/share/dossync";
}

// For `vdir:DIR` where DIR is a plain vdir: the state folder of DIR's one profile.
std::filesystem::path plainStateOf(const std::string& spec, const std::string& root) {
  if (spec.rfind("vdir:", 0) != 0) return {};
  return stateRoot() / "vdir" / vdir::plainVdirName(root);
}

bool isPlain(const std::string& spec, const std::string& root) {
  auto state = plainStateOf(spec, root);
  return !state.empty() && vdir::isPlainVdir(root, state);
}

carddav::CardDavSettings cardDavSettings(const std::string& spec, bool insecure) {
  carddav::CardDavSettings s;
  s.url = spec.substr(std::string(kCardDav).size());
  if (s.url.rfind("http://", 0) != 0 && s.url.rfind("https://", 0) != 0)
    throw RuntimeError(kInvalidProcedureCall, "Unknown Outlook store '" + spec +
                                                  "': a CardDAV address book is carddav:http://... "
                                                  "or carddav:https://...");
  s.cacheRoot = dataRoot() + "/carddav";
  s.insecure = insecure;
  return s;
}

}  // namespace

std::filesystem::path stateRoot() {
  const char* xdg = std::getenv("XDG_STATE_HOME");
  if (xdg && *xdg) return std::filesystem::path(xdg) / "dossync";
  const char* home = std::getenv("HOME");
  return std::filesystem::path(home && *home ? home : ".") / ".local/state/dossync";
}

bool isServerStore(const std::string& spec) {
  return spec.rfind(kCardDav, 0) == 0;
}

std::string vdirRoot(const std::string& spec) {
  if (spec.empty()) return dataRoot() + "/outlook";
  if (spec.rfind("vdir:", 0) == 0 && spec.size() > 5) {
    std::string dir = spec.substr(5);
    // vdir:~/book as a shell would read it (the shell leaves a ~ after "vdir:" alone).
    const char* home = std::getenv("HOME");
    if (home && *home && (dir == "~" || dir.rfind("~/", 0) == 0)) dir = home + dir.substr(1);
    return dir;
  }
  if (isServerStore(spec)) return carddav::cardDavCopyRoot(cardDavSettings(spec, false));
  throw RuntimeError(kInvalidProcedureCall,
                     "Unknown Outlook store '" + spec + "': use vdir:DIRECTORY or carddav:URL");
}

std::string profileFolder(const std::string& spec, const std::string& profile) {
  std::filesystem::path root = vdirRoot(spec);
  std::string name = vdir::profileName(root, profile);
  if (isPlain(spec, root)) return plainStateOf(spec, root).string();
  return (root / name).string();
}

std::string reportsFolder(const std::string& spec, const std::string& profile) {
  std::string root = vdirRoot(spec);
  std::filesystem::path reports = stateRoot() / "reports";
  if (isPlain(spec, root)) return (reports / vdir::plainVdirName(root)).string();
  std::string name = vdir::profileName(root, profile);
  if (spec.empty()) return (reports / name).string();
  return (reports / vdir::plainVdirName(root) / name).string();
}

std::string oldReportsFolder(const std::string& spec, const std::string& profile) {
  if (isPlain(spec, vdirRoot(spec))) return "";
  return (std::filesystem::path(profileFolder(spec, profile)) / "reports").string();
}

bool isPlainStore(const std::string& spec) {
  if (spec.rfind("vdir:", 0) != 0) return false;
  return isPlain(spec, vdirRoot(spec));
}

void registerOutlook(const std::string& spec, bool insecure) {
  if (isServerStore(spec)) {
    auto settings = cardDavSettings(spec, insecure);
    platform::registerClass(platform::kOutlookApplication, [settings]() mutable {
      settings.serverWinsConflicts = gServerWinsConflicts.load();
      return carddav::makeCardDavApplication(settings);
    });
    return;
  }
  std::string root = vdirRoot(spec);
  auto plainState = plainStateOf(spec, root);
  platform::registerClass(platform::kOutlookApplication, [root, plainState] {
    return vdir::makeVdirApplication(root, {}, {}, plainState);
  });
}

void keepServerValuesOnConflict(bool keep) {
  gServerWinsConflicts = keep;
}

Session openSession(const std::string& profile, const std::string& password) {
  Session s;
  s.application = platform::create<outlook::Application>(platform::kOutlookApplication);
  s.nameSpace = s.application->GetNamespace("MAPI");
  if (!s.nameSpace) throw RuntimeError(kObjectVariableNotSet, "The Outlook store has no session");
  auto given = [](const std::string& v) {
    return v.empty() ? std::nullopt : std::optional<std::string>(v);
  };
  s.nameSpace->Logon(given(profile), given(password), false, false);
  return s;
}

int checkServerLogon(Credentials& c, Session* held, std::ostream& err) {
  if (!isServerStore(c.outlook)) return kExitOk;
  try {
    try {
      *held = openSession(c.profile, c.password);
    } catch (const RuntimeError& e) {
      // Refused without a password (none given, none in ~/.netrc): ask the person at the
      // terminal, once.
      std::string typed;
      if (e.number() != kLogonFailed || !c.password.empty() ||
          !promptPassword("Password for " + (c.profile.empty() ? "" : c.profile + " at ") +
                              c.outlook.substr(std::string(kCardDav).size()) + ": ",
                          &typed))
        throw;
      c.password = typed;
      *held = openSession(c.profile, c.password);
    }
  } catch (const RuntimeError& e) {
    if (e.number() != kLogonFailed) return reportFailure(err, e, kExitFailure);
    err << "dossync: " << e.description() << "\n";
    if (passwordPromptAllowed()) {
      err << "dossync: give the password with --password-file, --password-command or "
             "DOSSYNC_PASSWORD (or in ~/.netrc)\n";
    } else {
      err << "dossync: a job never asks for a password: give password-file or password-command "
             "in its table of the config file (or DOSSYNC_PASSWORD, ~/.netrc)\n";
    }
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace dossync::app
