#include "app/run_report.h"

#include <filesystem>

#include "app/outlook_wiring.h"

namespace dossync::app {

std::string RunOutcome::textPath() const {
  if (reportPath.empty()) return "";
  return std::filesystem::path(reportPath).replace_extension(".txt").string();
}

std::shared_ptr<report::RunRecorder> makeReportingRecorder(const std::string& outlookSpec,
                                                           std::function<std::string()> profile,
                                                           const report::ReportLimits& limits,
                                                           std::shared_ptr<RunOutcome> outcome) {
  auto recorder = std::make_shared<report::RunRecorder>();
  recorder->finished = [outlookSpec, profile = std::move(profile), limits,
                        outcome = std::move(outcome)](const report::RunPlan& plan) {
    if (plan.kind == "preview") return;
    outcome->finished = true;
    outcome->plan = plan;
    outcome->reportPath.clear();
    outcome->error.clear();
    try {
      std::filesystem::path folder = reportsFolder(outlookSpec, profile ? profile() : "");
      outcome->reportPath = report::writeReport(folder, outcome->plan, limits).string();
    } catch (const RuntimeError& e) {
      outcome->error = e.description();
    } catch (const std::exception& e) {
      outcome->error = e.what();
    }
  };
  return recorder;
}

}  // namespace dossync::app
