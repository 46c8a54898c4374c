// A run's report on disk, written as the run goes: zstd-compressed JSON lines, one file per run
// (docs/preview-and-report.md gives the shape). A head line (format, kind, started, settings),
// one line per record worth listing (run_plan.h's worthListing, or every record when asked),
// and a tail line (finished, seconds, interrupted, the counts of all records, warnings that
// came late for records already written, errors outside any record). The reader takes a file
// whose run was cut short (no tail) as far as it was written, marked interrupted.
// Where libzstd is not at hand (the Windows cross build) the writer stores the lines in zstd
// frames uncompressed, which every zstd reader takes.
// Errors are RuntimeError naming the file.
// Thread use: one writer per file; readers of finished files on any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "report/run_plan.h"

namespace dossync::report {

inline constexpr const char* kReportExtension = ".jsonl.zst";
inline constexpr const char* kReportFormat = "dossync-run/2";

// What the writer owes the tail for records already written: a warning on a listed record
// (by its place among the listed), or a record that was not listed and now has a warning,
// listed in the tail to go before the listed record of that place.
struct LateWarning {
  int32_t listed = -1;  // the record's place among the listed, -1 when it was not listed
  int32_t before = 0;   // when not listed: how many records were listed before it
  RecordPlan record;    // when not listed: the record as it went, without the warning
  std::string warning;
};

class ReportWriter {
 public:
  // Makes (or empties) the file. Throws RuntimeError kDiskIO naming it.
  // compress: false stores the lines in zstd frames uncompressed (what a build without
  // libzstd writes).
  explicit ReportWriter(const std::filesystem::path& path, bool compress = true);
  ~ReportWriter();
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;

  void head(const RunPlan& plan);  // kind, started, settings
  void record(const RecordPlan& record);
  // The end: the plan's finished, seconds, interrupted, counts and errors outside records,
  // and the late warnings. Closes the file.
  void tail(const RunPlan& plan, const std::vector<LateWarning>& late);

 private:
  void line(const std::string& text);
  void write(const char* data, size_t size, bool end);
  std::filesystem::path path_;
  std::ofstream out_;
  struct Compressor;
  std::unique_ptr<Compressor> zstd_;  // none: stored
  std::string pending_;               // stored: the lines of the block not yet written
  bool frameStarted_ = false;
};

// The report in that file, its id its name. Throws RuntimeError kFileNotFound when there is no
// such file, kTypeMismatch naming the file when it is not a report.
RunPlan readReportFile(const std::filesystem::path& path);

}  // namespace dossync::report
