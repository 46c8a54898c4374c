#include "base/utility.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "base/value.h"

namespace fs = std::filesystem;

namespace dossync {

fs::path pathOf(const std::string& utf8) {
#ifdef _WIN32
  return fs::path(std::u8string(utf8.begin(), utf8.end()));
#else
  return fs::path(utf8);
#endif
}

#ifdef _WIN32
FileLock::~FileLock() {
  ::CloseHandle(static_cast<HANDLE>(handle_));  // releases the lock
}

std::unique_ptr<FileLock> FileUtil::lock(const std::string& lockFile,
                                         std::chrono::milliseconds wait) const {
  const std::wstring name = pathOf(lockFile).wstring();
  HANDLE h = ::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE)
    h = ::CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) return nullptr;  // nothing to make in that folder either
  auto lock = std::make_unique<FileLock>(h);
  const auto until = std::chrono::steady_clock::now() + wait;
  OVERLAPPED whole{};
  while (!::LockFileEx(h, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, MAXDWORD,
                       MAXDWORD, &whole)) {
    DWORD error = ::GetLastError();
    if (error != ERROR_LOCK_VIOLATION && error != ERROR_IO_PENDING)
      throw RuntimeError(kPermissionDenied,
                         "Cannot lock '" + lockFile + "': Windows error " + std::to_string(error));
    if (std::chrono::steady_clock::now() >= until)
      throw RuntimeError(kPermissionDenied, "'" + lockFile + "' stayed locked by another process");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return lock;
}
#else
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
#endif

bool FileUtil::fileExists(const std::string& path) const {
  std::error_code ec;
  return !path.empty() && fs::is_regular_file(pathOf(path), ec);
}

bool isServerLocation(const std::string& location) {
  return location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0;
}

void FileUtil::deleteFile(const std::string& path) const {
  std::error_code ec;
  fs::remove(pathOf(path), ec);
  if (ec) throw RuntimeError(kPermissionDenied, "Cannot delete '" + path + "': " + ec.message());
}

void FileUtil::copyFile(const std::string& from, const std::string& to) const {
  std::error_code ec;
  fs::copy_file(pathOf(from), pathOf(to), fs::copy_options::overwrite_existing, ec);
  if (ec)
    throw RuntimeError(kPathNotFound,
                       "Cannot copy '" + from + "' to '" + to + "': " + ec.message());
}

std::string FileUtil::folderOf(const std::string& path) const {
  std::u8string parent = pathOf(path).parent_path().u8string();
  return parent.empty() ? "." : std::string(parent.begin(), parent.end());
}

std::string FileUtil::withTrailingSeparator(const std::string& folder) const {
#ifdef _WIN32
  if (!folder.empty() && (folder.back() == '/' || folder.back() == '\\')) return folder;
  return folder + "\\";
#else
  if (!folder.empty() && folder.back() == '/') return folder;
  return folder + "/";
#endif
}

bool FileUtil::isUsableFile(const std::string& path) const {
  if (!fileExists(path)) return false;
  std::ifstream in(pathOf(path), std::ios::binary);
  return in.good();
}

bool GeneralUtil::isBlank(const std::string& text) const {
  return value::isBlank(text);
}
bool GeneralUtil::isNumeric(const std::string& text) const {
  return value::isNumeric(text);
}

}  // namespace dossync
