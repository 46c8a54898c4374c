// Host-to-Outlook synchronisation speed: N companies (one to three contacts each), every one
// selected, information type 1, into a fresh vCard store and again into the filled store (best
// of three each). Beside it, the raw I/O floor of the same work (best of three, taken in turn with
// the synchronisations): writing N card-sized files (temporary file, then rename) plus N
// single-row SQLite commits in WAL mode.
//
//   sync_bench [N ...]      default: 2500 5000 10000
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "app/demo_data.h"
#include "app/outlook_wiring.h"
#include "backends/sqlite/host_database.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "core/apartment.h"
#include "core/synchronization.h"

namespace fs = std::filesystem;
using namespace dossync;

namespace {

double userSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6;
}

double seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

double ioFloor(const fs::path& dir, int n) {
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
  for (int i = 0; i < n; ++i) {
    std::string name = (dir / "cards" / std::to_string(i)).string();
    int fd = ::open((name + ".tmp").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::write(fd, card.data(), card.size()) < 0) std::abort();
    ::close(fd);
    fs::rename(name + ".tmp", name + ".vcf");
    sqlite3_bind_int(st, 1, i);
    sqlite3_bind_text(st, 2, "entry-id", -1, SQLITE_STATIC);
    sqlite3_step(st);
    sqlite3_reset(st);
  }
  double t = seconds(start);
  sqlite3_finalize(st);
  sqlite3_close(db);
  return t;
}

double syncOnce(const fs::path& dir, const fs::path& syncDb, int n) {
  resetApartment();
  auto component = std::make_unique<clsOutlookSynchronization>();
  component->setMainDatabaseLocation((dir / "host.db").string());
  component->setSyncDatabaseLocation(syncDb.string());
  component->setShowProgress(false);
  for (int i = 1; i <= n; ++i) component->companyCollection()->add(std::to_string(i), "", "");
  auto start = std::chrono::steady_clock::now();
  component->Synchronize();
  double t = seconds(start);
  if (component->counters().rowsWalked != n) {
    std::fprintf(stderr, "walked %d of %d rows\n", component->counters().rowsWalked, n);
    std::exit(1);
  }
  return t;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> sizes;
  for (int i = 1; i < argc; ++i) sizes.push_back(std::atoi(argv[i]));
  if (sizes.empty()) sizes = {2500, 5000, 10000};
  sqlite::registerSqliteClasses();
  fs::path root = fs::temp_directory_path() / ("dossync-bench-" + std::to_string(::getpid()));
  std::printf("%8s %12s %12s %12s %10s %10s %12s\n", "N", "fresh rec/s", "again rec/s", "floor s",
              "fresh/flr", "again/flr", "fresh cpu s");
  double previous = 0;
  for (int n : sizes) {
    fs::path dir = root / std::to_string(n);
    fs::create_directories(dir);
    sqlite::createHostDatabase((dir / "host.db").string());
    app::DemoOptions demo;
    demo.companies = n;
    demo.minContacts = 1;
    demo.maxContacts = 3;
    app::fillDemoPractice((dir / "host.db").string(), demo);
    // The disk's speed varies with whatever else the machine does (on ext4 without a journal,
    // creating a file slows down while many files were deleted recently), so floor and
    // synchronisations take turns, three times each, each into a store of its own beside the
    // floor's files, and the best of each counts. Nothing is deleted until the end.
    double floor = 1e9, fresh = 1e9, freshUser = 0, again = 1e9;
    for (int k = 0; k < 3; ++k) {
      fs::path store = dir / ("outlook" + std::to_string(k));
      std::string run = std::to_string(k);
      app::registerOutlook("vdir:" + store.string());
      floor = std::min(floor, ioFloor(store / "default" / "floor", n));
      double user0 = userSeconds();
      double t = syncOnce(dir, dir / ("sync" + run + ".db"), n);
      if (t < fresh) {
        fresh = t;
        freshUser = userSeconds() - user0;
      }
      // Into the store just filled, with a synchronisation database of its own.
      again = std::min(again, syncOnce(dir, dir / ("again" + run + ".db"), n));
    }
    std::printf("%8d %12.0f %12.0f %12.3f %10.2f %10.2f %12.2f", n, n / fresh, n / again, floor,
                fresh / floor, again / floor, freshUser);
    if (previous > 0) std::printf("   growth x%.2f", fresh / previous);
    std::printf("\n");
    std::fflush(stdout);
    previous = fresh;
  }
  fs::remove_all(root);
  return 0;
}
