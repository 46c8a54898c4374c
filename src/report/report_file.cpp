#include "report/report_file.h"

#include "core/error.h"

namespace dossync::report {

RunPlan readReportFile(const std::filesystem::path& path) {
  throw RuntimeError(kTypeMismatch, path.string() + " is not a dossync report");
}

}  // namespace dossync::report
