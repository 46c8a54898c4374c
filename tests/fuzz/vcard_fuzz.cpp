// libFuzzer target: arbitrary bytes through checkCardInvariants, aborting on any that fails.
// Build with -DDOSSYNC_FUZZ=ON and clang; run build/vcard_fuzz [corpus dir].
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "../backends/vcard/card_invariants.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* const kValues[] = {"", "x", " a, b; c\\d ", "one\r\ntwo", "lone\rcr\nlf", "ü漢🎉"};
  std::string text(reinterpret_cast<const char*>(data), size);
  auto target = static_cast<dossync::outlook::ContactProperty>(
      (size > 0 ? data[0] : 0) % dossync::outlook::kContactTextPropertyCount);
  std::string value = kValues[(size > 1 ? data[1] : 0) % std::size(kValues)];
  dossync::vdir::checkCardInvariants(text, target, value, [](const std::string&) { std::abort(); });
  return 0;
}
