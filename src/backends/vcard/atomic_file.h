// Writing a whole file so that readers see the old one or the new one, never half of either:
// a temporary file beside it, flushed, then renamed over it. The folder is made when missing.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "base/error.h"

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

// The temporary file every whole-file write of `file` goes through (here and in the card
// writer): ".NAME.<8 random lowercase hex digits>.tmp" beside it. Hidden, so readers of the
// folder skip it.
std::filesystem::path temporaryPathFor(const std::filesystem::path& file);
// The NAME whose temporary file `name` is, or "" when `name` is not made like one.
std::string_view targetOfTemporaryName(std::string_view name);

// A writer renames its temporary file moments after making it; one older than this was left by
// a run that was killed (or lost its machine) in between.
inline constexpr std::chrono::seconds kStaleTemporaryAge = std::chrono::hours(1);
// Removes from `dir` the regular files named like temporaryPathFor's for a NAME that `isTarget`
// accepts and last written more than `age` ago; nothing else, whatever its name. Failures are
// ignored (the files stay for another time). Answers how many were removed.
size_t removeStaleTemporaryFiles(const std::filesystem::path& dir,
                                 const std::function<bool(std::string_view)>& isTarget,
                                 std::chrono::seconds age = kStaleTemporaryAge);

}  // namespace dossync::vdir
