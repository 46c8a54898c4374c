// Host-to-Outlook synchronisation speed: N companies (one to three contacts each), every one
// selected, information type 1, into a fresh vCard store and again into the filled store (best
// of three each). Beside it, the raw I/O floor of the same work (best of three, taken in turn with
// the synchronisations): reading every row of the practice's companies and contacts, writing N
// card-sized files (temporary file, then rename) plus N single-row SQLite commits in WAL mode,
// and one flush of the files to the disk (a run may commit no pairing before the card it names
// is on the disk). The floor without the read and the flush is shown beside it, and the floor
// with each file written as the run writes a new card (an unnamed file linked into place). Each
// synchronisation runs in a child process of its own (peak memory: bench/child_run.h). Last,
// what the run's report costs (what the command line does on every run): a fresh
// synchronisation watched by the reporting recorder, its report written, as a ratio to the
// fresh one without.
// With --cli PATH, each synchronisation is that program run as a user runs it ("dossync sync
// --select all", its own HOME and XDG folders, its report written unless --no-reports): the
// time is the whole program's, from its start to its end; each turn ends with two more fresh
// runs, one with its report and one with DOSSYNC_REPORTS=off (the first of the two taking
// turns), to show what the report costs.
//
//   sync_bench [--runs K] [--limit SECONDS] [--cli PATH [--no-reports]] [N ...]
//   default: 3 runs, 2500 5000 10000
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "app/demo_data.h"
#include "app/outlook_wiring.h"
#include "app/run_report.h"
#include "backends/sqlite/host_database.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "child_run.h"
#include "core/apartment.h"
#include "core/synchronization.h"

namespace fs = std::filesystem;
using namespace dossync;

namespace {

double seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Every column of every company and contact, as text.
void readHost(const fs::path& hostDb) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(hostDb.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
    std::abort();
  for (const char* sql : {"SELECT * FROM Companies;", "SELECT * FROM Contacts;"}) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &st, nullptr) != SQLITE_OK) std::abort();
    size_t bytes = 0;
    while (sqlite3_step(st) == SQLITE_ROW)
      for (int c = 0; c < sqlite3_column_count(st); ++c) {
        sqlite3_column_text(st, c);
        bytes += static_cast<size_t>(sqlite3_column_bytes(st, c));
      }
    if (bytes == 0) std::abort();
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
}

struct Floor {
  double seconds = 1e9;  // with the host read and the flush
  double writes = 1e9;   // the writes alone
};

// Writes `card` as the file `name`.vcf: a temporary file renamed, or (linked) an unnamed file
// of the folder linked under the name, as the run writes its new cards.
void writeCard(const std::string& dir, const std::string& name, const std::string& card,
               bool linked) {
  if (!linked) {
    int fd = ::open((name + ".tmp").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::write(fd, card.data(), card.size()) < 0) std::abort();
    ::close(fd);
    fs::rename(name + ".tmp", name + ".vcf");
    return;
  }
  int fd = ::open(dir.c_str(), O_TMPFILE | O_WRONLY, 0644);
  if (fd < 0 || ::write(fd, card.data(), card.size()) < 0) std::abort();
  std::string self = "/proc/self/fd/" + std::to_string(fd);
  if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, (name + ".vcf").c_str(), AT_SYMLINK_FOLLOW) != 0)
    std::abort();
  ::close(fd);
}

Floor ioFloor(const fs::path& hostDb, const fs::path& dir, int n, bool linked = false) {
  fs::create_directories(dir / "cards");
  fs::create_directories(dir.parent_path() / "contacts");
  std::string card(800, 'x');
  sqlite3* db = nullptr;
  sqlite3_open((dir / "floor.db").c_str(), &db);
  sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; CREATE TABLE t (a, b);",
               nullptr, nullptr, nullptr);
  sqlite3_stmt* st = nullptr;
  sqlite3_prepare_v2(db, "INSERT INTO t VALUES (?1, ?2);", -1, &st, nullptr);
  auto start = std::chrono::steady_clock::now();
  readHost(hostDb);
  double read = seconds(start);
  auto writing = std::chrono::steady_clock::now();
  for (int i = 0; i < n; ++i) {
    writeCard((dir / "cards").string(), (dir / "cards" / std::to_string(i)).string(), card, linked);
    sqlite3_bind_int(st, 1, i);
    sqlite3_bind_text(st, 2, "entry-id", -1, SQLITE_STATIC);
    sqlite3_step(st);
    sqlite3_reset(st);
  }
  Floor f;
  f.writes = seconds(writing);
  int fd = ::open((dir / "cards").c_str(), O_RDONLY | O_DIRECTORY);
  if (fd < 0 || ::syncfs(fd) != 0) std::abort();
  ::close(fd);
  f.seconds = read + seconds(writing);
  sqlite3_finalize(st);
  sqlite3_close(db);
  return f;
}

void syncOnce(bench::Timer& timer, const fs::path& store, const fs::path& dir,
              const fs::path& syncDb, int n, bool reported = false) {
  app::registerOutlook("vdir:" + store.string());
  resetApartment();
  auto component = std::make_unique<clsOutlookSynchronization>();
  auto outcome = std::make_shared<app::RunOutcome>();
  if (reported) {
    component->setRunObserver(app::makeReportingRecorder(
        "vdir:" + store.string(), [] { return std::string(); }, {}, outcome));
  }
  component->setMainDatabaseLocation((dir / "host.db").string());
  component->setSyncDatabaseLocation(syncDb.string());
  component->setShowProgress(false);
  for (int i = 1; i <= n; ++i) component->companyCollection()->add(std::to_string(i), "", "");
  timer.start();
  component->Synchronize();
  timer.stop();
  if (component->counters().rowsWalked != n)
    timer.fail("walked " + std::to_string(component->counters().rowsWalked) + " of " +
               std::to_string(n) + " rows");
  if (reported && outcome->reportPath.empty()) timer.fail("no report: " + outcome->error);
  component.reset();
  resetApartment();
}

// The number of card files in `folder`.
int cardsIn(const fs::path& folder) {
  int n = 0;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec))
    if (entry.path().extension() == ".vcf") ++n;
  return n;
}

// The same synchronisation through the command line: `cli` run in a process of its own, into
// the store at `store`, with or without its report.
bench::Measured syncByCli(const bench::Options& o, const fs::path& store, const fs::path& dir,
                          const fs::path& syncDb, int n, bool reports) {
  std::vector<std::string> env = bench::homeUnder(dir, reports);
  bench::Measured m =
      bench::runProgram({o.cli, "sync", "--host-db", (dir / "host.db").string(), "--sync-db",
                         syncDb.string(), "--outlook", "vdir:" + store.string(), "--direction", "2",
                         "--info", "1", "--select", "all", "--no-progress"},
                        env, dir / "cli.log", o.limit);
  if (m.ok() && cardsIn(store / "default" / "contacts") != n)
    m.failure = std::to_string(cardsIn(store / "default" / "contacts")) + " cards written";
  return m;
}

// Where a benchmark keeps its files; removed at the end, and when a run fails.
fs::path root;

}  // namespace

int main(int argc, char** argv) {
  bench::Options options = bench::parseOptions(argc, argv, "sync_bench", {2500, 5000, 10000});
  const int runs = options.runs, limit = options.limit;
  const std::vector<int>& sizes = options.sizes;
  sqlite::registerSqliteClasses();
  root = fs::temp_directory_path() / ("dossync-bench-" + std::to_string(::getpid()));
  std::printf("%8s %12s %12s %9s %9s %9s %9s %9s %9s\n", "N", "fresh rec/s", "again rec/s",
              "floor s", "fresh/flr", "again/flr", "cpu s", "fresh MiB", "again MiB");
  double previous = 0, startMiB = 0;
  for (int n : sizes) {
    fs::path dir = root / std::to_string(n);
    fs::create_directories(dir);
    sqlite::createHostDatabase((dir / "host.db").string());
    app::DemoOptions demo;
    demo.companies = n;
    demo.minContacts = 1;
    demo.maxContacts = 3;
    // In a child too, so that the parent stays small for the forks that follow.
    bench::Measured filled = bench::inChild(
        [&](bench::Timer&) { app::fillDemoPractice((dir / "host.db").string(), demo); }, limit);
    bench::check(filled, "filling the practice for the", n, root);
    // The disk's speed varies with whatever else the machine does (on ext4 without a journal,
    // creating a file slows down while many files were deleted recently), so floor and
    // synchronisations take turns, each into a store of its own beside the floor's files, and
    // the best of each counts. Nothing is deleted until the end.
    Floor floor;
    double linkedFloor = 1e9;  // the floor with new files written as the run writes them
    bench::Measured fresh, again, reported, withReports;
    fresh.seconds = again.seconds = reported.seconds = withReports.seconds = 1e9;
    for (int k = 0; k < runs; ++k) {
      fs::path store = dir / ("outlook" + std::to_string(k));
      std::string run = std::to_string(k);
      Floor once = ioFloor(dir / "host.db", store / "default" / "floor", n);
      floor.seconds = std::min(floor.seconds, once.seconds);
      floor.writes = std::min(floor.writes, once.writes);
      linkedFloor = std::min(
          linkedFloor, ioFloor(dir / "host.db", store / "default" / "linked", n, true).seconds);
      const bool cli = !options.cli.empty();
      // A synchronisation into `store` with a new synchronisation database.
      auto synchronise = [&](const fs::path& syncDb) {
        return cli ? syncByCli(options, store, dir, syncDb, n, options.reports)
                   : bench::inChild([&](bench::Timer& t) { syncOnce(t, store, dir, syncDb, n); },
                                    limit);
      };
      bench::Measured f = synchronise(dir / ("sync" + run + ".db"));
      bench::check(f, "fresh", n, root);
      // Into the store just filled, with a synchronisation database of its own.
      bench::Measured a = synchronise(dir / ("again" + run + ".db"));
      bench::check(a, "again", n, root);
      // The report's cost. In process: a fresh run with its report beside the fresh run
      // without. Through the command line: a fresh run with its report and one without, one
      // after the other, the first of the two taking turns (the run after the floor's files
      // shares the machine with their write-back, and would make either look slower).
      fs::path other = dir / ("other" + run);
      bench::Measured r;
      if (!cli) {
        r = bench::inChild(
            [&](bench::Timer& t) { syncOnce(t, other, dir, fs::path(other) += ".db", n, true); },
            limit);
        bench::check(r, "with its report", n, root);
        if (r.seconds < reported.seconds) reported = r;
      } else if (options.reports) {
        fs::path on = dir / ("on" + run);
        auto withReport = [&] {
          bench::Measured m = syncByCli(options, on, dir, fs::path(on) += ".db", n, true);
          bench::check(m, "with its report", n, root);
          withReports.seconds = std::min(withReports.seconds, m.seconds);
        };
        if (k % 2 == 1) withReport();
        r = syncByCli(options, other, dir, fs::path(other) += ".db", n, false);
        bench::check(r, "without its report", n, root);
        if (r.seconds < reported.seconds) reported = r;
        if (k % 2 == 0) withReport();
      }
      startMiB = std::max({startMiB, f.startMiB, a.startMiB});
      if (f.seconds < fresh.seconds) fresh = f;
      if (a.seconds < again.seconds) again = a;
    }
    bench::printRow(n, fresh, again, floor.seconds, previous);
    std::printf("%8s floor without the host read and the flush: %.3f s, fresh/that %.2f\n", "",
                floor.writes, fresh.seconds / floor.writes);
    std::printf("%8s floor with unnamed files linked into place: %.3f s, fresh/that %.2f\n", "",
                linkedFloor, fresh.seconds / linkedFloor);
    if (options.cli.empty())
      std::printf("%8s with its report: %.0f rec/s, %.2f times the fresh run's time\n", "",
                  n / reported.seconds, reported.seconds / fresh.seconds);
    else if (options.reports)
      std::printf("%8s without its report: %.0f rec/s, %.0f MiB; with it %.2f times as long\n", "",
                  n / reported.seconds, reported.peakMiB, withReports.seconds / reported.seconds);
    previous = fresh.seconds;
  }
  if (options.cli.empty())
    std::printf("(peak memory of each run in a process of its own, which started with %.0f MiB)\n",
                startMiB);
  else
    std::printf("(each run: %s sync, reports %s, timed from its start to its end)\n",
                options.cli.c_str(), options.reports ? "on" : "off");
  fs::remove_all(root);
  return 0;
}
