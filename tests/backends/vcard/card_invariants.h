// What holds for any text given to the vCard reader: on damaged cards (vcard_test.cpp) and on
// arbitrary bytes (tests/fuzz/vcard_fuzz.cpp).
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "base/error.h"

namespace dossync::vdir {

// The reader and the keys alone (the folder's index) refuse the text alike; or it is written back
// stably, rebuilt from its parts, and setting `target` to `value` changes that property only and
// leaves a display name. `fail` is told what does not hold; answers whether the text was read.
inline bool checkCardInvariants(const std::string& text, outlook::ContactProperty target,
                                const std::string& value,
                                const std::function<void(const std::string&)>& fail) {
  std::optional<CardKeys> keys;
  std::string keysRefused;
  try {
    keys = readCardKeys(text);
  } catch (const RuntimeError& e) {
    keysRefused = e.description();
  }
  Vcard card;
  try {
    card = parseVcard(text);
  } catch (const RuntimeError& e) {
    if (keys || keysRefused != e.description()) fail("the keys alone were not refused alike");
    return false;
  }
  if (keys != cardKeys(card)) fail("the keys read alone differ from the card's");

  std::string written = writeVcard(card);
  Vcard again = parseVcard(written);
  if (writeVcard(again) != written) fail("what was written changes when written again");

  Vcard rebuilt = card;
  for (auto& p : rebuilt.properties) p.forgetSourceLine();
  Vcard reread = parseVcard(writeVcard(rebuilt));
  if (reread.properties.size() != card.properties.size()) fail("rebuilt properties were lost");
  for (size_t i = 0; i < std::min(card.properties.size(), reread.properties.size()); ++i)
    if (!reread.properties[i].sameContent(card.properties[i]))
      fail("rebuilt, it reads otherwise: " + card.properties[i].line());

  ContactCard contact(again);
  std::vector<std::string> before;
  for (int i = 0; i < outlook::kContactTextPropertyCount; ++i)
    before.push_back(contact.get(static_cast<outlook::ContactProperty>(i)));
  (void)contact.gender();
  (void)contact.birthday();
  (void)contact.anniversary();
  contact.set(target, value);
  contact.completeName();  // for address books: changes no contact property
  ContactCard back(parseVcard(contact.text()));
  for (int i = 0; i < outlook::kContactTextPropertyCount; ++i) {
    auto p = static_cast<outlook::ContactProperty>(i);
    if (back.get(p) != (p == target ? value : before[static_cast<size_t>(i)]))
      fail(std::string("setting ") + outlook::propertyName(target) + " changed " +
           outlook::propertyName(p));
  }
  const VcardProperty* fn = back.vcard().find("FN");
  if (!fn || fn->rawValue().empty()) fail("no display name");
  return true;
}

}  // namespace dossync::vdir
