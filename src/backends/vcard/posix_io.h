// The few POSIX file calls the vCard folder store makes, for Windows (mingw-w64): files opened
// by wide paths in binary mode, fsync as _commit, and no folder handles (opening a folder
// fails, so callers take the path-by-path way). On other systems: the system's own headers.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#ifdef _WIN32
#include <io.h>

#include <cerrno>

#ifndef O_CLOEXEC
#define O_CLOEXEC _O_NOINHERIT
#endif
#ifndef O_NONBLOCK
#define O_NONBLOCK 0  // only files are opened here: nothing to wait for
#endif
#ifndef O_DIRECTORY
#define O_DIRECTORY 0x40000000  // no such open here: folders are never opened
#endif
#ifndef AT_SYMLINK_NOFOLLOW
#define AT_SYMLINK_NOFOLLOW 0x100
#endif

inline int open(const wchar_t* path, int flags, int mode = 0) {
  if (flags & O_DIRECTORY) {
    errno = ENOTDIR;
    return -1;
  }
  return ::_wopen(path, flags | _O_BINARY, mode);
}
inline int fsync(int fd) {
  return ::_commit(fd);
}
inline int stat(const wchar_t* path, struct stat* st) {
  int fd = ::_wopen(path, _O_RDONLY | _O_BINARY);
  if (fd < 0) return -1;
  int rc = ::fstat(fd, st);
  ::_close(fd);
  return rc;
}
// Never reached (no folder is ever open), there for the callers to compile.
inline int openat(int, const char*, int) {
  errno = ENOSYS;
  return -1;
}
inline int fstatat(int, const char*, struct stat*, int) {
  errno = ENOSYS;
  return -1;
}
#else
#include <unistd.h>
#endif
