// Entry ids of the items of a vCard folder (at most 100 characters, stable across runs and
// across renames of the contact, since they come from the card's UID, not its names):
//   <UID>         the UID itself when it is 1 to 100 characters of A-Z a-z 0-9 and - _ . @ + =
//                 and does not start with '.'; a card made here gets 32 random hex digits and is
//                 stored as <UID>.vcf, so such an id also names its file;
//   ~U<32 hex>    any other UID (long, or with blanks, slashes, colons...): a 128-bit hash of it;
//   ~F<32 hex>    a card without UID: a hash of its file name (stable while the file keeps it).
// '~' cannot start a plain UID id, so the three forms never meet.
#pragma once

#include <string>
#include <string_view>

namespace dossync::vdir {

inline constexpr size_t kMaxEntryIdLength = 100;

bool isPlainUid(std::string_view uid);
std::string entryIdFor(std::string_view uid, std::string_view fileName);
// 32 lowercase hex digits made from `s` (not a cryptographic hash: names, not secrets).
std::string hash128(std::string_view s);
// `digits` random lowercase hex digits.
std::string randomHex(size_t digits);
inline std::string newUid() {
  return randomHex(32);
}

}  // namespace dossync::vdir
