#include "backends/vcard/entry_id.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <random>

#include "base/hash.h"

namespace dossync::vdir {

// Two starts of the hash give the 128 bits of an id.
std::string hash128(std::string_view s) {
  char buf[33];
  std::snprintf(buf, sizeof buf, "%016llx%016llx", static_cast<unsigned long long>(hash::fnv1a(s)),
                static_cast<unsigned long long>(hash::fnv1a(s, 0x84222325cbf29ce4ULL)));
  return buf;
}

bool isPlainUid(std::string_view uid) {
  if (uid.empty() || uid.size() > kMaxEntryIdLength || uid.front() == '.') return false;
  for (char c : uid) {
    bool ok = std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.' ||
              c == '@' || c == '+' || c == '=';
    if (!ok) return false;
  }
  return true;
}

std::string entryIdFor(std::string_view uid, std::string_view fileName) {
  if (isPlainUid(uid)) return std::string(uid);
  if (!uid.empty()) return "~U" + hash128(uid);
  return "~F" + hash128(fileName);
}

std::string randomHex(size_t digits) {
  static thread_local std::mt19937_64 engine{[] {
    std::random_device rd;
    std::seed_seq seq{rd(), rd(), rd(), rd()};
    return std::mt19937_64(seq);
  }()};
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < digits; ++i) out += kHex[engine() & 15];
  return out;
}

}  // namespace dossync::vdir
