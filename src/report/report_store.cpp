#include "report/report_store.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include <unistd.h>

#include "core/error.h"
#include "report/run_recorder.h"

namespace dossync::report {
namespace fs = std::filesystem;
namespace {

// The whole file or nothing: a temporary file beside it, then renamed over it.
void writeFile(const fs::path& path, const std::string& text) {
  fs::path temp = path;
  temp += ".tmp";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) throw RuntimeError(kDiskIO, "Cannot write the report " + temp.string());
  }
  std::error_code ec;
  fs::rename(temp, path, ec);
  if (ec) throw RuntimeError(kDiskIO, "Cannot write the report " + path.string() + ": " + ec.message());
}

void prune(const fs::path& folder, const std::string& keep, const ReportLimits& limits) {
  std::vector<std::string> ids = listReports(folder);
  auto tooOld = [&](const std::string& id) {
    if (limits.keepDays <= 0) return false;
    std::error_code ec;
    auto written = fs::last_write_time(folder / (id + ".json"), ec);
    return !ec && fs::file_time_type::clock::now() - written > std::chrono::hours(24) * limits.keepDays;
  };
  size_t extra = limits.keepCount > 0 && ids.size() > static_cast<size_t>(limits.keepCount)
                     ? ids.size() - static_cast<size_t>(limits.keepCount)
                     : 0;
  for (size_t i = 0; i < ids.size(); ++i) {
    if (ids[i] == keep || (i >= extra && !tooOld(ids[i]))) continue;
    std::error_code ec;
    fs::remove(folder / (ids[i] + ".json"), ec);
    fs::remove(folder / (ids[i] + ".txt"), ec);
  }
}

// A new report's id: the local time, after every report of the same second, so that the order
// of the ids is the order of the runs (also when an earlier report of that second was let go).
std::string newId(const fs::path& folder) {
  const std::string second = localTimestamp(true);
  int after = 0;
  for (const auto& existing : listReports(folder)) {
    if (existing.compare(0, second.size(), second) != 0) continue;
    after = std::max(after, existing.size() == second.size()
                                ? 1
                                : std::atoi(existing.c_str() + second.size() + 1));
  }
  return after == 0 ? second : second + "-" + std::to_string(after + 1);
}

}  // namespace

fs::path beginReport(const fs::path& folder) {
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec) throw RuntimeError(kPathNotFound, "Cannot make the reports folder " + folder.string() + ": " + ec.message());
  static int serial = 0;
  return folder / (".running-" + std::to_string(::getpid()) + "-" + std::to_string(++serial));
}

fs::path endReport(const fs::path& folder, const fs::path& running, RunPlan& plan,
                   const std::string& extension, const ReportLimits& limits) {
  plan.id = newId(folder);
  fs::path path = folder / (plan.id + extension);
  std::error_code ec;
  fs::rename(running, path, ec);
  if (ec) throw RuntimeError(kDiskIO, "Cannot write the report " + path.string() + ": " + ec.message());
  prune(folder, plan.id, limits);
  return path;
}

fs::path writeReport(const fs::path& folder, RunPlan& plan, const ReportLimits& limits) {
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec) throw RuntimeError(kPathNotFound, "Cannot make the reports folder " + folder.string() + ": " + ec.message());
  plan.id = newId(folder);
  const std::string& id = plan.id;
  writeFile(folder / (id + ".txt"), toText(plan));
  writeFile(folder / (id + ".json"), toJson(plan).dump() + "\n");  // compact: the .txt is for reading
  prune(folder, id, limits);
  return folder / (id + ".json");
}

std::vector<std::string> listReports(const fs::path& folder) {
  std::vector<std::string> ids;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const fs::path& p = it->path();
    if (p.extension() == ".json") ids.push_back(p.stem().string());
  }
  // "20261125-171502" sorts before "20261125-171502-2", which sorts before the next second.
  std::sort(ids.begin(), ids.end(), [](const std::string& a, const std::string& b) {
    std::string sa = a.substr(0, 15), sb = b.substr(0, 15);
    if (sa != sb) return sa < sb;
    if (a.size() != b.size()) return a.size() < b.size();
    return a < b;
  });
  return ids;
}

RunPlan readReport(const fs::path& folder, const std::string& id) {
  std::string which = id;
  if (id == "last") {
    auto ids = listReports(folder);
    if (ids.empty()) throw RuntimeError(kFileNotFound, "No reports in " + folder.string());
    which = ids.back();
  }
  fs::path path = folder / (which + ".json");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw RuntimeError(kFileNotFound, "No report " + which + " in " + folder.string());
  try {
    return planFromJson(nlohmann::ordered_json::parse(in));
  } catch (const nlohmann::json::exception& e) {
    throw RuntimeError(kTypeMismatch, path.string() + " is not a dossync report: " + e.what());
  }
}

}  // namespace dossync::report
