// dossync report: the reports of past runs, kept in the profile's reports folder (and those an
// earlier version kept in the profile's own folder).
#include <algorithm>
#include <filesystem>
#include <ostream>

#include "app/commands.h"
#include "app/console_services.h"
#include "app/outlook_wiring.h"
#include "base/error.h"
#include "report/report_store.h"

namespace dossync::app {
namespace {

namespace fs = std::filesystem;

// The report with that id ("last": the newest) in the first of the folders that has it.
report::RunPlan readFrom(const std::vector<fs::path>& folders, const std::string& id) {
  if (id == "last") {
    std::string newest;
    const fs::path* where = nullptr;
    for (const auto& folder : folders) {
      auto ids = report::listReports(folder);
      if (!ids.empty() && (!where || report::earlierReport(newest, ids.back()))) {
        newest = ids.back();
        where = &folder;
      }
    }
    if (!where) throw RuntimeError(kFileNotFound, "No reports in " + folders.back().string());
    return report::readReport(*where, newest);
  }
  for (auto it = folders.rbegin(); it != folders.rend(); ++it) {
    try {
      return report::readReport(*it, id);
    } catch (const RuntimeError& e) {
      if (e.remedy() != Remedy::kNotFound) throw;
    }
  }
  throw RuntimeError(kFileNotFound, "No report " + id + " in " + folders.back().string());
}

}  // namespace

int runReport(const ReportOptions& o, std::ostream& out, std::ostream& err) {
  try {
    // The store and profile as sync takes them from a URL holding a user name.
    Credentials store = resolveCredentials(o.outlook, o.profile, {});
    std::vector<fs::path> folders;
    if (std::string old = oldReportsFolder(store.outlook, store.profile); !old.empty())
      folders.emplace_back(old);
    folders.emplace_back(reportsFolder(store.outlook, store.profile));  // searched first

    if (o.action == "show") {
      report::RunPlan plan = readFrom(folders, o.id);
      if (o.json) {
        out << report::toJson(plan).dump(2) << "\n";
      } else {
        out << report::toText(plan);
      }
      return kExitOk;
    }

    std::vector<report::ReportEntry> entries;
    for (const auto& folder : folders) {
      auto more = report::reportEntries(folder);
      entries.insert(entries.end(), more.begin(), more.end());
    }
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
      return report::earlierReport(a.id, b.id);
    });
    if (o.json) {
      nlohmann::ordered_json list = nlohmann::ordered_json::array();
      for (const auto& e : entries) list.push_back(report::toJson(e));
      out << list.dump(2) << "\n";
      return kExitOk;
    }
    if (entries.empty()) {
      out << "No reports in " << folders.back().string() << "\n";
      return kExitOk;
    }
    for (const auto& e : entries) {
      if (!e.unreadable.empty()) {
        out << e.id << "  (unreadable: " << e.unreadable << ")\n";  // the others still list
        continue;
      }
      out << e.id << "  " << e.started << "  direction " << e.direction << "  " << e.summary
          << (e.interrupted ? "  (interrupted)" : "") << "\n";
    }
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitFailure);
  }
  return kExitOk;
}

}  // namespace dossync::app
