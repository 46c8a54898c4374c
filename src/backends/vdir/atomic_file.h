// Writing a whole file so that readers see the old one or the new one, never half of either:
// a temporary file beside it, flushed, then renamed over it. The folder is made when missing.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "core/error.h"

namespace dossync::vdir {

// `what` and the system's reason for `err`, numbered by what the caller should do (permission,
// path not found, file exists, else an Outlook operation that failed).
RuntimeError fileError(const std::string& what, int err);
// Writes all of `bytes` to `fd`; 0, or the errno that stopped it.
int writeAll(int fd, std::string_view bytes);
// Reads `fd` to its end (or `limit` bytes) into *out; 0, or the errno that stopped it.
// `expected` sizes the first read.
int readAll(int fd, std::string* out, size_t expected, size_t limit = std::string::npos);

// `privateFile` makes it readable by its owner only (0600). Throws RuntimeError
// kPermissionDenied naming the file and the system's reason.
void writeFileAtomically(const std::filesystem::path& file, std::string_view bytes,
                         bool privateFile = false);

}  // namespace dossync::vdir
