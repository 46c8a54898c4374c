#include "app/outlook_wiring.h"

#include <cstdlib>

#include "backends/vdir/vdir_store.h"
#include "core/error.h"
#include "core/platform.h"

namespace dossync::app {

std::string vdirRoot(const std::string& spec) {
  if (spec.empty()) {
    const char* xdg = std::getenv("XDG_DATA_HOME");
    if (xdg && *xdg) return std::string(xdg) + "/dossync/outlook";
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/.local/share/dossync/outlook";
  }
  if (spec.rfind("vdir:", 0) == 0 && spec.size() > 5) return spec.substr(5);
  throw RuntimeError(kInvalidProcedureCall,
                     "Unknown Outlook store '" + spec + "': use vdir:DIRECTORY");
}

void registerOutlook(const std::string& spec) {
  std::string root = vdirRoot(spec);
  platform::registerClass(platform::kOutlookApplication,
                          [root] { return vdir::makeVdirApplication(root); });
}

Session openSession(const std::string& profile) {
  Session s;
  s.application = platform::create<outlook::Application>(platform::kOutlookApplication);
  s.nameSpace = s.application->GetNamespace("MAPI");
  if (!s.nameSpace) throw RuntimeError(kObjectVariableNotSet, "The Outlook store has no session");
  s.nameSpace->Logon(profile.empty() ? std::nullopt : std::optional<std::string>(profile),
                     std::nullopt, false, false);
  return s;
}

}  // namespace dossync::app
