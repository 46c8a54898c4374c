#include "report/report_store.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <system_error>

#include <unistd.h>
#ifndef _WIN32
#include <cerrno>
#include <csignal>
#endif

#include "base/error.h"
#include "base/utility.h"
#include "report/report_file.h"
#include "report/run_recorder.h"

namespace dossync::report {
namespace fs = std::filesystem;
namespace {

constexpr const char* kIndexName = "index.jsonl";
constexpr const char* kLockName = ".index.lock";
constexpr const char* kRunningPrefix = ".running-";
constexpr const char* kOldExtension = ".json";  // with its text beside it
constexpr const char* kOldTextExtension = ".txt";
// How long a change of the index waits for another process's.
constexpr auto kIndexWait = std::chrono::seconds(10);

bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() > tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

std::string utf8(const fs::path& p) {
  auto u8 = p.u8string();
  return std::string(u8.begin(), u8.end());
}

// What the folder holds of one report.
struct ReportFiles {
  std::string main;  // the file name of the report itself ("" for a stray text file)
  int64_t bytes = 0;
  fs::file_time_type written{};
};

// The hidden file of a run still writing its report (or of one that ended without naming it).
struct RunningFile {
  fs::path path;
  fs::file_time_type written{};
};

// The reports in the folder by id, from the names and sizes of its files; with `running`, also
// the files of runs still writing theirs.
std::map<std::string, ReportFiles> scan(const fs::path& folder,
                                        std::vector<RunningFile>* running = nullptr) {
  std::map<std::string, ReportFiles> found;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code fileEc;
    std::string name = utf8(it->path().filename());
    if (running && name.rfind(kRunningPrefix, 0) == 0) {
      auto written = it->last_write_time(fileEc);
      if (!fileEc) running->push_back({it->path(), written});
      continue;
    }
    if (!it->is_regular_file(fileEc)) continue;
    if (name.empty() || name[0] == '.') continue;  // .running-*, .index.lock, temporary files
    std::string id;
    bool isNew = false, isOld = false;
    if (endsWith(name, kReportExtension)) {
      id = name.substr(0, name.size() - std::string(kReportExtension).size());
      isNew = true;
    } else if (endsWith(name, kOldExtension)) {
      id = name.substr(0, name.size() - std::string(kOldExtension).size());
      isOld = true;
    } else if (endsWith(name, kOldTextExtension)) {
      id = name.substr(0, name.size() - std::string(kOldTextExtension).size());
    } else {
      continue;
    }
    ReportFiles& files = found[id];
    auto size = it->file_size(fileEc);
    if (!fileEc) files.bytes += static_cast<int64_t>(size);
    if (isNew || (isOld && !endsWith(files.main, kReportExtension))) {
      files.main = name;
      files.written = it->last_write_time(fileEc);
    }
  }
  for (auto it = found.begin(); it != found.end();) {
    if (it->second.main.empty())
      it = found.erase(it);
    else
      ++it;
  }
  return found;
}

std::vector<std::string> sortedIds(const std::map<std::string, ReportFiles>& files) {
  std::vector<std::string> ids;
  for (const auto& [id, f] : files) ids.push_back(id);
  std::sort(ids.begin(), ids.end(), earlierReport);
  return ids;
}

void removeReport(const fs::path& folder, const std::string& id) {
  std::error_code ec;
  for (const char* extension : {kReportExtension, kOldExtension, kOldTextExtension})
    fs::remove(folder / (id + extension), ec);
}

// The hidden file of a run that ended without naming it: gone once its process is and nobody
// has written to it for a day (on Windows, where the process is not asked, the day alone).
void removeAbandonedRuns(const std::vector<RunningFile>& running) {
  const auto dayAgo = fs::file_time_type::clock::now() - std::chrono::hours(24);
  for (const auto& file : running) {
    if (file.written > dayAgo) continue;
#ifndef _WIN32
    std::string name = utf8(file.path.filename());
    long pid = std::atol(name.c_str() + std::string(kRunningPrefix).size());
    if (pid > 0 && (::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH)) continue;
#endif
    std::error_code ec;
    fs::remove(file.path, ec);
  }
}

// Removes what the limits no longer keep, newest first: past keepCount reports or keepBytes
// bytes everything older goes; a report older than keepDays goes wherever it stands. `files`
// (the folder's reports) loses those removed.
void prune(const fs::path& folder, std::map<std::string, ReportFiles>& files,
           const std::string& keep, const ReportLimits& limits) {
  auto ids = sortedIds(files);
  const auto now = fs::file_time_type::clock::now();
  int keptCount = 0;
  int64_t keptBytes = 0;
  bool cut = false;
  for (auto it = ids.rbegin(); it != ids.rend(); ++it) {
    const ReportFiles& f = files[*it];
    if (*it != keep) {
      cut = cut || (limits.keepCount > 0 && keptCount >= limits.keepCount) ||
            (limits.keepBytes > 0 && keptBytes + f.bytes > limits.keepBytes);
      bool tooOld =
          limits.keepDays > 0 && now - f.written > std::chrono::hours(24) * limits.keepDays;
      if (cut || tooOld) {
        removeReport(folder, *it);
        files.erase(*it);
        continue;
      }
    }
    ++keptCount;
    keptBytes += f.bytes;
  }
}

// A new report's id: the local time, after every report of the same second, so that the order
// of the ids is the order of the runs (also when an earlier report of that second was let go).
std::string newId(const std::map<std::string, ReportFiles>& files) {
  const std::string second = localTimestamp(true);
  int after = 0;
  for (const auto& [existing, f] : files) {
    if (existing.compare(0, second.size(), second) != 0) continue;
    after = std::max(after, existing.size() == second.size()
                                ? 1
                                : std::atoi(existing.c_str() + second.size() + 1));
  }
  return after == 0 ? second : second + "-" + std::to_string(after + 1);
}

// --- the index ---------------------------------------------------------------------------

ReportEntry entryOf(const fs::path& folder, const std::string& id, const RunPlan& plan) {
  ReportEntry e;
  e.folder = folder;
  e.id = id;
  e.kind = plan.kind;
  e.started = plan.started;
  e.finished = plan.finished;
  for (const auto& [k, v] : plan.settings) {
    if (k == "direction") e.direction = v;
    if (k == "job") e.job = v;
  }
  e.summary = summaryLine(plan);
  for (const char* action :
       {"create-item", "update-item", "pair-only", "nothing", "create-company", "update-company"})
    e.records += plan.count(action);
  e.errors = plan.errorCount();
  e.interrupted = plan.interrupted;
  return e;
}

ReportEntry entryFromFile(const fs::path& folder, const std::string& id) {
  try {
    return entryOf(folder, id, readReport(folder, id));
  } catch (const RuntimeError& e) {
    ReportEntry unreadable;
    unreadable.folder = folder;
    unreadable.id = id;
    unreadable.unreadable = e.description();
    return unreadable;
  } catch (const std::exception& e) {
    ReportEntry unreadable;
    unreadable.folder = folder;
    unreadable.id = id;
    unreadable.unreadable = e.what();
    return unreadable;
  }
}

// The index's entries by id; lines that are not entries are left out (and so read again).
std::map<std::string, ReportEntry> readIndex(const fs::path& folder) {
  std::map<std::string, ReportEntry> entries;
  std::ifstream in(folder / kIndexName, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    try {
      auto j = nlohmann::json::parse(line);
      ReportEntry e;
      e.folder = folder;
      e.id = j.at("id").get<std::string>();
      e.kind = j.at("kind").get<std::string>();
      e.started = j.at("started").get<std::string>();
      e.finished = j.at("finished").get<std::string>();
      e.direction = j.at("direction").get<std::string>();
      e.records = j.at("records").get<int64_t>();
      e.errors = j.at("errors").get<int64_t>();
      e.interrupted = j.at("interrupted").get<bool>();
      e.bytes = j.at("bytes").get<int64_t>();
      e.summary = j.at("summary").get<std::string>();
      e.job = j.value("job", "");
      e.unreadable = j.value("unreadable", "");
      entries[e.id] = std::move(e);
    } catch (const nlohmann::json::exception&) {
    }
  }
  return entries;
}

// The whole index or nothing: a temporary file beside it, renamed over it. False when it could
// not be written (the next listing reads the reports it lacks).
bool writeIndex(const fs::path& folder, const std::vector<ReportEntry>& entries) {
  std::string text;
  for (const auto& e : entries) text += toJson(e).dump() + "\n";
  fs::path temp = folder / (".index-" + std::to_string(::getpid()) + ".tmp");
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
      std::error_code ec;
      fs::remove(temp, ec);
      return false;
    }
  }
  std::error_code ec;
  fs::rename(temp, folder / kIndexName, ec);
  if (!ec) return true;
  fs::remove(temp, ec);
  return false;
}

// The folder's reports as the index should list them, oldest first: the index's entries whose
// files are there with their sizes, `added` (its size taken from its files), and, with
// readMissing, every other report read from its file; without it, reports the index lacks are
// left out. *changed: whether that differs from the index.
std::vector<ReportEntry> reconcile(const fs::path& folder, const ReportEntry* added,
                                   bool readMissing, bool* changed) {
  auto files = scan(folder);
  auto indexed = readIndex(folder);
  *changed = !fs::exists(folder / kIndexName);
  if (added) {
    ReportEntry& entry = indexed[added->id] = *added;
    entry.bytes = files.count(added->id) ? files[added->id].bytes : -1;
    *changed = true;
  }
  std::vector<ReportEntry> entries;
  for (const auto& id : sortedIds(files)) {
    auto it = indexed.find(id);
    if (it != indexed.end() && it->second.bytes == files[id].bytes) {
      entries.push_back(std::move(it->second));
      indexed.erase(it);
      continue;
    }
    *changed = true;
    if (readMissing) {
      entries.push_back(entryFromFile(folder, id));
      entries.back().bytes = files[id].bytes;
    }
  }
  *changed = *changed || !indexed.empty();
  return entries;
}

// reconcile() with every report read, and the index written again (under its lock) when it
// differed; a reader that finds the index right writes nothing. The folder is looked at again
// under the lock: another run may have ended its report since the caller looked.
std::vector<ReportEntry> updateIndex(const fs::path& folder, const ReportEntry* added,
                                     bool readMissing) {
  bool changed = false;
  if (!added) {
    auto entries = reconcile(folder, nullptr, false, &changed);
    if (!changed) return entries;
  }
  std::unique_ptr<FileLock> lock;
  try {
    lock = FileUtil().lock(utf8(folder / kLockName), kIndexWait);
  } catch (const RuntimeError&) {
    // Another process holds it for longer than it should: list without writing.
  }
  auto entries = reconcile(folder, added, readMissing, &changed);
  if (changed && lock) writeIndex(folder, entries);
  return entries;
}

}  // namespace

nlohmann::ordered_json toJson(const ReportEntry& e) {
  nlohmann::ordered_json j = {{"id", e.id},
                              {"kind", e.kind},
                              {"started", e.started},
                              {"finished", e.finished},
                              {"direction", e.direction},
                              {"records", e.records},
                              {"errors", e.errors},
                              {"interrupted", e.interrupted},
                              {"bytes", e.bytes},
                              {"summary", e.summary}};
  if (!e.job.empty()) j["job"] = e.job;
  if (!e.unreadable.empty()) j["unreadable"] = e.unreadable;
  return j;
}

bool earlierReport(const std::string& a, const std::string& b) {
  // "20261125-171502" sorts before "20261125-171502-2", which sorts before the next second.
  std::string sa = a.substr(0, 15), sb = b.substr(0, 15);
  if (sa != sb) return sa < sb;
  if (a.size() != b.size()) return a.size() < b.size();
  return a < b;
}

fs::path beginReport(const fs::path& folder) {
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec)
    throw RuntimeError(kPathNotFound,
                       "Cannot make the reports folder " + folder.string() + ": " + ec.message());
  static int serial = 0;
  return folder / (kRunningPrefix + std::to_string(::getpid()) + "-" + std::to_string(++serial));
}

fs::path endReport(const fs::path& folder, const fs::path& running, RunPlan& plan,
                   const std::string& extension, const ReportLimits& limits) {
  // The folder is looked through once for the id, the pruning and the abandoned runs, and once
  // more under the index's lock.
  std::vector<RunningFile> others;
  auto files = scan(folder, &others);
  plan.id = newId(files);
  fs::path path = folder / (plan.id + extension);
  std::error_code ec;
  fs::rename(running, path, ec);
  if (ec)
    throw RuntimeError(kDiskIO, "Cannot write the report " + path.string() + ": " + ec.message());
  ReportFiles& mine = files[plan.id];
  mine.main = utf8(path.filename());
  auto size = fs::file_size(path, ec);
  mine.bytes = ec ? 0 : static_cast<int64_t>(size);
  mine.written = fs::last_write_time(path, ec);
  prune(folder, files, plan.id, limits);
  removeAbandonedRuns(others);
  ReportEntry entry = entryOf(folder, plan.id, plan);
  updateIndex(folder, &entry, false);
  return path;
}

std::vector<std::string> listReports(const fs::path& folder) {
  return sortedIds(scan(folder));
}

std::vector<ReportEntry> reportEntries(const fs::path& folder) {
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) return {};
  return updateIndex(folder, nullptr, true);
}

RunPlan readReport(const fs::path& folder, const std::string& id) {
  std::string which = id;
  if (which.empty() || which.find_first_of("/\\") != std::string::npos)
    throw RuntimeError(kFileNotFound, "No report " + which + " in " + folder.string());
  if (id == "last") {
    auto ids = listReports(folder);
    if (ids.empty()) throw RuntimeError(kFileNotFound, "No reports in " + folder.string());
    which = ids.back();
  }
  std::error_code ec;
  fs::path compact = folder / (which + kReportExtension);
  if (fs::is_regular_file(compact, ec)) {
    RunPlan plan = readReportFile(compact);
    plan.id = which;
    return plan;
  }
  fs::path path = folder / (which + kOldExtension);
  std::ifstream in(path, std::ios::binary);
  if (!in) throw RuntimeError(kFileNotFound, "No report " + which + " in " + folder.string());
  try {
    return planFromJson(nlohmann::ordered_json::parse(in));
  } catch (const nlohmann::json::exception& e) {
    throw RuntimeError(kTypeMismatch, path.string() + " is not a dossync report: " + e.what());
  }
}

}  // namespace dossync::report
