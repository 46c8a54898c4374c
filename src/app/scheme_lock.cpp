#include "app/scheme_lock.h"

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "app/databases.h"
#include "backends/sql/database.h"
#include "base/error.h"

namespace dossync::app {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPoll = std::chrono::milliseconds(50);

// "process 4711 on host, started 2026-11-25 20:50:01 UTC"
std::string thisRun() {
  char host[256] = "";
  ::gethostname(host, sizeof host - 1);
  std::time_t now = std::time(nullptr);
  std::tm utc{};
  ::gmtime_r(&now, &utc);
  char when[32];
  std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &utc);
  return "process " + std::to_string(::getpid()) + (*host ? " on " + std::string(host) : "") +
         ", started " + when;
}

// Tries `take` until it succeeds or `wait` is over, asking `holder` who has the lock while it
// is held elsewhere and telling `waiting` once. Answers Held or Busy (holder_ names who).
SchemeLock::State waitFor(const std::function<bool()>& take,
                          const std::function<std::string()>& holder,
                          std::chrono::milliseconds wait,
                          const std::function<void(const std::string&)>& waiting,
                          std::string& holderOut) {
  const auto until = Clock::now() + wait;
  bool told = false;
  while (!take()) {
    holderOut = holder();
    if (Clock::now() >= until) return SchemeLock::State::Busy;
    if (!told && waiting) waiting(holderOut);
    told = true;
    std::this_thread::sleep_for(kPoll);
  }
  holderOut.clear();
  return SchemeLock::State::Held;
}

class FileSchemeLock final : public SchemeLock {
 public:
  FileSchemeLock(const std::string& file, std::chrono::milliseconds wait,
                 const std::function<void(const std::string&)>& waiting) {
    where_ = file;
    fd_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    writable_ = fd_ >= 0;
    if (fd_ < 0) fd_ = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return;  // NotTaken
    bool failed = false;
    auto take = [&] {
      if (::flock(fd_, LOCK_EX | LOCK_NB) == 0) return true;
      failed = errno != EWOULDBLOCK && errno != EINTR;
      return failed;
    };
    state_ = waitFor(
        take, [&] { return readHolder(); }, wait, waiting, holder_);
    if (failed) {
      state_ = State::NotTaken;
      return;
    }
    if (state_ == State::Busy) return;
    if (writable_) {
      std::string text = thisRun() + "\n";
      if (::ftruncate(fd_, 0) != 0 || ::pwrite(fd_, text.data(), text.size(), 0) < 0) {
        // The lock holds all the same; a waiting run just cannot name this one.
      }
    }
  }
  ~FileSchemeLock() override {
    if (fd_ < 0) return;
    if (state_ == State::Held && writable_ && ::ftruncate(fd_, 0) != 0) {
      // closing lets go of the lock whatever the file says
    }
    ::close(fd_);
  }

 private:
  std::string readHolder() const {
    char buf[512];
    ssize_t n = ::pread(fd_, buf, sizeof buf - 1, 0);
    std::string text(buf, n > 0 ? static_cast<size_t>(n) : 0);
    if (auto end = text.find('\n'); end != std::string::npos) text.resize(end);
    return text.empty() ? "another process" : text;
  }
  int fd_ = -1;
  bool writable_ = false;
};

// The advisory lock's two keys: this class of lock, and the scheme. (The one-key lock
// databases.cpp takes while a process makes the tables is another lock.)
constexpr const char* kLockClass = "1146311507";

class ServerSchemeLock final : public SchemeLock {
 public:
  ServerSchemeLock(const std::string& location, int32_t scheme, std::chrono::milliseconds wait,
                   const std::function<void(const std::string&)>& waiting) {
    where_ = databases::displayName(location);
    try {
      db_ = databases::open(location);
      std::string key = std::string(kLockClass) + ", " + std::to_string(scheme);
      db_->exec("SET application_name = 'dossync " + thisRun().substr(0, 54) + "';");
      state_ = waitFor([&] { return tryLock(key); }, [&] { return findHolder(scheme); }, wait,
                       waiting, holder_);
    } catch (const RuntimeError&) {
      db_.reset();  // NotTaken: the run reports the database it cannot reach
      state_ = State::NotTaken;
    }
  }

 private:
  bool tryLock(const std::string& key) {
    try {
      sql::Statement st(*db_, "SELECT pg_try_advisory_lock(" + key + ")::int;");
      return st.step() && st.columnInt(0) == 1;
    } catch (const RuntimeError& e) {
      // A server busy for a moment is waited for as a held lock is; anything else ends the
      // wait with the lock not taken.
      if (e.remedy() != Remedy::kRetryLater) throw;
      return false;
    }
  }
  // The holder's connection: its name when it is a dossync run's and may be read, else the
  // server process and when its connection began.
  std::string findHolder(int32_t scheme) {
    std::string objid = std::to_string(static_cast<uint32_t>(scheme));
    sql::Statement st(
        *db_,
        "SELECT a.application_name, a.pid::text, to_char(a.backend_start AT TIME ZONE 'UTC', "
        "'YYYY-MM-DD HH24:MI:SS') FROM pg_locks l JOIN pg_stat_activity a ON a.pid = l.pid "
        "WHERE l.locktype = 'advisory' AND l.granted AND l.objsubid = 2 AND l.classid = '" +
            std::string(kLockClass) + "'::oid AND l.objid = '" + objid +
            "'::oid AND l.database = (SELECT oid FROM pg_database WHERE datname = "
            "current_database());");
    if (!st.step()) return "another connection";
    sql::Stored name = st.column(0), pid = st.column(1), since = st.column(2);
    if (name.s.starts_with("dossync ")) return name.s.substr(8);
    return "server process " + pid.s + " (connected " + since.s + " UTC)";
  }
  std::unique_ptr<sql::Database> db_;  // the lock lasts as long as this session
};

}  // namespace

std::string schemeLockFile(const std::string& syncDb, int32_t scheme) {
  std::error_code ec;
  std::filesystem::path file = std::filesystem::weakly_canonical(syncDb, ec);
  if (ec || file.empty()) file = syncDb;
  return file.string() + ".scheme-" + std::to_string(scheme) + ".lock";
}

std::unique_ptr<SchemeLock> lockScheme(const std::string& syncDb, int32_t scheme,
                                       std::chrono::milliseconds wait,
                                       const std::function<void(const std::string&)>& waiting) {
  if (databases::isServer(syncDb))
    return std::make_unique<ServerSchemeLock>(syncDb, scheme, wait, waiting);
  return std::make_unique<FileSchemeLock>(schemeLockFile(syncDb, scheme), wait, waiting);
}

}  // namespace dossync::app
