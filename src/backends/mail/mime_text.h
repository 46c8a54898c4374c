// The parts of reading and writing Internet messages that need no MIME library: mailbox
// syntax, line breaks, media types by extension. Shared by the GMime writer (mime_message.cpp)
// and the plain one of the Windows build.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace dossync::vdir::mime {

std::string_view trimView(std::string_view t);
// local@domain without blanks, separators or a leading, trailing or doubled dot.
bool validAddress(std::string_view a);
// A display name outside quotes may not hold what separates or groups addresses.
bool validBareName(std::string_view n);
// The text of a quoted string ("..." with backslash escapes); nullopt when it is not one.
std::optional<std::string> unquote(std::string_view n);
// CR LF and lone CR as LF.
std::string canonicalLineBreaks(std::string_view text);
// The domain of an address, "localhost" without one (for Message-IDs).
std::string domainOf(const std::string& address);

}  // namespace dossync::vdir::mime
