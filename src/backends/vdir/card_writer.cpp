#include "backends/vdir/card_writer.h"

#ifdef _WIN32
#include <windows.h>
#endif

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "backends/vcard/atomic_file.h"
#include "backends/vcard/posix_io.h"

namespace fs = std::filesystem;

namespace dossync::vdir {
namespace {

RuntimeError writeError(const fs::path& target, int err) {
  return fileError("Cannot write contact file " + target.string(), err);
}

// True when the file holds exactly `text`; its stamp in *stamp.
bool holds(const fs::path& target, const std::string& text, std::optional<FileStamp>* stamp) {
  int fd = ::open(target.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  std::string existing;  // one byte more than the text tells a longer file
  struct stat st {};
  bool same = readAll(fd, &existing, text.size() + 1, text.size() + 1) == 0 && existing == text &&
              ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  ::close(fd);
  if (same) *stamp = fileStamp(st);
  return same;
}

// Moves the temporary file into place; a new file must not replace one that appeared meanwhile.
int moveIntoPlace(const fs::path& temp, const fs::path& target, bool isNew) {
#ifdef _WIN32
  if (::MoveFileExW(temp.c_str(), target.c_str(), isNew ? 0 : MOVEFILE_REPLACE_EXISTING)) return 0;
  return ::GetLastError() == ERROR_ALREADY_EXISTS || ::GetLastError() == ERROR_FILE_EXISTS ? EEXIST
                                                                                           : EACCES;
#else
  if (isNew) {
    if (::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
      return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;  // the file system may not know it
  }
  return std::rename(temp.c_str(), target.c_str()) == 0 ? 0 : errno;
#endif
}

// The file written whole as a temporary file beside it, then renamed over it (a new file never
// replaces one that appeared meanwhile); 0 or the error. Renaming keeps the inode, the time and
// the size: the stamp taken before is the file's.
int writeRenamed(const fs::path& target, const std::string& text, bool isNew, struct stat* st) {
  fs::path temp = temporaryPathFor(target);
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);  // umask applies
  if (fd < 0) return errno;
  int err = writeAll(fd, text);
  if (err == 0 && ::fstat(fd, st) != 0) err = errno;
  if (::close(fd) != 0 && err == 0) err = errno;
  if (err == 0) err = moveIntoPlace(temp, target, isNew);
  if (err != 0) {
    std::error_code ignored;
    fs::remove(temp, ignored);
  }
  return err;
}

#if defined(O_TMPFILE) && !defined(_WIN32)
// A new file written as an unnamed one in the folder, then linked under its name: it shows
// whole or not at all, a new file never replaces one that appeared meanwhile (the link fails),
// and a crash leaves nothing behind. One change of the folder instead of a temporary file's
// two. nullopt where the file system or the system cannot (the caller takes the temporary
// file's way); otherwise 0 or the error.
std::optional<int> writeUnnamed(const fs::path& dir, const fs::path& target,
                                const std::string& text, struct stat* st) {
  int fd = ::open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);  // umask applies
  if (fd < 0) return std::nullopt;
  int err = writeAll(fd, text);
  if (err == 0 && ::fstat(fd, st) != 0) err = errno;
  if (err == 0) {
    std::string self = "/proc/self/fd/" + std::to_string(fd);
    if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      err = errno;
      if (err == ENOENT && !fs::exists("/proc/self/fd")) {
        ::close(fd);
        return std::nullopt;
      }
    }
  }
  if (::close(fd) != 0 && err == 0) err = errno;
  return err;
}
#endif

}  // namespace

FileStamp fileStamp(const struct stat& st) {
#ifdef _WIN32
  return FileStamp{static_cast<uint64_t>(st.st_ino), st.st_mtime, 0,
                   static_cast<uint64_t>(st.st_size)};
#else
  return FileStamp{static_cast<uint64_t>(st.st_ino), st.st_mtim.tv_sec, st.st_mtim.tv_nsec,
                   static_cast<uint64_t>(st.st_size)};
#endif
}

std::optional<FileStamp> stampOfFile(const fs::path& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
  return fileStamp(st);
}

CardWriter::CardWriter(fs::path dir, std::shared_ptr<CardRemote> remote)
    : dir_(std::move(dir)), remote_(std::move(remote)) {}

CardWriter::~CardWriter() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  work_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void CardWriter::submit(std::string file, std::string text, bool isNew, std::string base) {
  std::unique_lock lock(mutex_);
  if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  if (queue_.size() >= kMaxQueued) {
    ownerWaits_ = true;
    room_.wait(lock, [&] { return queue_.size() < kMaxQueued; });
    ownerWaits_ = false;
  }
  queue_.push_back(Job{std::move(file), std::move(text), isNew, std::move(base)});
  if (queue_.size() >= kBatch) work_.notify_one();
}

CardWriter::Result CardWriter::writeNow(std::string file, std::string text, bool isNew,
                                        std::string base) {
  drain();
  std::vector<Job> one;
  one.push_back(Job{std::move(file), std::move(text), isNew, std::move(base)});
  return std::move(write(std::move(one)).front());
}

bool CardWriter::busy() const {
  std::lock_guard lock(mutex_);
  return writing_ || !queue_.empty();
}

std::optional<CardWriter::Job> CardWriter::take(const std::string& writingElsewhere) {
  if (queue_.empty() || queue_.front().file == writingElsewhere) return std::nullopt;
  Job job = std::move(queue_.front());
  queue_.pop_front();
  return job;
}

void CardWriter::keep(Result r) {
  if (r.stamp && !r.error) ++unflushed_;
  done_.push_back(std::move(r));
}

void CardWriter::drain() {
  std::unique_lock lock(mutex_);
  urgent_ = true;
  work_.notify_one();
  // Files are written from both ends: the owner has nothing else to do meanwhile.
  while (!remote_ && !queue_.empty()) {
    std::optional<Job> job = take(writerFile_);
    if (!job) {  // the writer has this file's earlier job in hand (rare: one file saved twice)
      lock.unlock();
      std::this_thread::yield();
      lock.lock();
      continue;
    }
    ownerFile_ = job->file;
    lock.unlock();
    Result r = writeFile(*job);
    lock.lock();
    ownerFile_.clear();
    keep(std::move(r));
  }
  ownerWaits_ = true;
  room_.wait(lock, [&] { return !writing_ && queue_.empty(); });
  ownerWaits_ = false;
  urgent_ = false;
}

std::vector<CardWriter::Result> CardWriter::collect() {
  std::lock_guard lock(mutex_);
  std::vector<Result> out;
  out.swap(done_);
  return out;
}

CardWriter::DirTime CardWriter::knownDirTime() const {
  std::lock_guard lock(mutex_);
  return known_;
}

void CardWriter::setKnownDirTime(DirTime time) {
  std::lock_guard lock(mutex_);
  known_ = time;
}

CardWriter::DirTime CardWriter::dirTime() const {
  std::error_code ec;
  auto t = fs::last_write_time(dir_, ec);
  if (ec) return std::nullopt;
  return t;
}

void CardWriter::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    work_.wait(lock, [&] {
      return stopping_ || (!queue_.empty() && (urgent_ || queue_.size() >= kBatch));
    });
    if (queue_.empty()) return;  // stopping, and every job is done
    while (!queue_.empty()) {
      // Files one at a time; cards for a server a batch at a time, sent side by side.
      std::vector<Job> jobs;
      size_t most = remote_ ? kBatch : 1;
      while (jobs.size() < most) {
        std::optional<Job> job = take(ownerFile_);
        if (!job) break;
        jobs.push_back(std::move(*job));
      }
      if (jobs.empty()) {  // the owner has this file's earlier job in hand
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
        continue;
      }
      writing_ = true;
      writerFile_ = remote_ ? std::string() : jobs.front().file;
      lock.unlock();
      std::vector<Result> results = write(std::move(jobs));
      lock.lock();
      for (auto& r : results) keep(std::move(r));
      writing_ = false;
      writerFile_.clear();
      // The owner is woken when what it waits for may have come: room in the queue (a batch of
      // it, so that it is not woken for every file), or the end of the jobs.
      if (ownerWaits_ && (queue_.empty() || queue_.size() + kBatch <= kMaxQueued))
        room_.notify_all();
    }
    if (ownerWaits_) room_.notify_all();
    // Nothing to write for now: what was written starts on its way to the disk while the owner
    // goes on, so that the owner's own flush at its commit point finds little left to wait for.
    // The owner flushes all the same; this only moves the waiting off its thread.
    if (!remote_ && !urgent_ && !stopping_ && unflushed_ >= kFlushAhead &&
        std::chrono::steady_clock::now() - lastFlush_ >= kFlushAheadEvery) {
      unflushed_ = 0;
      lock.unlock();
      flushAhead();
      lock.lock();
      lastFlush_ = std::chrono::steady_clock::now();
    }
  }
}

void CardWriter::flushAhead() {
#ifdef __linux__
  int fd = ::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  (void)::syncfs(fd);  // a failure shows in the owner's own flush
  ::close(fd);
#endif
}

std::vector<CardWriter::Result> CardWriter::write(std::vector<Job> jobs) {
  std::vector<Result> results;
  if (!remote_) {
    for (const auto& job : jobs) results.push_back(writeFile(job));
    return results;
  }
  std::vector<CardRemote::Upload> uploads;
  for (const auto& job : jobs) {
    CardRemote::Upload u{job.file, job.text, job.base, {}, job.isNew};
    if (!job.isNew) {
      int fd = ::open((dir_ / job.file).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
      if (fd >= 0) {
        readAll(fd, &u.current, job.text.size());
        ::close(fd);
      }
    }
    uploads.push_back(std::move(u));
  }
  std::vector<CardRemote::Outcome> outcomes;
  try {
    outcomes = remote_->upload(uploads);
  } catch (const RuntimeError& e) {
    outcomes.assign(jobs.size(), CardRemote::Outcome{std::nullopt, false, e});
  }
  outcomes.resize(jobs.size());
  for (size_t i = 0; i < jobs.size(); ++i) {
    auto& outcome = outcomes[i];
    if (outcome.error || outcome.unchanged || !outcome.text) {
      Result r;
      r.file = jobs[i].file;
      r.isNew = jobs[i].isNew;
      if (outcome.error)
        r.error = *outcome.error;
      else
        r.stamp = stampOfFile(dir_ / jobs[i].file);
      results.push_back(std::move(r));
      continue;
    }
    jobs[i].text = std::move(*outcome.text);
    jobs[i].isNew = false;  // the server has it now: the copy follows whatever is there
    Result r = writeFile(jobs[i]);
    r.isNew = uploads[i].isNew;
    results.push_back(std::move(r));
  }
  return results;
}

CardWriter::Result CardWriter::writeFile(const Job& job) {
  Result result;
  result.file = job.file;
  result.isNew = job.isNew;
  fs::path target = dir_ / job.file;
  // A card saved without a change is left alone: no new file, nothing for other tools to sync.
  if (!job.isNew && holds(target, job.text, &result.stamp)) return result;

  beginOwnWrite();
  struct stat st {};
  std::optional<int> err;
#if defined(O_TMPFILE) && !defined(_WIN32)
  if (job.isNew) err = writeUnnamed(dir_, target, job.text, &st);
#endif
  if (!err) err = writeRenamed(target, job.text, job.isNew, &st);
  if (*err != 0)
    result.error = writeError(target, *err);
  else
    result.stamp = fileStamp(st);
  endOwnWrite();
  return result;
}

// The writer and the draining owner may write at the same time: the folder's time is taken when
// the first of them starts and again when the last of them ends, so that neither mistakes the
// other's change for someone else's (which would have the folder read again whole). A change by
// someone else shows unless it falls within our own writes.
void CardWriter::beginOwnWrite() {
  std::lock_guard lock(mutex_);
  if (ownWrites_++ == 0) {
    DirTime now = dirTime();
    ownWritesFromKnown_ = now && now == known_;
  }
}

void CardWriter::endOwnWrite() {
  std::lock_guard lock(mutex_);
  if (--ownWrites_ == 0 && ownWritesFromKnown_) known_ = dirTime();
}

}  // namespace dossync::vdir
