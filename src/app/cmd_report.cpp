// dossync report: the reports of past runs, kept in the profile's reports/ folder.
#include <filesystem>
#include <ostream>

#include "app/commands.h"
#include "app/outlook_wiring.h"
#include "core/error.h"
#include "report/report_store.h"

namespace dossync::app {

int runReport(const ReportOptions& o, std::ostream& out, std::ostream& err) {
  std::filesystem::path folder;
  try {
    // The store and profile as sync takes them from a URL holding a user name.
    Credentials store = resolveCredentials(o.outlook, o.profile, {});
    folder = reportsFolder(store.outlook, store.profile);
    if (o.action == "show") {
      report::RunPlan plan = report::readReport(folder, o.id);
      if (o.json) {
        out << report::toJson(plan).dump(2) << "\n";
      } else {
        out << report::toText(plan);
      }
      return kExitOk;
    }
    auto ids = report::listReports(folder);
    if (o.json) {
      nlohmann::ordered_json list = nlohmann::ordered_json::array();
      for (const auto& id : ids) {
        report::RunPlan plan = report::readReport(folder, id);
        list.push_back({{"id", id},
                        {"started", plan.started},
                        {"finished", plan.finished},
                        {"records", plan.records.size()},
                        {"errors", plan.errorCount()}});
      }
      out << list.dump(2) << "\n";
      return kExitOk;
    }
    if (ids.empty()) {
      out << "No reports in " << folder.string() << "\n";
      return kExitOk;
    }
    for (const auto& id : ids) {
      report::RunPlan plan;
      try {
        plan = report::readReport(folder, id);
      } catch (const RuntimeError& e) {
        out << id << "  (unreadable: " << e.description() << ")\n";  // the others still list
        continue;
      }
      std::string direction;
      for (const auto& [k, v] : plan.settings)
        if (k == "direction") direction = v;
      out << id << "  " << plan.started << "  direction " << direction << "  "
          << report::summaryLine(plan) << "\n";
    }
  } catch (const RuntimeError& e) {
    err << "dossync: " << e.description() << "\n";
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace dossync::app
