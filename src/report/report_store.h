// The reports of one Outlook profile, in its folder's reports/ subfolder: each run's report as
// <id>.json (run_plan.h's shape) and <id>.txt (the same as text), the id being the local time
// the run ended, "20261125-171502" (with "-2", "-3"... when that second is taken).
// Kept: the newest kKeepCount reports, and none older than kKeepDays days (by the time of its
// file); the report just written is always kept. Limits of 0 keep everything.
// Errors are RuntimeError naming the file or folder.
// Thread use: any; one writer per folder at a time.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "report/run_plan.h"

namespace dossync::report {

struct ReportLimits {
  static constexpr int kKeepCount = 100;
  static constexpr int kKeepDays = 90;
  int keepCount = kKeepCount;
  int keepDays = kKeepDays;
};

// A run's report is written as the run goes: beginReport answers a hidden file in the folder
// (made with it) to write it into; endReport gives that file its id (plan.id is set) and the
// extension of its format, notes the plan's summary in the folder's index, and removes what the
// limits no longer keep. Answers the report's path.
std::filesystem::path beginReport(const std::filesystem::path& folder);
std::filesystem::path endReport(const std::filesystem::path& folder,
                                const std::filesystem::path& running, RunPlan& plan,
                                const std::string& extension, const ReportLimits& limits = {});

// Writes the whole plan at once (setting its id) and removes what the limits no longer keep.
// Answers the path of the JSON file.
std::filesystem::path writeReport(const std::filesystem::path& folder, RunPlan& plan,
                                  const ReportLimits& limits = {});
// The ids of the reports in the folder, oldest first (none when there is no folder).
std::vector<std::string> listReports(const std::filesystem::path& folder);
// The report with that id, or the newest for "last". Throws RuntimeError kFileNotFound naming
// the folder when there is no such report, kTypeMismatch naming the file when it is not one.
RunPlan readReport(const std::filesystem::path& folder, const std::string& id);

}  // namespace dossync::report
