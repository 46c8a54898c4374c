// The report of every real run, written into the Outlook profile's reports/ folder
// (report/report_store.h): a recorder whose `finished` writes each run's report, previews
// excepted, and keeps what came of the last one for the host to show. Used by `dossync sync`
// and the wizard.
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
  report::RunPlan plan;    // that run's plan (its id set when its report was written)
  std::string reportPath;  // the report's JSON file ("" when none was written)
  std::string error;       // why the report was not written ("" when it was)
  // The readable rendering beside the JSON file ("" when none was written).
  std::string textPath() const;
};

// A recorder to give the component (setRunObserver). `profile` is asked when a run ends, as
// the profile may change between runs; the report goes to reportsFolder(outlookSpec,
// profile()). Errors writing it are kept in outcome->error, never thrown.
std::shared_ptr<report::RunRecorder> makeReportingRecorder(const std::string& outlookSpec,
                                                           std::function<std::string()> profile,
                                                           const report::ReportLimits& limits,
                                                           std::shared_ptr<RunOutcome> outcome);

}  // namespace dossync::app
