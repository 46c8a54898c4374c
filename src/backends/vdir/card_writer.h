// Writes the card files of one folder behind the caller's back, so that saving a contact costs
// the caller no disk time. Files are written in the order they were handed in, some dozens at a
// time (or all that are left when the owner drains), each whole: a new file as an unnamed file
// of the folder linked under its name where the system can, otherwise (and for a file written
// again) a temporary file beside it, then renamed over it; a new file never replaces one that
// appeared meanwhile. A file that already holds exactly the new text is left alone.
//
// The owner hands in jobs and collects what became of each: the file's stamp as written, or a
// RuntimeError naming the file and the system's reason. The folder's own modification time is
// followed across the writes (knownDirTime), so the owner can tell others' changes from its own.
//
// With a remote (card_remote.h), every card goes to the server first, a batch at a time, and the
// file then holds what the server took.
//
// Ownership: the owner keeps the writer; the destructor finishes every job first.
// Thread use: one owner thread calls everything; one writer thread of its own, started on the
// first job.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "backends/vcard/card_remote.h"
#include "base/error.h"

namespace dossync::vdir {

// What tells that a file changed: its inode, modification time and size.
struct FileStamp {
  uint64_t inode = 0;
  int64_t seconds = 0, nanoseconds = 0;
  uint64_t size = 0;
  bool operator==(const FileStamp&) const = default;
};

// The stamp of a regular file; nullopt when there is none.
std::optional<FileStamp> stampOfFile(const std::filesystem::path& path);
FileStamp fileStamp(const struct stat& st);

class CardWriter {
 public:
  struct Result {
    std::string file;
    bool isNew = false;
    std::optional<FileStamp> stamp;  // set when the file holds the text now
    std::optional<RuntimeError> error;
  };

  explicit CardWriter(std::filesystem::path dir, std::shared_ptr<CardRemote> remote = nullptr);
  ~CardWriter();
  CardWriter(const CardWriter&) = delete;
  CardWriter& operator=(const CardWriter&) = delete;

  // Queues `text` for `file` (a name in the folder). `isNew`: no such file is known, so there is
  // nothing to compare with and nothing to replace. `base`: what the item saved was read from
  // (the remote merges from it). Waits while many jobs are queued already.
  void submit(std::string file, std::string text, bool isNew, std::string base = {});
  // Writes `text` at once on the caller's thread, after every queued job.
  Result writeNow(std::string file, std::string text, bool isNew, std::string base = {});
  CardRemote* remote() const { return remote_.get(); }
  std::shared_ptr<CardRemote> sharedRemote() const { return remote_; }
  bool busy() const;  // jobs queued or being written
  // Waits until no job is left; files (not a remote's cards) are written on the caller's thread
  // meanwhile too, beside the writer's.
  void drain();
  std::vector<Result> collect();  // what became of the jobs finished since the last collect

  // The folder's modification time as of the last write here, kept only while nobody else
  // changed the folder; the owner sets it when it reads the folder.
  using DirTime = std::optional<std::filesystem::file_time_type>;
  DirTime knownDirTime() const;
  void setKnownDirTime(DirTime time);
  DirTime dirTime() const;  // the folder's time now

 private:
  struct Job {
    std::string file, text;
    bool isNew;
    std::string base;
  };
  static constexpr size_t kMaxQueued = 512;
  // Waking the writer costs a system call and a switch: it is woken for this many jobs at a
  // time, or when the owner waits for the end.
  static constexpr size_t kBatch = 64;
  // Files written since the last flush that make the writer, once idle, start them on their way
  // to the disk (flushAhead); and how long it waits at least between two such flushes.
  static constexpr size_t kFlushAhead = 128;
  static constexpr std::chrono::milliseconds kFlushAheadEvery{25};

  void run();
  void flushAhead();
  // Takes the first queued job unless its file is being written (jobs of one file keep their
  // order); nullopt when it must wait for that.
  std::optional<Job> take(const std::string& writingElsewhere);
  void keep(Result r);  // a job's result, for collect(); under the lock
  // Writes the jobs' files (after the remote took them); one result each.
  std::vector<Result> write(std::vector<Job> jobs);
  Result writeFile(const Job& job);
  void beginOwnWrite();  // around each file written here, from either thread
  void endOwnWrite();

  std::filesystem::path dir_;
  std::shared_ptr<CardRemote> remote_;
  mutable std::mutex mutex_;
  std::condition_variable work_;  // the writer waits for jobs
  std::condition_variable room_;  // the owner waits for room in the queue, or for the end
  std::deque<Job> queue_;
  bool writing_ = false;     // the writer thread is writing a job
  std::string writerFile_;   // the file it is writing
  std::string ownerFile_;    // the file the owner writes while it drains
  bool ownerWaits_ = false;  // the owner waits in drain() or for room: wake it
  bool stopping_ = false;
  bool urgent_ = false;  // the owner waits for every job to be done
  std::vector<Result> done_;
  DirTime known_;
  int ownWrites_ = 0;                // files being written here now
  bool ownWritesFromKnown_ = false;  // the folder's time was known_ when the first began
  size_t unflushed_ = 0;             // files written since the last flushAhead
  std::chrono::steady_clock::time_point lastFlush_;
  std::thread thread_;
};

}  // namespace dossync::vdir
