// The commands of the dossync command line, each answering the process exit code.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "app/credentials.h"

namespace dossync::app {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitInitFailed = 2;
constexpr int kExitProgram = 3;
constexpr int kExitBusy = 75;  // another run of the scheme held its lock (EX_TEMPFAIL)
constexpr int kExitUsage = 64;
// A run stopped by a signal: 128 + its number (130 SIGINT, 143 SIGTERM), as a shell says.
constexpr int kExitSignalBase = 128;

struct ContactsOptions {
  std::string action;  // list, show, put, delete
  std::string outlook, profile, entryId, jsonFile;
  PasswordOptions password;
  bool json = false, insecure = false;
};
int runContacts(const ContactsOptions& o, std::ostream& out, std::ostream& err);

struct SyncOptions {
  std::string hostDb, syncDb, outlook, profile, select = "all", dataFile;
  PasswordOptions password;
  std::string category = "Business", onError = "leave";
  int32_t direction = 2, info = 1, scheme = -1;
  bool noProgress = false, insecure = false;
  bool preview = false, json = false, pairCreated = false;
  bool all = false;  // a preview lists the records that change nothing too
  bool replaceSyncDb = false;
  // The two-way mode (twoway/two_way.h): direction 1, for information type 1 or 7, every record.
  bool twoWay = false, force = false, restoreDeleted = false;
  std::string conflict = "host";  // host or outlook: whose value a field changed on both keeps
  bool directionGiven = false;    // --direction was on the command line
  int wait = 60;                  // seconds to wait for another run of the scheme
  int keepReports = 100, keepDays = 90;  // report/report_store.h's limits
  int64_t keepBytes = 200LL * 1024 * 1024;
  bool quiet = false;                    // errors only: no summary, no warnings, no progress bar
  bool verbose = false;                  // one line per record as it is done
  std::string job;                       // the named job this run is (its report says so), "" none
  std::string* reportWritten = nullptr;  // when given: set to the report's path, "" for none
};
int runSync(const SyncOptions& o, std::ostream& out, std::ostream& err);

struct ReportOptions {
  std::string action = "list";  // list, show
  std::string id = "last";
  std::string outlook, profile;
  bool json = false;
};
int runReport(const ReportOptions& o, std::ostream& out, std::ostream& err);

// dossync run NAME|--all [sync options], dossync jobs, dossync jobs add NAME [sync options]
// (jobs.h).
struct JobsOptions {
  std::string action;  // run, list, add
  std::string name;
  bool all = false;               // run every job in turn
  std::vector<std::string> args;  // the sync options given after the name
  bool quiet = false, verbose = false;
};
int runJobs(const JobsOptions& o, std::ostream& out, std::ostream& err);

}  // namespace dossync::app
