// One run of a scheme at a time on a synchronisation database. Two runs of one scheme would
// each pair the same records and make their Outlook items twice; a run holds this lock from
// before it opens anything until it ends, and a second run waits for it.
//   A SQLite file: an advisory lock (flock) on "<syncdb>.scheme-N.lock" beside it, into which
//     the holder writes its process id, machine and start time (cleared when it lets go; the
//     file itself stays, as lock files do).
//   A PostgreSQL database: a session advisory lock of the database keyed by the scheme, the
//     holder's connection named after it (application_name), found again through pg_locks.
// A lock that cannot be made (a folder the user cannot write to, a server that cannot be
// reached) is not taken: the run then fails on its databases as it would have anyway.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace dossync::app {

class SchemeLock {
 public:
  enum class State { Held, Busy, NotTaken };

  virtual ~SchemeLock() = default;
  State state() const { return state_; }
  // Busy: the run that holds it ("process 4711 on host, started 2026-11-25 20:50:01 UTC").
  const std::string& holder() const { return holder_; }
  // Where the lock is: the lock file, or the server database's name.
  const std::string& where() const { return where_; }

 protected:
  State state_ = State::NotTaken;
  std::string holder_, where_;
};

// Takes the lock of `scheme` on the synchronisation database `syncDb`, waiting at most `wait`
// for a run that holds it; `waiting` is called once, with the holder, when the lock is held
// elsewhere. The answer holds the lock until it is destroyed.
std::unique_ptr<SchemeLock> lockScheme(const std::string& syncDb, int32_t scheme,
                                       std::chrono::milliseconds wait,
                                       const std::function<void(const std::string&)>& waiting);

// The lock file of a scheme on a SQLite synchronisation database.
std::string schemeLockFile(const std::string& syncDb, int32_t scheme);

}  // namespace dossync::app
