// The reports of one Outlook profile, in a folder of their own: each run's report as
// <id>.jsonl.zst (report_file.h), or, for reports written before it, <id>.json (run_plan.h's
// shape) with <id>.txt beside it. The id is the local time the run ended, "20261125-171502"
// (with "-2", "-3"... when that second is taken).
// Kept: the newest kKeepCount reports, none older than kKeepDays days (by the time of its file),
// and the newest ones that fit in kKeepBytes together; the report just written is always kept.
// A limit of 0 keeps everything.
// The folder's index.jsonl holds one line per report (its id, times, counts and summary line),
// so that listing does not read the reports; it is rebuilt from the files it does not match.
// A run killed before its end leaves its hidden .running-* file, which is never listed and is
// removed once its process is gone and it is a day old.
// Errors are RuntimeError naming the file or folder.
// Thread use: any; the index is changed under a lock file, .index.lock.
#pragma once

#include <cstdint>
#include <filesystem>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "report/run_plan.h"

namespace dossync::report {

struct ReportLimits {
  static constexpr int kKeepCount = 100;
  static constexpr int kKeepDays = 90;
  static constexpr int64_t kKeepBytes = 200LL * 1024 * 1024;
  int keepCount = kKeepCount;
  int keepDays = kKeepDays;
  int64_t keepBytes = kKeepBytes;
};

// A report as the folder's index gives it.
struct ReportEntry {
  std::filesystem::path folder;
  std::string id;
  std::string kind, started, finished, direction;
  std::string summary;  // summaryLine() of the report
  std::string job;      // the named job that ran it ("" for none)
  int64_t records = 0, errors = 0;
  int64_t bytes = 0;  // of its files together
  bool interrupted = false;
  std::string unreadable;  // why the report could not be read ("" when it could)
};
// An entry as the index and `report list --json` give it.
nlohmann::ordered_json toJson(const ReportEntry& entry);

// A run's report is written as the run goes: beginReport answers a hidden file in the folder
// (made with it) to write it into; endReport gives that file its id (plan.id is set) and the
// extension of its format, notes the plan's summary in the folder's index, and removes what the
// limits no longer keep. Answers the report's path.
std::filesystem::path beginReport(const std::filesystem::path& folder);
std::filesystem::path endReport(const std::filesystem::path& folder,
                                const std::filesystem::path& running, RunPlan& plan,
                                const std::string& extension, const ReportLimits& limits = {});

// The ids of the reports in the folder, oldest first (none when there is no folder), from the
// names of its files.
std::vector<std::string> listReports(const std::filesystem::path& folder);
// The reports in the folder, oldest first, from its index; a report the index does not list
// (or lists with other sizes) is read and the index written again. A folder that cannot be
// written to is still listed.
std::vector<ReportEntry> reportEntries(const std::filesystem::path& folder);
// The report with that id, or the newest for "last". Throws RuntimeError kFileNotFound naming
// the folder when there is no such report, kTypeMismatch naming the file when it is not one.
RunPlan readReport(const std::filesystem::path& folder, const std::string& id);

// Whether id `a` names an earlier run than `b`.
bool earlierReport(const std::string& a, const std::string& b);

}  // namespace dossync::report
