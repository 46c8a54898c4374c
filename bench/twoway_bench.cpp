// Two-way synchronisation speed through the command line, against the one-way run it is
// measured by. For each N: a practice of N companies (one to three contacts each, every company
// name made unique), then in each of K turns, into a vCard store of the turn's own:
//   fresh     dossync sync (host to Outlook, information type 1, all selected): the N cards;
//   again     the same into the store just filled, with a new synchronisation database (every
//             company finds its card by FileAs and updates it): the reference;
//   first     dossync sync --two-way with the fresh run's synchronisation database: it adopts
//             those pairings and records each pair's base;
//   quiet     the same again, nothing changed: it should write nothing;
//   changed   1 % of the companies' office numbers changed in the host database and 1 % of the
//             other cards' job titles changed in their files (written as another program would),
//             then the same again: each change copied to the other side.
// Each run is the program run as a user runs it (its own HOME and XDG folders, its report
// written), timed from its start to its end, its peak memory its own (bench/child_run.h). The
// best of the K turns counts; the ratios are quiet / again and changed / again, the growth that
// of the quiet and changed runs on the previous N.
//
//   twoway_bench --cli PATH [--runs K] [--limit SECONDS] [--no-reports] [N ...]
//   default: 3 runs, 10000 100000
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "app/demo_data.h"
#include "backends/sqlite/host_database.h"
#include "backends/vcard/atomic_file.h"
#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "child_run.h"

namespace fs = std::filesystem;
using namespace dossync;

namespace {

fs::path root;  // where the benchmark keeps its files; removed at the end

void sql(const fs::path& db, const std::string& text) {
  sqlite3* h = nullptr;
  char* error = nullptr;
  if (sqlite3_open(db.c_str(), &h) != SQLITE_OK ||
      sqlite3_exec(h, text.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    std::fprintf(stderr, "%s: %s\n", db.c_str(), error ? error : sqlite3_errmsg(h));
    fs::remove_all(root);
    std::exit(1);
  }
  sqlite3_close(h);
}

std::vector<fs::path> cardsIn(const fs::path& folder) {
  std::vector<fs::path> out;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec))
    if (entry.path().extension() == ".vcf") out.push_back(entry.path());
  std::sort(out.begin(), out.end());
  return out;
}

// One in a hundred cards (those at 50, 150, ... in file name order) gets a job title of this
// turn's; answers how many.
int editCards(const fs::path& folder, const std::string& turn) {
  auto cards = cardsIn(folder);
  int edited = 0;
  for (size_t i = 50; i < cards.size(); i += 100) {
    std::ifstream in(cards[i], std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    vdir::ContactCard card(vdir::parseVcard(text.str()));
    card.set(outlook::ContactProperty::JobTitle, "Bench title " + turn + "-" + std::to_string(i));
    vdir::writeFileAtomically(cards[i], card.text());
    ++edited;
  }
  return edited;
}

struct Turn {
  bench::Measured fresh, again, first, quiet, changed;
};

}  // namespace

int main(int argc, char** argv) {
  bench::Options o = bench::parseOptions(argc, argv, "twoway_bench", {10000, 100000});
  if (o.cli.empty()) {
    std::fprintf(stderr, "usage: twoway_bench --cli PATH [--runs K] [--limit SECONDS] [N ...]\n");
    return 2;
  }
  root = fs::temp_directory_path() / ("dossync-twoway-bench-" + std::to_string(::getpid()));
  std::printf("%8s %9s %9s %9s %9s %7s %9s %7s %9s %9s\n", "N", "fresh s", "again s", "first s",
              "quiet s", "/again", "changed s", "/again", "2-way MiB", "growth");
  double previousQuiet = 0, previousChanged = 0;
  for (int n : o.sizes) {
    fs::path dir = root / std::to_string(n);
    fs::create_directories(dir);
    fs::path host = dir / "host.db";
    sqlite::createHostDatabase(host.string());
    app::DemoOptions demo;
    demo.companies = n;
    demo.minContacts = 1;
    demo.maxContacts = 3;
    bench::Measured filled =
        bench::inChild([&](bench::Timer&) { app::fillDemoPractice(host.string(), demo); }, o.limit);
    bench::check(filled, "filling the practice for the", n, root);
    sql(host, "UPDATE Companies SET CompanyName = CompanyName || ' #' || CompanyID;");

    Turn best;
    for (auto* m : {&best.fresh, &best.again, &best.first, &best.quiet, &best.changed})
      m->seconds = 1e9;
    double peak = 0;
    for (int k = 0; k < o.runs; ++k) {
      std::string turn = std::to_string(k);
      fs::path store = dir / ("outlook" + turn);
      fs::path syncDb = dir / ("sync" + turn + ".db");
      auto env = bench::homeUnder(dir / ("home" + turn), o.reports);
      auto run = [&](const char* what, const fs::path& db, bool twoWay) {
        std::vector<std::string> args = {
            o.cli,       "sync",      "--host-db",    host.string(),
            "--sync-db", db.string(), "--outlook",    "vdir:" + store.string(),
            "--info",    "1",         "--no-progress"};
        if (twoWay) {
          args.push_back("--two-way");
        } else {
          for (const char* a : {"--direction", "2", "--select", "all"}) args.push_back(a);
        }
        bench::Measured m =
            bench::runProgram(args, env, dir / (std::string(what) + ".log"), o.limit);
        bench::check(m, what, n, root);
        if (twoWay) peak = std::max(peak, m.peakMiB);
        return m;
      };
      auto keep = [](bench::Measured& best, const bench::Measured& m) {
        if (m.seconds < best.seconds) best = m;
      };
      keep(best.fresh, run("fresh", syncDb, false));
      int cards = static_cast<int>(cardsIn(store / "default" / "contacts").size());
      if (cards != n) {
        std::fprintf(stderr, "fresh run of %d: %d cards written\n", n, cards);
        fs::remove_all(root);
        return 1;
      }
      keep(best.again, run("again", dir / ("again" + turn + ".db"), false));
      keep(best.first, run("first", syncDb, true));
      keep(best.quiet, run("quiet", syncDb, true));
      sql(host, "UPDATE Companies SET OfficeNumber = '613-555-" + turn +
                    "' || CompanyID WHERE CompanyID % 100 = 0;");
      editCards(store / "default" / "contacts", turn);
      keep(best.changed, run("changed", syncDb, true));
    }
    std::printf("%8d %9.2f %9.2f %9.2f %9.2f %7.2f %9.2f %7.2f %9.0f", n, best.fresh.seconds,
                best.again.seconds, best.first.seconds, best.quiet.seconds,
                best.quiet.seconds / best.again.seconds, best.changed.seconds,
                best.changed.seconds / best.again.seconds, peak);
    if (previousQuiet > 0)
      std::printf("   x%.2f quiet, x%.2f changed", best.quiet.seconds / previousQuiet,
                  best.changed.seconds / previousChanged);
    std::printf("\n");
    std::printf("%8s user CPU: again %.2f s, quiet %.2f s, changed %.2f s\n", "",
                best.again.userSeconds, best.quiet.userSeconds, best.changed.userSeconds);
    std::fflush(stdout);
    previousQuiet = best.quiet.seconds;
    previousChanged = best.changed.seconds;
    fs::remove_all(dir);
  }
  std::printf("(each run: %s sync, reports %s, timed from its start to its end)\n", o.cli.c_str(),
              o.reports ? "on" : "off");
  fs::remove_all(root);
  return 0;
}
