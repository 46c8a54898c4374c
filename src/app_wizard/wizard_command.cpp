#include "app_wizard/wizard_command.h"

#include <CLI/CLI.hpp>

#include <QMessageBox>

#include <filesystem>
#include <ostream>

#include <unistd.h>

#include "app/cli.h"
#include "app/commands.h"
#include "app/console_services.h"
#include "app/credentials.h"
#include "app/databases.h"
#include "app/demo_data.h"
#include "app/host_component.h"
#include "app/jobs.h"
#include "app/outlook_wiring.h"
#include "app/path_guards.h"
#include "app/run_report.h"
#include "app/scheme_lock.h"
#include "app_wizard/scheme_secrets.h"
#include "core/synchronization.h"
#include "report/run_recorder.h"
#include "twoway/two_way.h"
#include "wizard_qt/qt_services.h"
#include "wizard_qt/run_dialogs.h"
#include "wizard_qt/wizard_app.h"
#include "wizard_qt/wizard_dialog.h"

namespace dossync::app {
namespace {

// A handful of Outlook contacts in a few categories, for the Outlook side of the pictures.
void fillDemoOutlook(clsOutlookSynchronization& c) {
  if (!c.StartOutlook()) return;
  struct Demo {
    const char *fileAs, *category;
  };
  const Demo demo[] = {
      {"Abbott, Grace", "Clients"},
      {"Baker & Sons Ltd", "Clients"},
      {"Chen, Wei", "Clients, Tax"},
      {"Dupont, Marie", "Suppliers"},
      {"Evergreen Landscaping", "Suppliers"},
      {"Fischer, Jonas", "Clients"},
      {"Garcia, Lucia", ""},
      {"Harbour Printing", "Suppliers"},
      {"Ito, Kenji", "Clients, Tax"},
      {"Jensen, Ole", ""},
  };
  for (const Demo& d : demo) {
    auto item = std::dynamic_pointer_cast<outlook::ContactItem>(
        c.outlookApplication()->CreateItem(outlook::olContactItem));
    if (!item) continue;
    item->setFileAs(d.fileAs);
    item->setCategories(d.category);
    item->Save();
  }
  c.StopOutlook();
}

// Fills what the command line left empty from a job of config.toml: the one named, else the
// only one there. "" when done, else what is missing.
std::string takeJob(WizardOptions& o) {
  auto file = jobsConfigFile();
  auto jobs = loadJobs(file, syncKeys());
  const Job* job = nullptr;
  for (const Job& j : jobs)
    if (j.name == o.job) job = &j;
  if (o.job.empty() && jobs.size() == 1) job = &jobs.front();
  if (!job) {
    if (!o.job.empty()) return "there is no job \"" + o.job + "\" in " + file.string();
    if (jobs.empty())
      return "no practice was given: give --host-db and --sync-db, or write a job (dossync jobs "
             "add NAME --host-db ... --sync-db ...)";
    return "which job? " + file.string() + " has " + std::to_string(jobs.size()) +
           " jobs: give --job NAME";
  }
  auto take = [](std::string& field, const std::string& value) {
    if (field.empty()) field = value;
  };
  for (const JobSetting& s : job->settings) {
    if (s.key == "host-db")
      take(o.hostDb, s.value);
    else if (s.key == "sync-db")
      take(o.syncDb, s.value);
    else if (s.key == "outlook")
      take(o.outlook, s.value);
    else if (s.key == "profile")
      take(o.profile, s.value);
    else if (s.key == "data-file")
      take(o.dataFile, s.value);
    else if (s.key == "password-file")
      take(o.password.file, s.value);
    else if (s.key == "password-command")
      take(o.password.command, s.value);
    else if (s.key == "insecure")
      o.insecure = o.insecure || s.value == "true";
  }
  if (o.hostDb.empty() || o.syncDb.empty())
    return "the job \"" + job->name + "\" names no host-db or sync-db";
  return "";
}

}  // namespace

std::function<void(qt::QtWizard&)> wizardRunDialogs(clsOutlookSynchronization& component,
                                                    const std::string& outlookSpec) {
  auto outcome = std::make_shared<RunOutcome>();
  auto recorder = makeReportingRecorder(
      outlookSpec, [&component] { return component.Profile(); }, {}, outcome);
  recorder->setSetting("outlook", outlookSpec.empty() ? "vdir (the default store)" : outlookSpec);
  recorder->setSetting("select", "the wizard's selection");
  component.setRunObserver(recorder);
  // "Both ways" runs dossync's two-way mode with the rule the wizard shows (the practice's
  // value until the user or a scheme says otherwise).
  twoway::enableBothWays(component, {});
  return [recorder, outcome, &component](qt::QtWizard& form) {
    form.setSchemePasswords(makeSecretServicePasswords());
    form.offerBothWays({[&component](bool keepOutlook) {
                          twoway::Settings settings;
                          settings.conflict = keepOutlook ? twoway::ConflictRule::Outlook
                                                          : twoway::ConflictRule::Host;
                          twoway::enableBothWays(component, settings);
                        },
                        makeSchemeSettingsFile()});
    QWidget* over = &form.dialog();
    // A database that cannot preview throws before anything runs; the form's error frame
    // reports it.
    form.setPreviewRun([recorder, over](clsOutlookSynchronization& c) {
      {
        report::PreviewScope scope(*recorder);
        c.Synchronize();
      }
      qt::makePlanDialog(recorder->plan(), over)->exec();
    });
    // Finish runs the scheme only while no other run of it goes on (dossync sync's lock).
    form.holdRun = [over](clsOutlookSynchronization& c) -> std::shared_ptr<void> {
      std::shared_ptr<SchemeLock> lock =
          lockScheme(c.SyncDatabaseLocation(), c.SchemeID(), std::chrono::seconds(0), {});
      if (lock->state() != SchemeLock::State::Busy) return lock;
      QMessageBox::information(
          over, "Dossiera",
          QString::fromStdString("Another run of this scheme is going on (" + lock->holder() +
                                 "). Click Finish again when it has ended."));
      return nullptr;
    };
    form.afterRun = [outcome, over](clsOutlookSynchronization& c) {
      if (!outcome->finished) return;
      qt::makeSummaryDialog(outcome->plan, c.counters(), outcome->textPath(), outcome->error, over)
          ->exec();
      outcome->finished = false;
    };
  };
}

int runWizardProgram(int argc, char** argv, std::ostream& out, std::ostream& err) {
  databases::registerDataAccess();  // databases on SQLite or PostgreSQL
  CLI::App app{"Open the synchronisation wizard, or render its steps to PNG files offscreen",
               "dossync wizard"};
  app.option_defaults()->always_capture_default();
  WizardOptions o;
  addWizardOptions(&app, o);
  // dossync's -q and -v, which the wizard takes and ignores.
  bool quiet = false, verbose = false;
  addVerbosityOptions(&app, quiet, verbose);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    out << app.help();
    return kExitOk;
  } catch (const CLI::ParseError& e) {
    err << "dossync: wizard: " << e.what() << "\n"
        << "Run 'dossync wizard --help' for its options.\n";
    return kExitUsage;
  }
  hidePasswordArguments(argc, argv);
  return runWizard(o, out, err);
}

int runWizard(const WizardOptions& given, std::ostream& out, std::ostream& err) {
  WizardOptions o = given;
  bool offscreen = !o.screenshots.empty();
  if (!offscreen && (o.hostDb.empty() || o.syncDb.empty() || !o.job.empty())) {
    std::string missing;
    try {
      missing = takeJob(o);
    } catch (const RuntimeError& e) {
      missing = e.description();
    }
    if (!missing.empty()) {
      err << "dossync: wizard: " << missing << "\n";
      // Opened from the desktop menu nobody reads the terminal: say it in a window as well.
      if (!::isatty(STDERR_FILENO) && displayProblem().empty())
        qt::withQtApplication(false, [&] {
          QMessageBox::warning(nullptr, "dossync", QString::fromStdString(missing));
          return 0;
        });
      return kExitUsage;
    }
  }
  if (!offscreen) {  // Qt would abort on a display it cannot open
    if (std::string why = displayProblem(); !why.empty()) {
      err << "dossync: the wizard needs a display, and " << why
          << ": run it on the desktop, or give --screenshots DIR to render its steps offscreen\n";
      return kExitInitFailed;
    }
  }
  std::filesystem::path demoDir;
  bool demo = offscreen && o.hostDb.empty();
  Credentials credentials;
  try {
    if (demo) {
      demoDir =
          std::filesystem::temp_directory_path() / ("dossync-wizard-" + std::to_string(::getpid()));
      std::filesystem::create_directories(demoDir);
      o.hostDb = (demoDir / "host.db").string();
      o.syncDb = (demoDir / "sync.db").string();
      o.outlook = "vdir:" + (demoDir / "outlook").string();
      databases::createHostDatabase(o.hostDb);
      DemoOptions practice;
      practice.companies = 40;
      practice.seed = 7;
      fillDemoPractice(o.hostDb, practice);
    } else if (offscreen && o.syncDb.empty()) {
      std::filesystem::create_directories(o.screenshots);
      o.syncDb = (std::filesystem::path(o.screenshots) / "sync.db").string();
    }
    credentials = resolveCredentials(o.outlook, o.profile, o.password);
    o.outlook = credentials.outlook;
    o.profile = credentials.profile;
    registerOutlook(o.outlook, o.insecure);
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitUsage);
  }
  if (!demo) {
    if (int code = refuseMistakenDatabases(o.hostDb, o.syncDb, o.replaceSyncDb, err)) return code;
    bool storeThere = true;
    if (int code = prepareStore(o.outlook, o.profile, StoreUse::Write, storeThere, err))
      return code;
  }
  Session server;
  if (int code = checkServerLogon(credentials, &server, err)) return code;

  int code = qt::withQtApplication(offscreen, [&] {
    auto errors = std::make_shared<ConsoleErrorService>(err);
    auto messages = std::make_shared<qt::QtMessageBox>();
    if (offscreen) messages->setAutomatic(false);
    HostComponent host;
    if (int code = openHostComponent(host, errors, messages, o.dataFile, o.hostDb, o.syncDb, err))
      return code;
    auto& component = host.component;
    component->setCompanyList(o.companyList);
    component->setProfile(o.profile);
    component->setPassword(credentials.password);
    component->setDisplayLoginDialog(false);
    if (offscreen) {
      if (demo) fillDemoOutlook(*component);
      auto files =
          qt::renderScreenshots(*component, o.screenshots, wizardRunDialogs(*component, o.outlook));
      for (const auto& f : files) out << f << "\n";
      if (files.empty()) return kExitFailure;
    } else {
      qt::runWizardWindow(*component, wizardRunDialogs(*component, o.outlook));
    }
    return host.exitRequested ? kExitProgram : kExitOk;
  });
  if (demo) {
    std::error_code ec;
    std::filesystem::remove_all(demoDir, ec);
  }
  return code;
}

}  // namespace dossync::app
