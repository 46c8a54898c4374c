// libFuzzer target: arbitrary bytes through the vCard reader (whole, and the keys alone), the
// writer and the contact mapping. Build with -DDOSSYNC_FUZZ=ON and clang; run build/vcard_fuzz
// [corpus dir]. Anything but a clean RuntimeError from the reader, or a round trip that is not
// stable, aborts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "base/error.h"

namespace {

using dossync::outlook::ContactProperty;
using namespace dossync::vdir;

void require(bool ok) {
  if (!ok) std::abort();
}

const char* const kValues[] = {"", "x", " a, b; c\\d ", "one\r\ntwo", "lone\rcr\nlf", "ü漢🎉"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  // Reading only the keys (the folder's index) accepts what the whole reader accepts, and
  // finds the same keys.
  CardKeys keys;
  bool keysRead = false;
  try {
    keys = readCardKeys(text);
    keysRead = true;
  } catch (const dossync::RuntimeError&) {
  }
  Vcard card;
  try {
    card = parseVcard(text);
  } catch (const dossync::RuntimeError&) {
    require(!keysRead);
    return 0;
  }
  require(keysRead && keys == cardKeys(card));

  // What we write reads back, and writing that again changes nothing.
  std::string written = writeVcard(card);
  Vcard again = parseVcard(written);
  require(writeVcard(again) == written);

  // The writer proper: every property built from its parts reads back the same.
  Vcard rebuilt = card;
  for (auto& p : rebuilt.properties) p.forgetSourceLine();
  Vcard reread = parseVcard(writeVcard(rebuilt));
  require(reread.properties.size() == card.properties.size());
  for (size_t i = 0; i < card.properties.size(); ++i)
    require(reread.properties[i].sameContent(card.properties[i]));

  // The mapping reads anything; one property set changes that one only, and reads back.
  ContactCard contact(again);
  std::vector<std::string> before;
  for (int i = 0; i < dossync::outlook::kContactTextPropertyCount; ++i)
    before.push_back(contact.get(static_cast<ContactProperty>(i)));
  (void)contact.gender();
  (void)contact.birthday();
  (void)contact.anniversary();
  unsigned pick = size > 0 ? data[0] : 0;
  auto target = static_cast<ContactProperty>(pick % dossync::outlook::kContactTextPropertyCount);
  std::string value = kValues[(size > 1 ? data[1] : 0) % std::size(kValues)];
  contact.set(target, value);
  // Completing the name for address books changes no contact property, and leaves an FN.
  contact.completeName();
  ContactCard back(parseVcard(contact.text()));
  for (int i = 0; i < dossync::outlook::kContactTextPropertyCount; ++i) {
    auto p = static_cast<ContactProperty>(i);
    require(back.get(p) == (p == target ? value : before[static_cast<size_t>(i)]));
  }
  require(back.vcard().find("FN") && !back.vcard().find("FN")->rawValue().empty());
  return 0;
}
