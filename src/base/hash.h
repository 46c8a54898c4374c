// FNV-1a, 64 bits: the one hash of names, entry ids and record values. Values it produced are
// kept on disk (entry ids, pair states), so it must never change.
#pragma once

#include <cstdint>
#include <string_view>

namespace dossync::hash {

inline constexpr uint64_t kFnvOffset = 0xcbf29ce484222325ULL;
inline constexpr uint64_t kFnvPrime = 0x100000001b3ULL;

// One byte more into the hash h.
constexpr uint64_t fnv1aByte(uint64_t h, unsigned char byte) {
  return (h ^ byte) * kFnvPrime;
}

// The bytes of s into the hash h (by default a fresh one).
constexpr uint64_t fnv1a(std::string_view s, uint64_t h = kFnvOffset) {
  for (char c : s) h = fnv1aByte(h, static_cast<unsigned char>(c));
  return h;
}

}  // namespace dossync::hash
