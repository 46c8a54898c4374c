#include "com_server/run_reports.h"

#include <cstdlib>
#include <string_view>

#include "core/synchronization.h"
#include "report/report_file.h"
#include "report/report_store.h"
#include "report/run_recorder.h"

namespace dossync::com {

std::filesystem::path reportsFolder(const std::string& profile) {
  const wchar_t* local = _wgetenv(L"LOCALAPPDATA");
  std::filesystem::path root =
      local && *local ? std::filesystem::path(local) : std::filesystem::temp_directory_path();
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
  // The host has nowhere to show a report that could not be written; the run itself went as it
  // went.
  auto recorder = std::make_shared<report::RunRecorder>();
  auto folder = std::make_shared<std::filesystem::path>();
  recorder->open = [&component, folder](const report::RunPlan&) -> std::filesystem::path {
    try {
      *folder = reportsFolder(component.Profile());
      return report::beginReport(*folder);
    } catch (...) {
      return {};
    }
  };
  recorder->finished = [folder](report::RunPlan& plan, const std::filesystem::path& file,
                                const std::string&) {
    try {
      if (!file.empty()) report::endReport(*folder, file, plan, report::kReportExtension);
    } catch (...) {
    }
  };
  return recorder;
}

}  // namespace dossync::com
