// The report of every real run, written as the run goes into the Outlook profile's reports
// folder (report/report_store.h, report/report_file.h): a recorder whose real runs each write
// their report there, previews excepted, and that keeps what came of the last one for the host
// to show. Used by `dossync sync` and the wizard.
// DOSSYNC_REPORTS=off in the environment writes no report (the runs are still counted): a
// switch for benchmarks that measure what the report costs.
// Thread use: the apartment's one thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "report/report_store.h"
#include "report/run_recorder.h"

namespace dossync::app {

struct RunOutcome {
  bool finished = false;   // a real run has finished since the recorder was made
  report::RunPlan plan;    // that run's plan: its counts, no records (its id set when written)
  std::string reportPath;  // the report's file ("" when none was written)
  std::string error;       // why the report was not written, or not whole ("" when it was)
  // The report as text in a temporary file, for the desktop's viewer ("" when there is none).
  std::string textPath() const;
};

// Whether reports are written (DOSSYNC_REPORTS is not "off").
bool reportsWanted();

// A recorder to give the component (setRunObserver). `profile` is asked when a run starts, as
// the profile may change between runs; the report goes to reportsFolder(outlookSpec,
// profile()). Errors writing it are kept in outcome->error, never thrown.
std::shared_ptr<report::RunRecorder> makeReportingRecorder(const std::string& outlookSpec,
                                                           std::function<std::string()> profile,
                                                           const report::ReportLimits& limits,
                                                           std::shared_ptr<RunOutcome> outcome);

}  // namespace dossync::app
