#include "app/cli.h"

#include <CLI/CLI.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <ostream>
#include <vector>

#ifdef DOSSYNC_HAVE_MIMALLOC
#include <mimalloc.h>
#endif

#include "app/cmd_mail.h"
#include "app/cmd_wizard.h"
#include "app/commands.h"
#include "app/console_services.h"
#include "app/credentials.h"
#include "app/databases.h"
#include "app/demo_data.h"
#include "app/path_guards.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "dossync_version.h"

namespace dossync::app {
namespace {

int initHost(const std::string& path, std::ostream& out, std::ostream& err) {
  try {
    databases::createHostDatabase(path);
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitFailure);
  }
  out << "Created host database " << databases::displayName(path) << "\n";
  return kExitOk;
}

int demoData(const std::string& path, const DemoOptions& options, std::ostream& out,
             std::ostream& err) {
  try {
    if (!databases::hostDatabaseExists(path)) databases::createHostDatabase(path);
    DemoSummary s = fillDemoPractice(path, options);
    out << "Filled " << databases::displayName(path) << ": " << s.companies << " companies, "
        << s.contacts << " contacts, " << s.categories << " categories, " << s.clients
        << " client records, " << s.scheduleRows << " schedule rows\n";
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitFailure);
  }
  return kExitOk;
}

int check(const std::string& hostDb, const std::string& syncDb, bool replaceSyncDb,
          std::ostream& out, std::ostream& err) {
  if (int code = refuseMistakenDatabases(hostDb, syncDb, replaceSyncDb, err)) return code;
  auto errors = std::make_shared<ConsoleErrorService>(err);
  auto messages = std::make_shared<ConsoleMessageBox>(err);
  auto component = std::make_unique<clsOutlookSynchronization>();
  component->setErrorClass(errors);
  component->setMsgboxClass(messages);
  component->setMainDatabaseLocation(hostDb);
  component->setSyncDatabaseLocation(syncDb);
  bool failed = component->FailedToInitializeFlag();
  auto describe = [](const hostdb::DataAccessPtr& db, const std::string& path) {
    std::string name = databases::displayName(path);
    if (db && db->isDatabaseOpen()) return "open (" + name + ")";
    if (!databases::isServer(path) && !std::filesystem::exists(path))
      return "not open (" + name + ": no such file)";
    return "not open (" + name + ")";
  };
  out << "FailedToInitializeFlag: " << (failed ? "True" : "False") << "\n";
  out << "Host database: " << describe(apartment().hostDb, hostDb) << "\n";
  out << "Sync database: " << describe(apartment().syncDb, syncDb) << "\n";
  if (failed) err << initFailureHint(hostDb, syncDb) << "\n";
  return failed ? kExitInitFailed : kExitOk;
}

}  // namespace

void setUpProcess() {
  // Everything dossync writes holds client data or secrets (the synchronisation database and
  // its journal, reports, the CardDAV copy, drafts, the outbox, the mail account): readable by
  // its owner only, whatever the umask it was started with.
  ::umask(077);
#ifdef DOSSYNC_HAVE_MIMALLOC
  // A run lets go of what its databases cached at every commit point (ten times a second) and
  // reads as much again right after: memory freed is kept a second before it goes back to the
  // system, rather than handed back and faulted in again at once.
  mi_option_set(mi_option_decommit_delay, 1000);
#endif
}

void addVerbosityOptions(CLI::App* cmd, bool& quiet, bool& verbose) {
  auto* q = cmd->add_flag("-q,--quiet", quiet, "Print errors only");
  cmd->add_flag("-v,--verbose", verbose, "Print one line per record as it is done")->excludes(q);
}

void addOutlookOptions(CLI::App* cmd, std::string& outlook, std::string& profile,
                       PasswordOptions& password, bool& insecure) {
  cmd->add_option("--outlook", outlook,
                  "The Outlook store: vdir:DIR or carddav:URL (default: vdir under "
                  "$XDG_DATA_HOME/dossync/outlook)");
  cmd->add_option("--profile", profile,
                  "The Outlook profile (default: the store's default); for carddav: the user name");
  addPasswordOptions(cmd, password);
  cmd->add_flag("--insecure", insecure, "carddav over https: do not verify the certificate");
}

CLI::Option* addSyncOptions(CLI::App* cmd, SyncOptions& o) {
  cmd->add_option("--host-db", o.hostDb, "The host database")->required();
  cmd->add_option("--sync-db", o.syncDb, "The synchronisation database")->required();
  addOutlookOptions(cmd, o.outlook, o.profile, o.password, o.insecure);
  auto* direction =
      cmd->add_option(
             "--direction", o.direction,
             "1 both ways (does nothing: see --two-way), 2 host to Outlook, 3 Outlook to host")
          ->check(CLI::IsMember({1, 2, 3}));
  cmd->add_option("--info", o.info,
                  "1 company with default contact, 2 company only, 3/4 contact only "
                  "(start nothing), 7 contacts")
      ->check(CLI::IsMember({1, 2, 3, 4, 7}));
  cmd->add_option("--select", o.select,
                  "all, or a comma-separated list of company or contact numbers (Outlook "
                  "entry ids with --direction 3)");
  cmd->add_option("--scheme", o.scheme, "The scheme number the pairings belong to");
  cmd->add_option("--data-file", o.dataFile, "The host data file's unique id");
  cmd->add_option("--category", o.category, "The Outlook category of written items");
  cmd->add_flag("--no-progress", o.noProgress, "No progress bar");
  cmd->add_option("--on-error", o.onError, "What an error does: leave, resume or exit")
      ->check(CLI::IsMember({"leave", "resume", "exit"}));
  cmd->add_flag("--preview", o.preview,
                "Show what the run would do, record by record, and change nothing");
  cmd->add_flag("--json", o.json, "Print the preview, or the run's report, as JSON");
  cmd->add_flag("--all", o.all, "With --preview: list the records that change nothing too")
      ->needs("--preview");
  cmd->add_flag("--pair-created", o.pairCreated,
                "From Outlook: pair each item with the company made for it (not -1, which "
                "makes the next run from Outlook make it again)");
  auto* twoWay = cmd->add_flag(
      "--two-way", o.twoWay,
      "Keep both sides in step field by field, pairing by identity only (--info 1 or 7, every "
      "record; see docs/two-way.md)");
  cmd->add_option("--conflict", o.conflict,
                  "With --two-way: whose value a field changed on both sides keeps, host (the "
                  "default) or outlook")
      ->check(CLI::IsMember({"host", "outlook"}))
      ->needs(twoWay);
  cmd->add_flag("--force", o.force,
                "With --two-way: delete the items of deleted host records even when they are "
                "more than a fifth of the pairs")
      ->needs(twoWay);
  cmd->add_flag("--restore-deleted", o.restoreDeleted,
                "With --two-way: make again the items deleted from the store whose records "
                "were kept")
      ->needs(twoWay);
  cmd->add_option("--wait", o.wait,
                  "How many seconds to wait for another run of the same scheme on the "
                  "synchronisation database to end (then exit code 75)")
      ->check(CLI::NonNegativeNumber);
  cmd->add_flag("--replace-sync-db", o.replaceSyncDb,
                "Let a --sync-db file that is not a database be replaced by a new one");
  cmd->add_option("--keep-reports", o.keepReports, "How many reports the profile keeps (0: all)")
      ->check(CLI::NonNegativeNumber);
  cmd->add_option("--keep-days", o.keepDays, "How many days a report is kept (0: for ever)")
      ->check(CLI::NonNegativeNumber);
  cmd->add_option("--keep-size", o.keepBytes,
                  "How much the profile's reports may take together, as 200MB, 1G or "
                  "bytes (0: no limit)")
      ->transform(CLI::AsSizeValue(false))
      ->default_str("200MB")
      ->check(CLI::NonNegativeNumber);
  return direction;
}

std::string versionLine() {
  return std::string("dossync ") + DOSSYNC_VERSION;
}

int runCli(int argc, char** argv, std::ostream& out, std::ostream& err) {
  databases::registerDataAccess();  // databases on SQLite or PostgreSQL

  CLI::App app{"dossync: keeps a practice's client records and its Outlook contacts in step"};
  app.require_subcommand(1);
  app.option_defaults()->always_capture_default();  // --help shows every option's default
  app.set_help_all_flag("--help-all", "Show the help of every command");
  app.set_version_flag("--version", versionLine(), "Show the version and exit");
  auto* versionCmd = app.add_subcommand("version", "Show the version");

  std::string initPath;
  auto* init = app.add_subcommand("init-host", "Create an empty host database from the schema");
  init->add_option("PATH", initPath, "Where to create the database")->required();

  std::string demoPath;
  DemoOptions demo;
  auto* demoCmd = app.add_subcommand("demo-data", "Fill a host database with a synthetic practice");
  demoCmd->add_option("PATH", demoPath, "The host database (created when missing)")->required();
  demoCmd->add_option("--companies", demo.companies, "How many companies")
      ->check(CLI::Range(0, 1000000));
  demoCmd->add_option("--seed", demo.seed, "Seed: the same seed gives the same practice");
  demoCmd->add_flag("--append", demo.append,
                    "Add the practice to a host database that already has companies");

  std::string hostDb, syncDb;
  bool replaceSyncDb = false;
  auto* checkCmd = app.add_subcommand(
      "check", "Open both databases as the component does and report the outcome");
  checkCmd->add_option("--host-db", hostDb, "The host database")->required();
  checkCmd->add_option("--sync-db", syncDb, "The synchronisation database (created when needed)")
      ->required();
  checkCmd->add_flag("--replace-sync-db", replaceSyncDb,
                     "Let a --sync-db file that is not a database be replaced by a new one");

  ContactsOptions contacts;
  auto* contactsCmd =
      app.add_subcommand("contacts", "Read and write the contacts of an Outlook store");
  contactsCmd->require_subcommand(1);
  auto* listCmd = contactsCmd->add_subcommand("list", "Every item of the contacts folder");
  auto* showCmd = contactsCmd->add_subcommand("show", "One contact");
  showCmd->add_option("ENTRYID", contacts.entryId, "The contact's EntryID")->required();
  auto* putCmd = contactsCmd->add_subcommand(
      "put",
      "Create a contact from a JSON object of Outlook property names, or update the one "
      "its EntryID names; prints the EntryID");
  putCmd->add_option("--json", contacts.jsonFile, "The JSON file, or - for standard input")
      ->required();
  auto* deleteCmd = contactsCmd->add_subcommand("delete", "Delete a contact");
  deleteCmd->add_option("ENTRYID", contacts.entryId, "The contact's EntryID")->required();
  for (CLI::App* cmd : {listCmd, showCmd, putCmd, deleteCmd}) {
    addOutlookOptions(cmd, contacts.outlook, contacts.profile, contacts.password,
                      contacts.insecure);
    if (cmd != putCmd && cmd != deleteCmd) cmd->add_flag("--json", contacts.json, "Print JSON");
  }

  SyncOptions sync;
  auto* syncCmd = app.add_subcommand("sync", "Run one synchronisation");
  CLI::Option* directionOption = addSyncOptions(syncCmd, sync);

  ReportOptions reportOptions;
  auto* reportCmd = app.add_subcommand("report", "The reports of past runs (of a store's profile)");
  auto* reportList =
      reportCmd->add_subcommand("list", "Every report kept, oldest first (the default)");
  auto* reportShow = reportCmd->add_subcommand("show", "One report");
  reportShow->add_option("ID", reportOptions.id, "The report's id, or last (the default)");
  PasswordOptions unusedPassword;
  bool unusedInsecure = false;
  for (CLI::App* cmd : {reportCmd, reportList, reportShow}) {
    // The store options of sync, so that the same words find a run's reports; the reports are
    // local files, so the password is not needed.
    addOutlookOptions(cmd, reportOptions.outlook, reportOptions.profile, unusedPassword,
                      unusedInsecure);
    cmd->add_flag("--json", reportOptions.json, "Print JSON");
  }

  JobsOptions jobs;
  auto* runCmd = app.add_subcommand(
      "run",
      "Run a named job of $XDG_CONFIG_HOME/dossync/config.toml (options given after its "
      "name take the place of the job's), or every job in turn");
  runCmd->add_option("NAME", jobs.name, "The job");
  runCmd->add_flag("--all", jobs.all, "Every job in turn (the exit code is the worst of theirs)");
  runCmd->prefix_command();  // what follows the name are sync's options
  auto* jobsCmd = app.add_subcommand("jobs", "The named jobs, each with its last run's outcome");
  auto* jobsAdd = jobsCmd->add_subcommand(
      "add", "Write a job into the config file: the options of sync after its name");
  jobsAdd->add_option("NAME", jobs.name, "The job's name")->required();
  jobsAdd->prefix_command();

  WizardCommand wizard;
  addWizardCommand(app, wizard);
  MailCommands mail(app);

  // -q and -v on every command, before or after its name.
  bool quiet = false, verbose = false;
  std::function<void(CLI::App*)> addVerbosity = [&](CLI::App* cmd) {
    addVerbosityOptions(cmd, quiet, verbose);
    for (CLI::App* sub : cmd->get_subcommands({})) addVerbosity(sub);
  };
  addVerbosity(&app);

  // The arguments as given, before their passwords are hidden: the wizard's program gets them.
  std::vector<std::string> given(argv + std::min(argc, 1), argv + argc);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    out << app.help();
    return kExitOk;
  } catch (const CLI::CallForAllHelp& e) {
    out << app.help("", CLI::AppFormatMode::All);
    return kExitOk;
  } catch (const CLI::CallForVersion& e) {
    out << e.what() << "\n";
    return kExitOk;
  } catch (const CLI::ParseError& e) {
    err << "dossync: " << e.what() << "\n"
        << "Run 'dossync --help' for the commands.\n";
    return kExitUsage;
  }
  hidePasswordArguments(argc, argv);

  if (*versionCmd) {
    out << versionLine() << "\n";
    return kExitOk;
  }
  // Quiet: what only says how a command went is not printed (what was asked for still is).
  std::ostream nowhere(nullptr);
  std::ostream& said = quiet ? nowhere : out;
  if (*init) return initHost(initPath, said, err);
  if (*demoCmd) return demoData(demoPath, demo, said, err);
  if (*checkCmd) return check(hostDb, syncDb, replaceSyncDb, said, err);
  if (*contactsCmd) {
    for (CLI::App* cmd : {listCmd, showCmd, putCmd, deleteCmd}) {
      if (*cmd) contacts.action = cmd->get_name();
    }
    return runContacts(contacts, out, err);
  }
  if (*syncCmd) {
    sync.directionGiven = directionOption->count() > 0;
    sync.quiet = quiet;
    sync.verbose = verbose;
    if (quiet) sync.noProgress = true;
    return runSync(sync, out, err);
  }
  if (*runCmd || *jobsCmd) {
    jobs.action = *runCmd ? "run" : *jobsAdd ? "add" : "list";
    for (auto& arg : (*runCmd ? runCmd : jobsAdd)->remaining()) {
      // After the first of sync's options the rest is sync's, but for these.
      if (arg == "-q" || arg == "--quiet") {
        quiet = true;
      } else if (arg == "-v" || arg == "--verbose") {
        verbose = true;
      } else {
        jobs.args.push_back(arg);
      }
    }
    if (quiet && verbose) {
      err << "dossync: --quiet and --verbose exclude each other\n";
      return kExitUsage;
    }
    jobs.quiet = quiet;
    jobs.verbose = verbose;
    return runJobs(jobs, out, err);
  }
  if (*reportCmd) {
    if (*reportShow) reportOptions.action = "show";
    return runReport(reportOptions, out, err);
  }
  if (*wizard.command) {
    // Its name goes; -q and -v before it come along (the wizard takes and ignores them).
    auto name = std::find(given.begin(), given.end(), wizard.command->get_name());
    if (name != given.end()) given.erase(name);
    return startWizardProgram(given, out, err);
  }
  if (auto code = mail.run(out, err)) return *code;
  return kExitUsage;
}

}  // namespace dossync::app
