// libFuzzer target: arbitrary bytes through the vCard reader (whole, and the keys alone), the
// writer and the contact mapping. Build with -DDOSSYNC_FUZZ=ON and clang; run build/vcard_fuzz
// [corpus dir]. Anything but a clean RuntimeError from the reader, or a round trip that is not
// stable, aborts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "../backends/vcard/card_invariants.h"

namespace {

const char* const kValues[] = {"", "x", " a, b; c\\d ", "one\r\ntwo", "lone\rcr\nlf", "ü漢🎉"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  auto target = static_cast<dossync::outlook::ContactProperty>(
      (size > 0 ? data[0] : 0) % dossync::outlook::kContactTextPropertyCount);
  std::string value = kValues[(size > 1 ? data[1] : 0) % std::size(kValues)];
  dossync::vdir::checkCardInvariants(text, target, value, [](const std::string&) { std::abort(); });
  return 0;
}
