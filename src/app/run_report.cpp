#include "app/run_report.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "app/cli.h"
#include "app/outlook_wiring.h"
#include "report/report_file.h"

namespace dossync::app {

std::string RunOutcome::textPath() const {
  if (reportPath.empty()) return "";
  try {
    auto path = std::filesystem::temp_directory_path() / ("dossync-report-" + plan.id + ".txt");
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << report::toText(report::readReportFile(reportPath));
    return out ? path.string() : "";
  } catch (const std::exception&) {
    return "";
  }
}

bool reportsWanted() {
  const char* setting = std::getenv("DOSSYNC_REPORTS");
  return !setting || std::string_view(setting) != "off";
}

std::shared_ptr<report::RunRecorder> makeReportingRecorder(const std::string& outlookSpec,
                                                           std::function<std::string()> profile,
                                                           const report::ReportLimits& limits,
                                                           std::shared_ptr<RunOutcome> outcome) {
  auto recorder = std::make_shared<report::RunRecorder>();
  recorder->setSetting("tool", versionLine());  // which version wrote the report
  auto folder = std::make_shared<std::filesystem::path>();
  auto openError = std::make_shared<std::string>();
  recorder->open = [outlookSpec, profile = std::move(profile), folder,
                    openError](const report::RunPlan&) -> std::filesystem::path {
    folder->clear();
    openError->clear();
    if (!reportsWanted()) return {};
    try {
      *folder = reportsFolder(outlookSpec, profile ? profile() : "");
      return report::beginReport(*folder);
    } catch (const RuntimeError& e) {
      *openError = e.description();
    } catch (const std::exception& e) {
      *openError = e.what();
    }
    return {};
  };
  recorder->finished = [limits, folder, openError, outcome = std::move(outcome)](
                           report::RunPlan& plan, const std::filesystem::path& file,
                           const std::string& writeError) {
    outcome->finished = true;
    outcome->plan = plan;
    outcome->reportPath.clear();
    outcome->error = !openError->empty() ? *openError : writeError;
    if (file.empty()) return;
    try {
      outcome->reportPath =
          report::endReport(*folder, file, outcome->plan, report::kReportExtension, limits)
              .string();
    } catch (const RuntimeError& e) {
      outcome->error = e.description();
    } catch (const std::exception& e) {
      outcome->error = e.what();
    }
  };
  return recorder;
}

}  // namespace dossync::app
