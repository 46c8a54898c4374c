// Writing a whole file so that readers see the old one or the new one, never half of either:
// a temporary file beside it, flushed, then renamed over it. The folder is made when missing.
#pragma once

#include <filesystem>
#include <string_view>

namespace dossync::vdir {

// `privateFile` makes it readable by its owner only (0600). Throws RuntimeError
// kPermissionDenied naming the file and the system's reason.
void writeFileAtomically(const std::filesystem::path& file, std::string_view bytes,
                         bool privateFile = false);

}  // namespace dossync::vdir
