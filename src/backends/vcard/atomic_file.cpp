#include "backends/vcard/atomic_file.h"

#ifndef _WIN32
#include <dirent.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "backends/vcard/entry_id.h"
#include "backends/vcard/posix_io.h"
#include "base/error.h"

namespace fs = std::filesystem;

namespace dossync::vdir {

RuntimeError fileError(const std::string& what, int err) {
  int32_t number = kOutlookOperationFailed;
  if (err == EACCES || err == EPERM || err == EROFS) number = kPermissionDenied;
  if (err == ENOENT || err == ENOTDIR) number = kPathNotFound;
  if (err == EEXIST) number = kFileAlreadyExists;
  return RuntimeError(number, what + ": " + std::strerror(err), "vdir");
}

int writeAll(int fd, std::string_view bytes) {
  for (size_t done = 0; done < bytes.size();) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n == 0) {
      return EIO;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

int readAll(int fd, std::string* out, size_t expected, size_t limit) {
  out->assign(std::min(expected, limit), '\0');
  size_t n = 0;
  for (;;) {
    if (n == out->size()) {
      if (n >= limit) break;
      out->resize(std::min(limit, n + 4096));  // it may have grown
    }
    ssize_t got = ::read(fd, out->data() + n, out->size() - n);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      out->resize(n);
      return err;
    }
    n += static_cast<size_t>(got);
  }
  out->resize(n);
  return 0;
}

void writeFileAtomically(const fs::path& file, std::string_view bytes, bool privateFile) {
  auto failure = [&](const std::string& why) {
    return RuntimeError(kPermissionDenied, "Cannot write " + file.string() + ": " + why, "vdir");
  };
  std::error_code ec;
  fs::create_directories(file.parent_path(), ec);
  if (ec) throw failure(ec.message());
  fs::path temp = temporaryPathFor(file);
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, privateFile ? 0600 : 0644);
  if (fd < 0) throw failure(std::strerror(errno));
  if (int err = writeAll(fd, bytes); err != 0) {
    ::close(fd);
    fs::remove(temp, ec);
    throw failure(std::strerror(err));
  }
  int synced = ::fsync(fd);
  int syncError = errno;
  if (::close(fd) != 0 || synced != 0) {
    std::string why = std::strerror(synced != 0 ? syncError : errno);
    fs::remove(temp, ec);
    throw failure(why);
  }
  fs::rename(temp, file, ec);
  if (ec) {
    std::string why = ec.message();
    fs::remove(temp, ec);
    throw failure(why);
  }
}

namespace {
constexpr size_t kTemporaryDigits = 8;
}  // namespace

fs::path temporaryPathFor(const fs::path& file) {
  return file.parent_path() /
         ("." + file.filename().string() + "." + randomHex(kTemporaryDigits) + ".tmp");
}

std::string_view targetOfTemporaryName(std::string_view name) {
  constexpr std::string_view kEnd = ".tmp";
  // '.' NAME '.' digits ".tmp", NAME not empty
  if (name.size() < 1 + 1 + 1 + kTemporaryDigits + kEnd.size() || name[0] != '.' ||
      !name.ends_with(kEnd))
    return {};
  std::string_view rest = name.substr(1, name.size() - 1 - kEnd.size());
  std::string_view digits = rest.substr(rest.size() - kTemporaryDigits);
  if (!std::all_of(digits.begin(), digits.end(),
                   [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }))
    return {};
  rest.remove_suffix(kTemporaryDigits);
  if (rest.back() != '.') return {};
  rest.remove_suffix(1);
  return rest;
}

size_t removeStaleTemporaryFiles(const fs::path& dir,
                                 const std::function<bool(std::string_view)>& isTarget,
                                 std::chrono::seconds age) {
#ifdef _WIN32
  // No links to keep away from here; the folder is listed by name.
  std::error_code ec;
  size_t removed = 0;
  const auto now = fs::file_time_type::clock::now();
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    std::string name = it->path().filename().string();
    std::string_view target = targetOfTemporaryName(name);
    if (target.empty() || !isTarget(target) || !it->is_regular_file()) continue;
    std::error_code timeError;
    auto written = fs::last_write_time(it->path(), timeError);
    if (timeError || now - written <= age) continue;
    std::error_code removeError;
    if (fs::remove(it->path(), removeError)) ++removed;
  }
  return removed;
#else
  DIR* d = ::opendir(dir.c_str());
  if (!d) return 0;
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  size_t removed = 0;
  while (const struct dirent* e = ::readdir(d)) {
    std::string_view target = targetOfTemporaryName(e->d_name);
    if (target.empty() || !isTarget(target)) continue;
    // Not followed: a link or a folder of that name is not ours.
    struct stat st {};
    if (::fstatat(::dirfd(d), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode))
      continue;
    if (now.tv_sec - st.st_mtim.tv_sec <= age.count()) continue;
    if (::unlinkat(::dirfd(d), e->d_name, 0) == 0) ++removed;
  }
  ::closedir(d);
  return removed;
#endif
}

}  // namespace dossync::vdir
