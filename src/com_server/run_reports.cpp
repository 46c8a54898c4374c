#include "com_server/run_reports.h"

#include <cstdlib>
#include <string_view>

#include "core/synchronization.h"
#include "report/report_store.h"
#include "report/run_recorder.h"

namespace dossync::com {

std::filesystem::path reportsFolder(const std::string& profile) {
  const wchar_t* local = _wgetenv(L"LOCALAPPDATA");
  std::filesystem::path root = local && *local ? std::filesystem::path(local)
                                               : std::filesystem::temp_directory_path();
  // A profile name is any text: what a folder name cannot hold becomes "_".
  std::string name = profile.empty() ? "default" : profile;
  for (char& ch : name) {
    if (std::string_view("<>:\"/\\|?*").find(ch) != std::string_view::npos ||
        static_cast<unsigned char>(ch) < 0x20)
      ch = '_';
  }
  if (name == "." || name == "..") name = "default";
  return root / "dossync" / std::filesystem::path(std::u8string(name.begin(), name.end())) /
         "reports";
}

std::shared_ptr<IRunObserver> reportingObserver(clsOutlookSynchronization& component) {
  auto recorder = std::make_shared<report::RunRecorder>();
  recorder->finished = [&component](const report::RunPlan& plan) {
    if (plan.kind == "preview") return;
    report::RunPlan written = plan;
    try {
      report::writeReport(reportsFolder(component.Profile()), written);
    } catch (...) {
      // The host has nowhere to show it; the run itself went as it went.
    }
  };
  return recorder;
}

}  // namespace dossync::com
