// dossync sync: one synchronisation through the component, headless, with console services.
// A real run writes its report into the profile's reports folder as it goes; --preview runs the
// same walk inside a PreviewScope and prints the plan instead, changing nothing. SIGINT or
// SIGTERM stops the walk at the next record (a second one ends the process at once): what was
// done is committed, the report says the run was interrupted, and the exit code is 128 + the
// signal's number.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <vector>

#include <signal.h>
#include <unistd.h>

#include "app/commands.h"
#include "app/console_services.h"
#include "app/databases.h"
#include "app/host_component.h"
#include "app/outlook_wiring.h"
#include "app/path_guards.h"
#include "app/run_report.h"
#include "app/scheme_lock.h"
#include "app/terminal_progress.h"
#include "base/value.h"
#include "core/apartment.h"
#include "core/recordset.h"
#include "core/run_stop.h"
#include "core/synchronization.h"
#include "report/report_file.h"
#include "report/report_store.h"
#include "report/run_recorder.h"
#include "twoway/two_way.h"

namespace dossync::app {
namespace {

int32_t actionFor(const std::string& onError) {
  if (onError == "resume") return kActionResume;
  if (onError == "exit") return kActionExitProgram;
  return kActionLeave;
}

// Which member of a selection entry the chosen numbers or ids fill.
int memberFor(int32_t direction, int32_t info) {
  if (direction == syncFromOutlookToDossiera) return 3;
  return info == companyWithDefaultContact || info == companyOnly ? 1 : 2;
}

void addEntry(SelectionCollection& s, int member, const std::string& id) {
  s.add(member == 1 ? id : "", member == 2 ? id : "", member == 3 ? id : "");
}

// Every record of the kind the selection holds: host companies or contacts, or the Outlook
// contacts of the store.
void selectAll(clsOutlookSynchronization& c, int member) {
  SelectionCollection& s = *c.companyCollection();
  if (member == 3) {
    c.StartOutlook();
    auto items = c.contactsFolder()->Items();
    for (int32_t i = 1, n = items->Count(); i <= n; ++i) {
      auto item = items->Item(i);
      if (item && item->Class() == outlook::olContact) addEntry(s, 3, item->EntryID());
    }
    return;
  }
  // The keys alone, in one statement, then in the order a cursor on the table walks them.
  const std::string key = member == 1 ? "CompanyID" : "ContactID";
  std::vector<int64_t> keys;
  hostdb::Recordset rs(*apartment().hostDb,
                       "SELECT " + key + " FROM " + (member == 1 ? "Companies" : "Contacts") + ";");
  for (; !rs.eof(); rs.next()) keys.push_back(value::toLong(rs.read(key)));
  std::sort(keys.begin(), keys.end());
  s.reserve(keys.size(), member);
  for (int64_t k : keys) addEntry(s, member, std::to_string(k));
}

// Names on err the chosen numbers (or Outlook entry ids) that no record has: the run passes
// them by without a word.
void warnUnmatched(clsOutlookSynchronization& c, int member, const std::vector<std::string>& chosen,
                   std::ostream& err) {
  if (chosen.empty()) return;
  std::set<std::string> known;
  if (member == 3) {
    c.StartOutlook();
    auto items = c.contactsFolder()->Items();
    for (int32_t i = 1, n = items->Count(); i <= n; ++i)
      if (auto item = items->Item(i)) known.insert(item->EntryID());
  } else {
    std::string list;
    for (const auto& id : chosen) list += (list.empty() ? "" : ", ") + id;
    std::string key = member == 1 ? "CompanyID" : "ContactID";
    hostdb::Recordset rs(*apartment().hostDb, "SELECT " + key + " FROM " +
                                                  (member == 1 ? "Companies" : "Contacts") +
                                                  " WHERE " + key + " IN (" + list + ");");
    for (; !rs.eof(); rs.next()) known.insert(std::to_string(value::toLong(rs.read(key))));
  }
  std::string missing;
  for (const auto& id : chosen)
    if (!known.count(id)) missing += (missing.empty() ? "" : ", ") + id;
  if (missing.empty()) return;
  const char* what = member == 1 ? "company" : member == 2 ? "contact" : "Outlook item";
  err << "dossync: warning: --select names no " << what << " " << missing << " ("
      << (member == 3 ? "no item of the store has that entry id"
                      : "no such number in the host database")
      << "); left out\n";
}

// Why the options cannot make a two-way run ("" they can).
std::string twoWayMisuse(const SyncOptions& o) {
  if (o.directionGiven) return "--two-way runs both ways itself: leave out --direction";
  if (o.info != companyWithDefaultContact && o.info != 7)
    return "--two-way takes --info 1 (companies with their default contacts) or 7 (contacts), "
           "not " +
           std::to_string(o.info);
  if (o.select != "all")
    return "--two-way works on every record: leave out --select (or give --select all)";
  if (o.pairCreated)
    return "--pair-created is for --direction 3: a two-way run pairs what it makes";
  return "";
}

// A preview needs a synchronisation database that exists (opening one makes it): one that does
// not yet is as good as an empty one, made in a temporary folder and removed afterwards.
struct PreviewSyncDb {
  std::string path;
  std::filesystem::path temp;
  explicit PreviewSyncDb(const std::string& given) : path(given) {
    if (databases::isServer(given) || std::filesystem::exists(given)) return;
    temp = std::filesystem::temp_directory_path() /
           ("dossync-preview-" + std::to_string(::getpid()) + "-" +
            std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    std::filesystem::create_directories(temp);
    path = (temp / "sync.db").string();
  }
  ~PreviewSyncDb() {
    std::error_code ec;
    if (!temp.empty()) std::filesystem::remove_all(temp, ec);
  }
};

// Holds the scheme's lock on the synchronisation database for the run (kExitOk), waiting at
// most o.wait seconds for another run that holds it (then kExitBusy).
int lockRun(const SyncOptions& o, std::unique_ptr<SchemeLock>& lock, std::ostream& err) {
  std::string scheme =
      "scheme " + std::to_string(o.scheme) + " of " + databases::displayName(o.syncDb);
  lock =
      lockScheme(o.syncDb, o.scheme, std::chrono::seconds(o.wait), [&](const std::string& holder) {
        if (o.quiet) return;
        err << "dossync: " << scheme << " is in use by another run (" << holder
            << "); waiting up to " << o.wait << " seconds for it to end\n";
        err.flush();
      });
  if (lock->state() != SchemeLock::State::Busy) return kExitOk;
  err << "dossync: " << scheme << " is still in use by another run (" << lock->holder() << ", lock "
      << lock->where() << "): nothing was done. Run again when it has ended, or give "
      << "--wait SECONDS to wait longer\n";
  return kExitBusy;
}

volatile sig_atomic_t gStopSignal = 0;

extern "C" void stopAtNextRecord(int signal) {
  gStopSignal = signal;
  requestRunStop();
}

// While it lives, SIGINT and SIGTERM ask the run to stop; each handler is used once, so the
// second signal does what it would have done without it.
class StopOnSignals {
 public:
  StopOnSignals() {
    struct sigaction action {};
    action.sa_handler = stopAtNextRecord;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART | SA_RESETHAND;
    sigaction(SIGINT, &action, &oldInt_);
    sigaction(SIGTERM, &action, &oldTerm_);
  }
  ~StopOnSignals() {
    sigaction(SIGINT, &oldInt_, nullptr);
    sigaction(SIGTERM, &oldTerm_, nullptr);
  }
  StopOnSignals(const StopOnSignals&) = delete;
  StopOnSignals& operator=(const StopOnSignals&) = delete;
  // 128 + the signal that stopped the run, or 0.
  static int exitCode() {
    return runStopRequested() && gStopSignal ? kExitSignalBase + gStopSignal : 0;
  }

 private:
  struct sigaction oldInt_ {};
  struct sigaction oldTerm_ {};
};

// The run's counts as its report has them: the records, each action the direction takes, the
// errors; then the records the component undid, the time, and whether the run was stopped.
std::string summaryOf(const report::RunPlan& plan, int32_t direction, double seconds) {
  std::ostringstream line;
  line << "records " << plan.recordCount();
  std::vector<const char*> actions;
  if (direction == syncBothsWays) {
    actions = {"create-item",    "update-item",    "create-company", "create-contact",
               "update-company", "update-contact", "update-both",    "delete-item",
               "item-deleted",   "nothing"};
  } else if (direction == syncFromOutlookToDossiera) {
    actions = {"create-company", "update-company", "nothing"};
  } else if (direction == syncFromDossieraToOutlook) {
    actions = {"create-item", "update-item", "pair-only", "nothing"};
  }
  for (const char* a : actions) line << ", " << a << " " << plan.count(a);
  if (direction == syncBothsWays) line << ", conflicts " << plan.conflictCount();
  char tail[64];
  std::snprintf(tail, sizeof tail, ", seconds %.2f", seconds);
  line << ", errors " << plan.errorCount() << ", records failed " << plan.failedCount() << tail;
  if (plan.interrupted) line << ", interrupted";
  return line.str();
}

// A record as -v shows it when it is done: "company 12 Maple Dental Ltd.: update-item".
std::string recordLine(const report::RecordPlan& r) {
  std::string line = r.kind + " " + r.key;
  if (!r.name.empty()) line += " " + r.name;
  line += ": " + r.action;
  if (!r.errors.empty()) line += " (" + std::to_string(r.errors.size()) + " errors)";
  return line;
}

}  // namespace

int runSync(const SyncOptions& given, std::ostream& out, std::ostream& err) {
  SyncOptions o = given;
  if (o.twoWay) {
    if (std::string why = twoWayMisuse(o); !why.empty()) {
      err << "dossync: " << why << "\n";
      return kExitUsage;
    }
    o.direction = syncBothsWays;
  }
  Credentials credentials;
  try {
    credentials = resolveCredentials(o.outlook, o.profile, o.password);
    o.outlook = credentials.outlook;
    o.profile = credentials.profile;
    registerOutlook(o.outlook, o.insecure);
    keepServerValuesOnConflict(o.twoWay && o.conflict == "outlook");
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitUsage);
  }
  if (int code = refuseMistakenDatabases(o.hostDb, o.syncDb, o.replaceSyncDb, err)) return code;
  bool storeThere = true;
  if (int code = prepareStore(o.outlook, o.profile, StoreUse::Write, storeThere, err, o.quiet))
    return code;
  std::unique_ptr<SchemeLock> lock;
  if (!o.preview) {  // a preview changes nothing: it need not wait
    if (int code = lockRun(o, lock, err)) return code;
  }
  Session server;
  if (int code = checkServerLogon(credentials, &server, err)) return code;
  registerTerminalProgress(!o.noProgress);
  auto errors = std::make_shared<ConsoleErrorService>(err, actionFor(o.onError));
  auto messages = std::make_shared<ConsoleMessageBox>(err);
  HostComponent host;
  std::optional<PreviewSyncDb> previewDb;
  if (o.preview) previewDb.emplace(o.syncDb);
  const std::string& syncDb = previewDb ? previewDb->path : o.syncDb;
  if (int code = openHostComponent(host, errors, messages, o.dataFile, o.hostDb, syncDb, err))
    return code;
  auto& component = host.component;
  auto outcome = std::make_shared<RunOutcome>();
  auto recorder = makeReportingRecorder(
      o.outlook, [profile = o.profile] { return profile; },
      report::ReportLimits{o.keepReports, o.keepDays, o.keepBytes}, outcome);
  recorder->setSetting("syncDatabase", o.syncDb);
  recorder->setSetting("outlook", o.outlook.empty() ? "vdir (the default store)" : o.outlook);
  recorder->setSetting("profile", o.profile);
  recorder->setSetting("select", o.select);
  recorder->setSetting("onError", o.onError);
  if (!o.job.empty()) recorder->setSetting("job", o.job);  // `dossync jobs` finds its last run
  if (o.verbose && !o.preview) {
    recorder->recordDone = [&out](const report::RecordPlan& r) {
      out << recordLine(r) << "\n";
      out.flush();
    };
  }
  if (o.twoWay) {
    recorder->setSetting("conflict", o.conflict);
    recorder->setSetting("force", o.force ? "yes" : "no");
    recorder->setSetting("restoreDeleted", o.restoreDeleted ? "yes" : "no");
  }
  component->setRunObserver(recorder);
  component->setPairCreatedCompanies(o.pairCreated);

  component->setSchemeID(o.scheme);
  component->setSyncDirectionType(o.direction);
  component->setSyncInformationType(o.info);
  component->setOutlookCategory(o.category);
  component->setProfile(o.profile);
  component->setPassword(credentials.password);
  component->setDisplayLoginDialog(false);
  component->setShowProgress(!o.noProgress);

  if (o.twoWay) {
    twoway::Settings settings;
    settings.conflict =
        o.conflict == "outlook" ? twoway::ConflictRule::Outlook : twoway::ConflictRule::Host;
    settings.force = o.force;
    settings.restoreDeleted = o.restoreDeleted;
    twoway::enableBothWays(*component, settings);
  }
  int member = memberFor(o.direction, o.info);
  try {
    if (o.twoWay) {
      // The two-way run walks every pair itself: it is given no selection.
    } else if (o.select == "all") {
      selectAll(*component, member);
    } else {
      std::vector<std::string> chosen;
      std::stringstream list(o.select);
      std::string id;
      while (std::getline(list, id, ',')) {
        id = value::trim(id);
        if (id.empty()) continue;
        if (member != 3 && !value::isNumeric(id)) {
          err << "dossync: --select takes record numbers here, not '" << id << "'\n";
          return kExitUsage;
        }
        chosen.push_back(member == 3 ? id : std::to_string(value::toLong(id)));
        addEntry(*component->companyCollection(), member, chosen.back());
      }
      if (!o.quiet) warnUnmatched(*component, member, chosen, err);
    }
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitFailure, "cannot list the records to select: ");
  }

  StopOnSignals signals;
  if (o.preview) {
    try {
      report::PreviewScope scope(*recorder, o.all);
      component->Synchronize();
    } catch (const RuntimeError& e) {
      return reportFailure(err, e, kExitFailure, "cannot preview: ");
    }
    if (o.json) {
      out << report::toJson(recorder->plan()).dump(2) << "\n";
    } else {
      out << report::toText(recorder->plan());
    }
    if (int stopped = StopOnSignals::exitCode()) return stopped;
    if (host.exitRequested) return kExitProgram;
    // A two-way run that would fail (or be refused) says so in its preview's exit code too.
    return o.twoWay && errors->errorCount() > 0 ? kExitFailure : kExitOk;
  }

  auto started = std::chrono::steady_clock::now();
  component->Synchronize();
  const std::string& reportPath = outcome->reportPath;
  if (o.reportWritten) *o.reportWritten = reportPath;
  const std::string& reportError = outcome->error;
  const report::RunPlan& written = outcome->plan;
  double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  const auto& n = component->counters();
  // Any error (a record that failed, a commit that failed, anything else reported) makes the
  // run a failure; a signal that stopped it says so first.
  const int done = StopOnSignals::exitCode() ? StopOnSignals::exitCode()
                   : host.exitRequested      ? kExitProgram
                   : errors->errorCount() > 0 || n.recordsFailed > 0 || n.commitsFailed > 0
                       ? kExitFailure
                       : kExitOk;
  if (!reportError.empty()) {
    err << "dossync: the run's report was not "
        << (reportPath.empty() ? "written" : "written whole") << ": " << reportError << "\n";
  }
  if (o.json) {
    // The report as its file has it; without one, the run's counts.
    report::RunPlan shown = written;
    try {
      if (!reportPath.empty()) shown = report::readReportFile(reportPath);
    } catch (const RuntimeError& e) {
      err << "dossync: " << e.description() << "\n";
    }
    out << report::toJson(shown).dump(2) << "\n";
    return done;
  }
  if (o.quiet) return done;
  out << summaryOf(written, o.direction, seconds) << "\n";
  if (std::string names = report::nameMatchLine(written); !names.empty())
    out << names << " (see the report)\n";
  if (!reportPath.empty()) out << "Report: " << reportPath << "\n";
  return done;
}

}  // namespace dossync::app
