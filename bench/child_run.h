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

// The environment of a program run for a benchmark: its own home and XDG folders under `dir`
// (made here), and reports turned off when they are not wanted.
inline std::vector<std::string> homeUnder(const std::filesystem::path& dir, bool reports) {
  std::filesystem::path home = dir / "home";
  std::filesystem::create_directories(home);
  std::vector<std::string> env = {"HOME=" + home.string(),
                                  "XDG_DATA_HOME=" + (home / "data").string(),
                                  "XDG_STATE_HOME=" + (home / "state").string(),
                                  "XDG_CONFIG_HOME=" + (home / "config").string(),
                                  "XDG_CACHE_HOME=" + (home / "cache").string()};
  if (!reports) env.push_back("DOSSYNC_REPORTS=off");
  return env;
}

// Runs a program as a user would (argv[0] its path), with `env` added to the environment and
// its output into `log`; the peak memory is taken as for inChild (the forked child resets its
// peak before it executes the program, so only the program's own peak counts), wall time from
// the fork to its end, CPU from its resource usage (every thread). A program that exits with
// anything but 0 fails the run, with the end of its output as the reason.
inline Measured runProgram(const std::vector<std::string>& argv,
                           const std::vector<std::string>& env, const std::filesystem::path& log,
                           int limitSeconds) {
  Measured m;
  std::vector<char*> args, envs;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  for (char** e = environ; *e; ++e) envs.push_back(*e);
  for (const auto& e : env) envs.push_back(const_cast<char*>(e.c_str()));
  envs.push_back(nullptr);
  std::fflush(stdout);
  std::fflush(stderr);
  auto t0 = std::chrono::steady_clock::now();
  pid_t pid = ::fork();
  if (pid < 0) {
    m.failure = "fork failed";
    return m;
  }
  if (pid == 0) {
    int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0) ::_exit(126);
    ::dup2(out, 1);
    ::dup2(out, 2);
    ::close(out);
    int f = ::open("/proc/self/clear_refs", O_WRONLY);
    if (f >= 0) {
      [[maybe_unused]] ssize_t w = ::write(f, "5", 1);
      ::close(f);
    }
    ::execve(args[0], args.data(), envs.data());
    ::_exit(127);
  }
  auto deadline = t0 + std::chrono::seconds(limitSeconds);
  int status = 0;
  rusage usage{};
  bool timedOut = false;
  while (::wait4(pid, &status, WNOHANG, &usage) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid, SIGKILL);
      ::wait4(pid, &status, 0, &usage);
      timedOut = true;
      break;
    }
    ::usleep(1000);
  }
  m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  m.userSeconds = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6;
  m.peakMiB = usage.ru_maxrss / 1024.0;
  if (timedOut) {
    m.failure = "over the time limit of " + std::to_string(limitSeconds) + " s";
  } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::string text;
    if (FILE* f = std::fopen(log.c_str(), "r")) {
      char buf[4096];
      size_t got;
      while ((got = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, got);
      std::fclose(f);
    }
    if (text.size() > 400) text = "..." + text.substr(text.size() - 400);
    m.failure = (WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                   : "signal " + std::to_string(WTERMSIG(status))) +
                ": " + text;
  }
  return m;
}

// The first line of `log` that starts with `prefix` ("" when none does).
inline std::string lineOf(const std::filesystem::path& log, const std::string& prefix) {
  std::string found;
  if (FILE* f = std::fopen(log.c_str(), "r")) {
    char line[4096];
    while (std::fgets(line, sizeof line, f))
      if (!std::strncmp(line, prefix.c_str(), prefix.size())) {
        found = line;
        break;
      }
    std::fclose(f);
  }
  return found;
}

// The command line both benchmarks take:
// [--runs K] [--limit SECONDS] [--cli PATH [--no-reports]] [N ...].
// With --cli, each synchronisation is that program's `sync` command (reports on unless
// --no-reports, which runs it with DOSSYNC_REPORTS=off).
struct Options {
  std::vector<int> sizes;
  int runs = 3;
  int limit = 500;
  std::string cli;
  bool reports = true;
};

inline Options parseOptions(int argc, char** argv, const char* name, std::vector<int> sizes) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--runs") && i + 1 < argc) {
      o.runs = std::max(1, std::atoi(argv[++i]));
    } else if (!std::strcmp(argv[i], "--limit") && i + 1 < argc) {
      o.limit = std::max(1, std::atoi(argv[++i]));
    } else if (!std::strcmp(argv[i], "--cli") && i + 1 < argc) {
      o.cli = std::filesystem::absolute(argv[++i]).string();
    } else if (!std::strcmp(argv[i], "--no-reports")) {
      o.reports = false;
    } else if (std::atoi(argv[i]) > 0) {
      o.sizes.push_back(std::atoi(argv[i]));
    } else {
      std::fprintf(stderr,
                   "usage: %s [--runs K] [--limit SECONDS] [--cli PATH [--no-reports]] [N ...]\n",
                   name);
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
