// A run's report on disk, written as the run goes: zstd-compressed JSON lines, one file per run
// (docs/preview-and-report.md gives the shape). The reader takes a file whose run was cut short
// as far as it was written.
// Errors are RuntimeError naming the file.
// Thread use: one writer per file; readers of finished files on any thread.
#pragma once

#include <filesystem>

#include "report/run_plan.h"

namespace dossync::report {

inline constexpr const char* kReportExtension = ".jsonl.zst";

// The report in that file. Throws RuntimeError kTypeMismatch naming the file when it is not one.
RunPlan readReportFile(const std::filesystem::path& path);

}  // namespace dossync::report
