// The utilities library's two helper objects, created on first use per apartment.
//   FileUtil     file exists, delete, copy with overwrite, folder of a path, trailing separator,
//                a usability check (a regular, readable file), and an advisory lock that makes
//                one step on a shared file run in one process at a time.
//   GeneralUtil  the blank test and the numeric test of base/value.h, behind the object the
//                component hands the error service to.
// File operations throw RuntimeError naming the path on failure.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "base/error.h"

namespace dossync {

// An exclusive advisory lock (flock; LockFileEx on Windows) on a lock file, held until the object
// is destroyed or the process ends. The lock file stays: removing it would let a process that waits
// on the old file and one that creates a new file both hold "the" lock.
class FileLock {
 public:
#ifdef _WIN32
  explicit FileLock(void* handle) : handle_(handle) {}
#else
  explicit FileLock(int fd) : fd_(fd) {}
#endif
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
#ifdef _WIN32
  void* handle_;  // the lock file's HANDLE, locked with LockFileEx
#else
  int fd_;
#endif
};

// A path from UTF-8 text (on Windows the narrow form would be read in the ANSI code page).
std::filesystem::path pathOf(const std::string& utf8);

class FileUtil {
 public:
  // Waits at most `wait` for the lock, then throws RuntimeError naming the lock file. Answers
  // nullptr, taking no lock, when the lock file can neither be made nor opened.
  std::unique_ptr<FileLock> lock(const std::string& lockFile,
                                 std::chrono::milliseconds wait = std::chrono::seconds(30)) const;
  bool fileExists(const std::string& path) const;
  void deleteFile(const std::string& path) const;
  void copyFile(const std::string& from, const std::string& to) const;  // overwrites
  std::string folderOf(const std::string& path) const;
  std::string withTrailingSeparator(const std::string& folder) const;
  bool isUsableFile(const std::string& path) const;
};

// Whether a database location names a database on a server (a libpq URI: "postgresql://..." or
// "postgres://..."), which is opened to learn whether it is there, rather than a file.
bool isServerLocation(const std::string& location);

class GeneralUtil {
 public:
  void setErrorService(std::shared_ptr<IErrorService> service) {
    errorService_ = std::move(service);
  }
  bool isBlank(const std::string& text) const;
  bool isNumeric(const std::string& text) const;

 private:
  std::shared_ptr<IErrorService> errorService_;
};

}  // namespace dossync
