// dossync run, dossync jobs: the named jobs of the config file (jobs.h). A job is a sync run
// whose options come from its table, those given on the command line taking their place; it
// never asks for anything (no password prompt), so that it runs the same from a terminal as
// from cron or a timer.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>

#include "app/cli.h"
#include "app/commands.h"
#include "app/console_services.h"
#include "app/credentials.h"
#include "app/jobs.h"
#include "app/outlook_wiring.h"
#include "base/error.h"
#include "report/report_store.h"
#include "report/run_recorder.h"

namespace dossync::app {
namespace {

namespace fs = std::filesystem;

// Which exit code of two says the worse outcome: stopped by a signal, then usage, failed to
// initialise, the host asked to close, failed, busy, done.
int worse(int a, int b) {
  auto rank = [](int code) {
    switch (code) {
      case kExitOk:
        return 0;
      case kExitBusy:
        return 1;
      case kExitFailure:
        return 2;
      case kExitProgram:
        return 3;
      case kExitInitFailed:
        return 4;
      case kExitUsage:
        return 5;
      default:
        return code >= kExitSignalBase ? 7 : 6;
    }
  };
  return rank(b) > rank(a) ? b : a;
}

// The sync options parsed as `dossync sync` takes them; answers the exit code when they do
// not make a run (their help asked for: kExitOk).
std::optional<int> parseSync(const std::string& job, const std::vector<std::string>& args,
                             SyncOptions& o, CLI::App& sync, std::ostream& out, std::ostream& err) {
  CLI::Option* direction = addSyncOptions(&sync, o);
  std::vector<std::string> reversed(args.rbegin(), args.rend());  // as CLI11 takes them
  try {
    sync.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    out << sync.help();
    return kExitOk;
  } catch (const CLI::ParseError& e) {
    err << "dossync: job " << job << ": " << e.what() << "\n";
    return kExitUsage;
  }
  o.directionGiven = direction->count() > 0;
  return std::nullopt;
}

// What became of each job's last run, kept beside the reports (a line: when it began, its exit
// code, whether it wrote a report), so that a run that ended before its report was written (a
// refused logon, a database that would not open, a scheme busy with another run) shows in
// `dossync jobs` too.
fs::path outcomeFile(const std::string& job) {
  std::string name = job;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !isJobNameChar(c); }, '_');
  return stateRoot() / "jobs" / (name + ".last");
}

struct Outcome {
  std::string started;
  int code = 0;
  bool reported = false;
};

void noteOutcome(const std::string& job, const Outcome& outcome) {
  std::error_code ec;
  fs::create_directories(outcomeFile(job).parent_path(), ec);
  std::ofstream(outcomeFile(job), std::ios::trunc)
      << outcome.started << "\t" << outcome.code << "\t" << outcome.reported << "\n";
}

std::optional<Outcome> readOutcome(const std::string& job) {
  std::ifstream in(outcomeFile(job));
  Outcome o;
  if (!std::getline(in, o.started, '\t') || !(in >> o.code >> o.reported)) return std::nullopt;
  return o;
}

std::string exitMeaning(int code) {
  switch (code) {
    case kExitFailure:
      return "failed";
    case kExitInitFailed:
      return "could not begin: a database or Outlook would not open";
    case kExitProgram:
      return "closed by the host";
    case kExitUsage:
      return "its options were refused";
    case kExitBusy:
      return "another run of its scheme was going on";
    default:
      return code >= kExitSignalBase ? "stopped by signal " + std::to_string(code - kExitSignalBase)
                                     : "failed";
  }
}

int runJob(const Job& job, const JobsOptions& o, std::string* report, std::ostream& out,
           std::ostream& err) {
  SyncOptions sync;
  sync.reportWritten = report;
  CLI::App parser{"dossync sync, as job " + job.name + " with the options given",
                  "dossync run " + job.name};
  if (auto code = parseSync(job.name, jobArguments(job, o.args), sync, parser, out, err))
    return *code;
  sync.job = job.name;
  sync.quiet = sync.quiet || o.quiet;
  sync.verbose = sync.verbose || o.verbose;
  if (sync.quiet) sync.noProgress = true;
  return runSync(sync, out, err);
}

int runOne(const Job& job, const JobsOptions& o, std::ostream& out, std::ostream& err) {
  Outcome outcome{report::localTimestamp()};
  std::string report;
  outcome.code = runJob(job, o, &report, out, err);
  outcome.reported = !report.empty();
  noteOutcome(job.name, outcome);
  return outcome.code;
}

const Job* find(const std::vector<Job>& jobs, const std::string& name) {
  for (const auto& job : jobs)
    if (job.name == name) return &job;
  return nullptr;
}

std::string names(const std::vector<Job>& jobs) {
  std::string list;
  for (const auto& job : jobs) list += (list.empty() ? "" : ", ") + job.name;
  return list.empty() ? "none" : list;
}

std::string setting(const Job& job, const std::string& key) {
  for (const auto& s : job.settings)
    if (s.key == key) return s.value;
  return "";
}

// The job's last run as its store's report index has it, unless the last run ended before it
// wrote a report; "never run" when neither is known.
std::string lastRun(const Job& job) {
  std::optional<Outcome> noted = readOutcome(job.name);
  if (noted && noted->code != kExitOk && !noted->reported)
    return noted->started + "  " + exitMeaning(noted->code) + " (exit " +
           std::to_string(noted->code) + "), no report";
  Credentials store = resolveCredentials(setting(job, "outlook"), setting(job, "profile"), {});
  fs::path folder = reportsFolder(store.outlook, store.profile);
  auto entries = report::reportEntries(folder);  // from the folder's index
  for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
    if (it->job != job.name) continue;
    std::string outcome = it->interrupted ? "interrupted" : it->errors > 0 ? "failed" : "done";
    return it->started + "  " + outcome + "  " + it->summary + "  (report " + it->id + ")";
  }
  return "never run";
}

int list(const std::vector<Job>& jobs, const fs::path& file, std::ostream& out) {
  if (jobs.empty()) {
    out << "No jobs in " << file.string() << " (dossync jobs add NAME [sync options] writes one)\n";
    return kExitOk;
  }
  size_t width = 0;
  for (const auto& job : jobs) width = std::max(width, job.name.size());
  for (const auto& job : jobs) {
    std::string last;
    try {
      last = lastRun(job);
    } catch (const RuntimeError& e) {
      last = "(" + e.description() + ")";
    }
    out << job.name << std::string(width - job.name.size() + 2, ' ') << last << "\n";
  }
  return kExitOk;
}

int add(const JobsOptions& o, const fs::path& file, const JobKeys& keys, std::ostream& out,
        std::ostream& err) {
  for (const auto& arg : o.args) {
    if (arg == "--password" || arg.rfind("--password=", 0) == 0) {
      err << "dossync: a password is not kept in the config file: give --password-file (a file "
             "whose first line is the password) or --password-command (a command that prints "
             "it)\n";
      return kExitUsage;
    }
  }
  SyncOptions unused;
  CLI::App parser{"The options of the job: those of dossync sync", "dossync jobs add " + o.name};
  if (auto code = parseSync(o.name, o.args, unused, parser, out, err)) return *code;
  std::vector<JobSetting> settings;
  for (const CLI::Option* option : parser.get_options()) {
    if (option->count() == 0 || option->get_lnames().empty()) continue;
    JobSetting s{option->get_lnames().front(), "", option->get_expected_max() == 0};
    if (s.flag) {
      s.value = option->as<bool>() ? "true" : "false";
    } else {
      s.value = option->results().back();
      // A relative path is the working folder's here, the config file's there.
      if (isPathSetting(s.key, s.value)) {
        bool store = s.key == "outlook";
        fs::path path = store ? s.value.substr(5) : s.value;
        s.value = (store ? "vdir:" : "") + fs::absolute(path).lexically_normal().string();
      }
    }
    settings.push_back(std::move(s));
  }
  try {
    addJob(file, o.name, settings, keys);
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitUsage);
  }
  if (!o.quiet) out << "Added job " << o.name << " to " << file.string() << "\n";
  return kExitOk;
}

}  // namespace

JobKeys syncKeys() {
  CLI::App sync;
  SyncOptions unused;
  addSyncOptions(&sync, unused);
  JobKeys keys;
  for (const CLI::Option* option : sync.get_options()) {
    for (const auto& name : option->get_lnames()) keys[name] = option->get_expected_max() == 0;
  }
  keys.erase("help");
  return keys;
}

int runJobs(const JobsOptions& o, std::ostream& out, std::ostream& err) {
  const fs::path file = jobsConfigFile();
  const JobKeys keys = syncKeys();
  if (o.action == "add") return add(o, file, keys, out, err);
  std::vector<Job> jobs;
  try {
    jobs = loadJobs(file, keys);
  } catch (const RuntimeError& e) {
    err << "dossync: " << e.description() << "\n";
    return kExitUsage;
  }
  if (o.action == "list") return list(jobs, file, out);

  // A job runs unattended: what it needs comes from its table, never from a prompt.
  allowPasswordPrompt(false);
  if (!o.all) {
    if (o.name.empty()) {
      err << "dossync: run takes a job's name, or --all (jobs of " << file.string() << ": "
          << names(jobs) << ")\n";
      return kExitUsage;
    }
    const Job* job = find(jobs, o.name);
    if (!job) {
      err << "dossync: no job " << o.name << " in " << file.string()
          << " (its jobs: " << names(jobs) << ")\n";
      return kExitUsage;
    }
    return runOne(*job, o, out, err);
  }
  if (!o.name.empty()) {
    err << "dossync: run takes a job's name or --all, not both\n";
    return kExitUsage;
  }
  if (jobs.empty()) {
    err << "dossync: no jobs in " << file.string() << "\n";
    return kExitUsage;
  }
  int worst = kExitOk;
  for (const auto& job : jobs) {
    if (!o.quiet) out << "Job " << job.name << "\n";
    out.flush();
    int code = runOne(job, o, out, err);
    if (code != kExitOk)
      err << "dossync: job " << job.name << " ended with exit code " << code << "\n";
    worst = worse(worst, code);
    if (code >= kExitSignalBase) break;  // stopped: the jobs after it are not begun
  }
  return worst;
}

}  // namespace dossync::app
