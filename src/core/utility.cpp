#include "core/utility.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "core/value.h"

namespace fs = std::filesystem;

namespace dossync {

FileLock::~FileLock() {
  ::close(fd_);  // releases the lock
}

std::unique_ptr<FileLock> FileUtil::lock(const std::string& lockFile,
                                         std::chrono::milliseconds wait) const {
  int fd = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) fd = ::open(lockFile.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;  // a folder we cannot write to: nothing to make there either
  auto lock = std::make_unique<FileLock>(fd);
  const auto until = std::chrono::steady_clock::now() + wait;
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR)
      throw RuntimeError(kPermissionDenied,
                         "Cannot lock '" + lockFile + "': " + std::strerror(errno));
    if (std::chrono::steady_clock::now() >= until)
      throw RuntimeError(kPermissionDenied, "'" + lockFile + "' stayed locked by another process");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return lock;
}

bool FileUtil::fileExists(const std::string& path) const {
  std::error_code ec;
  return !path.empty() && fs::is_regular_file(path, ec);
}

bool isServerLocation(const std::string& location) {
  return location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0;
}

void FileUtil::deleteFile(const std::string& path) const {
  std::error_code ec;
  fs::remove(path, ec);
  if (ec) throw RuntimeError(kPermissionDenied, "Cannot delete '" + path + "': " + ec.message());
}

void FileUtil::copyFile(const std::string& from, const std::string& to) const {
  std::error_code ec;
  fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
  if (ec)
    throw RuntimeError(kPathNotFound,
                       "Cannot copy '" + from + "' to '" + to + "': " + ec.message());
}

std::string FileUtil::folderOf(const std::string& path) const {
  fs::path p(path);
  std::string parent = p.parent_path().string();
  return parent.empty() ? "." : parent;
}

std::string FileUtil::withTrailingSeparator(const std::string& folder) const {
  if (!folder.empty() && folder.back() == '/') return folder;
  return folder + "/";
}

bool FileUtil::isUsableFile(const std::string& path) const {
  if (!fileExists(path)) return false;
  std::ifstream in(path, std::ios::binary);
  return in.good();
}

bool GeneralUtil::isBlank(const std::string& text) const {
  return value::isBlank(text);
}
bool GeneralUtil::isNumeric(const std::string& text) const {
  return value::isNumeric(text);
}

}  // namespace dossync
