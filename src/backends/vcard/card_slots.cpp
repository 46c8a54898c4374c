#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "backends/vcard/card_parts.h"
#include "base/error.h"

namespace dossync::vdir::card {

// ---- Where properties go ------------------------------------------------------------------

bool isSecondSlot(CP p) {
  return p == CP::Business2TelephoneNumber || p == CP::Home2TelephoneNumber ||
         p == CP::Email2Address || p == CP::Email3Address;
}

std::optional<CP> taggedSlot(const VcardProperty& p, std::span<const CP> slots) {
  const std::string* tag = p.paramValue(kFieldParam);
  if (!tag) return std::nullopt;
  for (CP slot : slots) {
    if (sameName(*tag, outlook::propertyName(slot))) return slot;
  }
  return std::nullopt;
}

// The slots an untagged telephone may fill, the first free one taken.
struct Candidates {
  std::array<CP, 2> slot{};
  size_t count = 0;
};

Candidates phoneCandidates(const VcardProperty& p) {
  uint32_t types = p.typeMask();
  if (types &
      (kTypePager | kTypeCar | kTypeVideo | kTypeModem | kTypeIsdn | kTypeBbs | kTypeTextphone))
    return {};
  bool work = types & kTypeWork, home = types & kTypeHome;
  if (types & kTypeFax) return {{home && !work ? CP::HomeFaxNumber : CP::BusinessFaxNumber}, 1};
  if (types & kTypeCell) return {{CP::MobileTelephoneNumber}, 1};
  if (work) return {{CP::BusinessTelephoneNumber, CP::Business2TelephoneNumber}, 2};
  if (home) return {{CP::HomeTelephoneNumber, CP::Home2TelephoneNumber}, 2};
  return {};
}

// Which TEL (phone) or EMAIL property fills which slot: tagged ones first, then the others by
// type in card order. A second property tagged for a taken slot fills none.
SlotMap assignSlots(const Vcard& card, bool phone) {
  std::span<const CP> slots = phone ? std::span<const CP>(kPhoneSlots) : kEmailSlots;
  SlotMap out(slots);
  std::string_view name = phone ? "TEL" : "EMAIL";
  bool untagged = false;
  for (size_t i = 0; i < card.properties.size(); ++i) {
    const auto& p = card.properties[i];
    if (!p.is(name)) continue;
    if (auto slot = taggedSlot(p, slots)) {
      out.claim(*slot, i);
    } else {
      untagged = true;
    }
  }
  if (!untagged) return out;
  for (size_t i = 0; i < card.properties.size(); ++i) {
    const auto& p = card.properties[i];
    if (!p.is(name) || taggedSlot(p, slots)) continue;
    if (phone) {
      Candidates c = phoneCandidates(p);
      for (size_t k = 0; k < c.count; ++k) {
        if (out.claim(c.slot[k], i)) break;
      }
    } else {
      for (CP c : kEmailSlots) {
        if (out.claim(c, i)) break;
      }
    }
  }
  return out;
}

// assignSlots, kept in `cache` until the card is edited.
SlotMap cachedSlots(const Vcard& card, bool phone, CardSlots& cache) {
  std::span<const CP> slots = phone ? std::span<const CP>(kPhoneSlots) : kEmailSlots;
  bool& known = phone ? cache.phonesKnown : cache.emailsKnown;
  auto& at = phone ? cache.phones : cache.emails;
  if (known) return SlotMap(slots, at);
  SlotMap out = assignSlots(card, phone);
  at = out.positions();
  known = true;
  return out;
}

// Tagging keeps every property in the slot it fills (`filled`, the card's slots now).
void tagSecondSlots(Vcard& card, bool phone, const SlotMap& filled) {
  std::span<const CP> slots = phone ? std::span<const CP>(kPhoneSlots) : kEmailSlots;
  filled.forEach([&](CP slot, size_t index) {
    auto& p = card.properties[index];
    if (isSecondSlot(slot) && taggedSlot(p, slots) != slot)
      p.setParam(kFieldParam, {outlook::propertyName(slot)});
  });
}

std::vector<std::string> slotTypes(CP slot) {
  switch (slot) {
    case CP::BusinessTelephoneNumber:
    case CP::Business2TelephoneNumber:
      return {"WORK", "VOICE"};
    case CP::BusinessFaxNumber:
      return {"WORK", "FAX"};
    case CP::HomeTelephoneNumber:
    case CP::Home2TelephoneNumber:
      return {"HOME", "VOICE"};
    case CP::HomeFaxNumber:
      return {"HOME", "FAX"};
    case CP::MobileTelephoneNumber:
      return {"CELL", "VOICE"};
    default:
      return {"INTERNET"};
  }
}

// Where a new property goes: before the first property that comes after it in this order, so
// a card made here reads in the same order whatever order its properties were set in.
constexpr std::array<std::string_view, 22> kOrder = {"VERSION",
                                                     "PRODID",
                                                     "UID",
                                                     "FN",
                                                     "N",
                                                     "X-DOSSYNC-FILEAS",
                                                     "ORG",
                                                     "X-ABShowAs",
                                                     "TITLE",
                                                     "X-DOSSYNC-OFFICE",
                                                     "TEL",
                                                     "EMAIL",
                                                     "ADR",
                                                     "URL",
                                                     "BDAY",
                                                     "X-ANNIVERSARY",
                                                     "X-GENDER",
                                                     "X-SPOUSE",
                                                     "X-DOSSYNC-CHILDREN",
                                                     "CATEGORIES",
                                                     "X-DOSSYNC-CATEGORIES",
                                                     "NOTE"};

constexpr std::array<uint16_t, kOrder.size()> kOrderKeys = [] {
  std::array<uint16_t, kOrder.size()> keys{};
  for (size_t i = 0; i < kOrder.size(); ++i) keys[i] = nameKey(kOrder[i]);
  return keys;
}();

std::optional<int> computeRank(const VcardProperty& p) {
  for (size_t i = 0; i < kOrder.size(); ++i) {
    if (!sameName(p.name(), p.nameKey(), kOrder[i], kOrderKeys[i])) continue;
    int sub = 0;
    if (p.is("TEL")) {
      auto slot = taggedSlot(p, kPhoneSlots);
      if (!slot) {
        Candidates c = phoneCandidates(p);
        if (c.count > 0) slot = c.slot[0];
      }
      sub = slot ? static_cast<int>(std::find(kPhoneSlots.begin(), kPhoneSlots.end(), *slot) -
                                    kPhoneSlots.begin())
                 : 99;
    } else if (p.is("EMAIL")) {
      auto slot = taggedSlot(p, kEmailSlots);
      sub = slot ? static_cast<int>(*slot) - static_cast<int>(CP::Email1Address) : 0;
    } else if (p.is("ADR")) {
      sub = p.typeMask() & kTypeWork ? 0 : p.typeMask() & kTypeHome ? 1 : 2;
    }
    return static_cast<int>(i) * 100 + sub;
  }
  return std::nullopt;
}

constexpr int kUnranked = -1;

std::optional<int> rankOf(const VcardProperty& p) {
  if (auto memo = p.memo()) return *memo == kUnranked ? std::nullopt : std::optional<int>(*memo);
  auto rank = computeRank(p);
  p.setMemo(rank.value_or(kUnranked));
  return rank;
}

VcardProperty& insertProperty(Vcard& card, VcardProperty p) {
  auto rank = rankOf(p);
  auto& props = card.properties;
  auto at = props.end();
  if (rank) {
    at = std::find_if(props.begin(), props.end(), [&](const VcardProperty& q) {
      auto r = rankOf(q);
      return r && *r > *rank;
    });
  }
  return *props.insert(at, std::move(p));
}

namespace {

// A list of property names, the keys of the first few worked out once (a card's look-ups try
// every property against them).
class NameList {
 public:
  explicit NameList(std::span<const char* const> names) : names_(names) {
    for (size_t i = 0; i < std::min(names.size(), kKeyed); ++i) keys_[i] = nameKey(names[i]);
  }
  size_t size() const { return names_.size(); }
  // The place in the list of p's name, looked for among the first `limit` names; `limit` when
  // it is none of them.
  size_t placeOf(const VcardProperty& p, size_t limit) const {
    for (size_t i = 0; i < limit; ++i) {
      if (i < kKeyed ? sameName(p.name(), p.nameKey(), names_[i], keys_[i]) : p.is(names_[i]))
        return i;
    }
    return limit;
  }

 private:
  static constexpr size_t kKeyed = 4;
  std::span<const char* const> names_;
  std::array<uint16_t, kKeyed> keys_{};
};

}  // namespace

void removeAll(Vcard& card, std::span<const char* const> names) {
  NameList list(names);
  std::erase_if(card.properties,
                [&](const VcardProperty& p) { return list.placeOf(p, list.size()) < list.size(); });
}

// The first property with one of these names, the earlier names first: one pass over the card,
// the property of the earliest name wins.
const VcardProperty* findAny(const Vcard& card, std::span<const char* const> names) {
  NameList list(names);
  const VcardProperty* best = nullptr;
  size_t bestPlace = list.size();
  for (const VcardProperty& p : card.properties) {
    size_t place = list.placeOf(p, bestPlace);
    if (place == bestPlace) continue;
    best = &p;
    bestPlace = place;
    if (bestPlace == 0) break;
  }
  return best;
}

void setAliased(Vcard& card, std::span<const char* const> names, const std::string& text,
                bool required) {
  const VcardProperty* found = findAny(card, names);
  if (text.empty() && !required) {
    removeAll(card, names);
    return;
  }
  std::string keep = found ? found->name() : names.front();
  if (found) {
    std::vector<const char*> others;
    for (const char* n : names) {
      if (!value::equalsIgnoreCase(n, keep)) others.push_back(n);
    }
    if (!others.empty()) removeAll(card, others);
    setWholeText(*card.find(keep), text);
  } else {
    VcardProperty p(keep, "");
    setWholeText(p, text);
    insertProperty(card, std::move(p));
  }
}

}  // namespace dossync::vdir::card
