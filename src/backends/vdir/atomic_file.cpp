#include "backends/vdir/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "backends/vdir/entry_id.h"
#include "core/error.h"

namespace fs = std::filesystem;

namespace dossync::vdir {

void writeFileAtomically(const fs::path& file, std::string_view bytes, bool privateFile) {
  auto failure = [&](const std::string& why) {
    return RuntimeError(kPermissionDenied, "Cannot write " + file.string() + ": " + why, "vdir");
  };
  std::error_code ec;
  fs::create_directories(file.parent_path(), ec);
  if (ec) throw failure(ec.message());
  fs::path temp =
      file.parent_path() / ("." + file.filename().string() + "." + randomHex(8) + ".tmp");
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, privateFile ? 0600 : 0644);
  if (fd < 0) throw failure(std::strerror(errno));
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      std::string why = std::strerror(errno);
      ::close(fd);
      fs::remove(temp, ec);
      throw failure(why);
    }
    done += static_cast<size_t>(n);
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

}  // namespace dossync::vdir
