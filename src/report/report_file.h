// A run's report on disk, written as the run goes: zstd-compressed JSON lines, one file per run
// (docs/preview-and-report.md gives the shape). A head line (format, kind, started, settings),
// one line per record worth listing (run_plan.h's worthListing, or every record when asked),
// and a tail line (finished, seconds, interrupted, the counts of all records, warnings that
// came late for records already written, errors outside any record). The reader takes a file
// whose run was cut short (no tail) as far as it was written, marked interrupted.
// Where libzstd is not at hand (the Windows cross build) the writer stores the lines in zstd
// frames uncompressed, which every zstd reader takes.
// Errors are RuntimeError naming the file.
// Thread use: one owner thread per writer; readers of finished files on any thread. The writer
// turns records into lines and compresses them on a thread of its own, so that the run does not
// wait for it; a failure there is thrown by the owner's next call.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
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
  // Queued, and written in turn by the writer's thread (waits while many are queued).
  void record(RecordPlan record);
  // The end: the plan's finished, seconds, interrupted, counts and errors outside records,
  // and the late warnings, after every record queued. Closes the file.
  void tail(const RunPlan& plan, const std::vector<LateWarning>& late);

 private:
  // The thread is woken for this many records at a time, or for the tail.
  static constexpr size_t kBatch = 32;
  static constexpr size_t kMaxQueued = 512;
  void serve();
  void finishRecords();  // waits for every queued record, stops the thread; throws its failure
  void line(const std::string& text);
  void write(const char* data, size_t size, bool end);
  std::mutex mutex_;
  std::condition_variable work_, room_;
  std::deque<RecordPlan> queue_;
  bool stopping_ = false;
  std::exception_ptr failure_;
  std::thread thread_;
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
