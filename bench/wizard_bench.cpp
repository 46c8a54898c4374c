// Filling the wizard's selection tree from a large address book, in the Qt dialog offscreen:
// N companies with 1 to 4 contacts each (about 2.5 N contacts). For each way of listing the
// host's records it reports the time from Next to the filled tree, and how the window kept
// up meanwhile: how often a 10 ms timer of the dialog's event loop got to run, the longest
// gap between two of its runs, and whether the progress bar it saw only went forwards.
// Finally the same fill headless, without any window.
//
//   wizard_bench [N]      default: 10000
// Build it optimised to measure: cmake -DCMAKE_BUILD_TYPE=Release.
#include <QApplication>
#include <QProgressBar>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/demo_data.h"
#include "app/outlook_wiring.h"
#include "app/terminal_progress.h"
#include "backends/sqlite/host_database.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "wizard/driver.h"
#include "wizard_qt/qt_services.h"
#include "wizard_qt/wizard_dialog.h"

namespace fs = std::filesystem;
using namespace dossync;
using Clock = std::chrono::steady_clock;

namespace {

double ms(Clock::duration d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

struct Mode {
  const char* name;
  int32_t list, info;
};

void runQt(clsOutlookSynchronization& c, const Mode& m) {
  c.setCompanyList(m.list);
  c.setSyncInformationType(m.info);
  auto form = std::make_shared<qt::QtWizard>();
  qt::WizardDialog& dialog = form->dialog();
  auto* bar = static_cast<QProgressBar*>(dialog.widget("ReportProgressBar"));
  int ticks = 0, backwards = 0, lastValue = -1, maxSeen = 0;
  Clock::time_point lastTick;
  Clock::duration longest{};
  QTimer timer;
  timer.setInterval(10);
  QObject::connect(&timer, &QTimer::timeout, [&] {
    auto now = Clock::now();
    ++ticks;
    longest = std::max(longest, now - lastTick);
    lastTick = now;
    if (bar->isVisible()) {
      if (bar->value() < lastValue) ++backwards;
      lastValue = bar->value();
      maxSeen = std::max(maxSeen, lastValue);
    }
  });
  double fill = 0;
  int nodes = 0;
  dialog.session = [&] {
    wizard::WizardDriver d(*form);
    timer.start();
    auto started = Clock::now();
    lastTick = started;
    d.click("cmdNav", 3);
    auto finished = Clock::now();
    longest = std::max(longest, finished - lastTick);
    fill = ms(finished - started);
    timer.stop();
    nodes = form->tree().count();
    d.tick(form->tree().node(1).key);
    d.click("cmdNav", 1);
  };
  form->startWizard(c);
  std::printf(
      "%-34s %7d nodes  %8.0f ms  timer ran %4d times, longest gap %6.1f ms, "
      "bar reached %d of %d%s\n",
      m.name, nodes, fill, ticks, ms(longest), maxSeen, bar->maximum(),
      backwards ? ", WENT BACKWARDS" : "");
}

void runHeadless(clsOutlookSynchronization& c, const Mode& m) {
  c.setCompanyList(m.list);
  c.setSyncInformationType(m.info);
  wizard::HeadlessWizard form;
  form.startWizard(c);
  wizard::WizardDriver d(form);
  auto started = Clock::now();
  d.click("cmdNav", 3);
  double fill = ms(Clock::now() - started);
  std::printf("%-34s %7d nodes  %8.0f ms  (%d repaints asked for)\n", m.name, form.tree().count(),
              fill, form.view.refreshes);
}

}  // namespace

int main(int argc, char** argv) {
  int32_t companies = argc > 1 ? std::atoi(argv[1]) : 10000;
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  int qargc = 1;
  QApplication app(qargc, argv);
  sqlite::registerSqliteClasses();
  qt::installQtServices();

  fs::path dir = fs::temp_directory_path() / ("dossync-wizard-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::string hostDb = (dir / "host.db").string();
  sqlite::createHostDatabase(hostDb);
  app::DemoOptions demo;
  demo.companies = companies;
  demo.minContacts = 1;
  demo.maxContacts = 4;
  auto made = Clock::now();
  app::DemoSummary s = app::fillDemoPractice(hostDb, demo);
  std::printf("address book: %d categories, %d companies, %d contacts (made in %.0f ms)\n",
              s.categories, s.companies, s.contacts, ms(Clock::now() - made));

  app::registerOutlook("vdir:" + (dir / "outlook").string());
  app::registerTerminalProgress(false);
  auto c = std::make_unique<clsOutlookSynchronization>();
  c->setMainDatabaseLocation(hostDb);
  c->setSyncDatabaseLocation((dir / "sync.db").string());
  c->setShowProgress(false);

  const Mode modes[] = {
      {"address book, companies", 2, 1},
      {"address book, companies+contacts", 2, 3},
      {"shown clients, companies", 1, 1},
      {"shown clients, companies+contacts", 1, 3},
  };
  std::printf("\nQt dialog (offscreen):\n");
  for (const Mode& m : modes) runQt(*c, m);
  std::printf("\nheadless:\n");
  for (const Mode& m : modes) runHeadless(*c, m);

  c.reset();
  resetApartment();
  fs::remove_all(dir);
  return 0;
}
