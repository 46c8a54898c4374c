// Runs one measured piece of work in a child process of its own, for the benchmarks.
//
// Peak memory: each run is forked off a parent that stays small (it only writes inputs and
// takes the I/O floors; no synchronisation runs in it and no thread is started before a fork).
// The child first resets its peak resident set size to what it holds at that moment (writing
// "5" to /proc/self/clear_refs; what the fork inherited counts once, as the program's own few
// megabytes), then works, closes everything and exits; the parent takes the peak from the
// child's resource usage (ru_maxrss of wait4). So runs never add up in one process, and an
// allocator that keeps freed memory cannot carry one run's peak into the next.
// What the child holds when it starts is answered as well (startMiB), to show the parent small.
// The child also measures its own wall time and user CPU (every thread) around the timed part
// and sends them through a pipe. A child that runs past its time limit is killed.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

struct Measured {
  double seconds = 0;      // wall time of the timed part
  double userSeconds = 0;  // user CPU of the timed part
  double peakMiB = 0;      // peak resident set size of the child
  double startMiB = 0;     // its resident set size when it started
  std::string failure;     // why the run did not finish ("" when it did)
  bool ok() const { return failure.empty(); }
};

inline double userCpu() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6;
}

// Handed to the child's work: it calls start() just before the part to time and stop() right
// after it; fail() reports what went wrong.
struct Timer {
  void start() {
    user0 = userCpu();
    t0 = std::chrono::steady_clock::now();
  }
  void stop() {
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    user = userCpu() - user0;
  }
  void fail(const std::string& why) { failure = why; }

  std::chrono::steady_clock::time_point t0;
  double user0 = 0, seconds = 0, user = 0;
  std::string failure;
};

namespace detail {
// VmRSS of /proc/self/status in MiB (0 when it cannot be read).
inline double residentMiB() {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return 0;
  char line[256];
  long kib = 0;
  while (std::fgets(line, sizeof line, f))
    if (std::sscanf(line, "VmRSS: %ld kB", &kib) == 1) break;
  std::fclose(f);
  return kib / 1024.0;
}

struct Report {
  double seconds, user, startMiB;
  char failure[240];
};
}  // namespace detail

// Runs work(Timer&) in a forked child; answers what it measured.
template <class Work>
Measured inChild(Work&& work, int limitSeconds) {
  Measured m;
  int fds[2];
  if (::pipe(fds) != 0) {
    m.failure = "pipe failed";
    return m;
  }
  std::fflush(stdout);
  std::fflush(stderr);
  pid_t pid = ::fork();
  if (pid < 0) {
    m.failure = "fork failed";
    return m;
  }
  if (pid == 0) {
    ::close(fds[0]);
    int f = ::open("/proc/self/clear_refs", O_WRONLY);
    if (f >= 0) {  // without it (an older kernel) the peak inherited from the parent stays in
      [[maybe_unused]] ssize_t w = ::write(f, "5", 1);
      ::close(f);
    }
    double startMiB = detail::residentMiB();
    Timer timer;
    try {
      work(timer);
    } catch (const std::exception& e) {
      timer.fail(std::string("exception: ") + e.what());
    } catch (...) {
      timer.fail("unknown exception");
    }
    detail::Report r{timer.seconds, timer.user, startMiB, {}};
    std::snprintf(r.failure, sizeof r.failure, "%s", timer.failure.c_str());
    if (::write(fds[1], &r, sizeof r) != static_cast<ssize_t>(sizeof r)) ::_exit(3);
    std::fflush(stdout);
    std::fflush(stderr);
    ::_exit(0);
  }
  ::close(fds[1]);
  detail::Report r{};
  size_t got = 0;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(limitSeconds);
  bool timedOut = false;
  while (got < sizeof r) {
    int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                    deadline - std::chrono::steady_clock::now())
                                    .count());
    if (left <= 0) {
      timedOut = true;
      break;
    }
    pollfd p{fds[0], POLLIN, 0};
    if (::poll(&p, 1, left) <= 0) continue;
    ssize_t n = ::read(fds[0], reinterpret_cast<char*>(&r) + got, sizeof r - got);
    if (n <= 0) break;  // the child died without reporting
    got += static_cast<size_t>(n);
  }
  ::close(fds[0]);
  if (timedOut) ::kill(pid, SIGKILL);
  int status = 0;
  rusage usage{};
  ::wait4(pid, &status, 0, &usage);
  m.peakMiB = usage.ru_maxrss / 1024.0;  // KiB on Linux
  if (timedOut) {
    m.failure = "over the time limit of " + std::to_string(limitSeconds) + " s";
  } else if (got < sizeof r) {
    m.failure = "the run died (status " + std::to_string(status) + ")";
  } else {
    m.seconds = r.seconds;
    m.userSeconds = r.user;
    m.startMiB = r.startMiB;
    m.failure = r.failure;
  }
  return m;
}

// The command line both benchmarks take: [--runs K] [--limit SECONDS] [N ...].
struct Options {
  std::vector<int> sizes;
  int runs = 3;
  int limit = 500;
};

inline Options parseOptions(int argc, char** argv, const char* name, std::vector<int> sizes) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--runs") && i + 1 < argc) {
      o.runs = std::max(1, std::atoi(argv[++i]));
    } else if (!std::strcmp(argv[i], "--limit") && i + 1 < argc) {
      o.limit = std::max(1, std::atoi(argv[++i]));
    } else if (std::atoi(argv[i]) > 0) {
      o.sizes.push_back(std::atoi(argv[i]));
    } else {
      std::fprintf(stderr, "usage: %s [--runs K] [--limit SECONDS] [N ...]\n", name);
      std::exit(2);
    }
  }
  if (o.sizes.empty()) o.sizes = std::move(sizes);
  return o;
}

// Ends the benchmark when a run failed, removing its files.
inline void check(const Measured& m, const char* what, int n, const std::filesystem::path& root) {
  if (m.ok()) return;
  std::fprintf(stderr, "%s run of %d: %s (peak %.0f MiB)\n", what, n, m.failure.c_str(), m.peakMiB);
  std::filesystem::remove_all(root);
  std::exit(1);
}

// One line of results: rates, the floor, ratios, user CPU, peak memory, growth on the previous
// size (`previous`: its fresh seconds, 0 for none).
inline void printRow(int n, const Measured& fresh, const Measured& again, double floor,
                     double previous) {
  std::printf("%8d %12.0f %12.0f %9.3f %9.2f %9.2f %9.2f %9.0f %9.0f", n, n / fresh.seconds,
              n / again.seconds, floor, fresh.seconds / floor, again.seconds / floor,
              fresh.userSeconds, fresh.peakMiB, again.peakMiB);
  if (previous > 0) std::printf("   growth x%.2f", fresh.seconds / previous);
  std::printf("\n");
  std::fflush(stdout);
}

}  // namespace bench
