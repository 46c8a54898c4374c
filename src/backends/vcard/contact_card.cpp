#include "backends/vcard/contact_card.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "backends/vcard/card_parts.h"
#include "base/error.h"

namespace dossync::vdir {

using namespace card;

ContactCard::ContactCard() {
  card_.properties.reserve(32);  // room for what a contact usually holds, without moving it
  card_.properties.emplace_back("VERSION", "3.0");
  card_.properties.emplace_back("PRODID", "-//dossync//vdir//EN");
  card_.properties.emplace_back("FN", "");
  card_.properties.emplace_back("N", ";;;;");
}

std::string ContactCard::get(CP p) const {
  Field f = fieldOf(p);
  if (f.kind == Kind::Phone || f.kind == Kind::Email) {
    size_t at = cachedSlots(card_, f.kind == Kind::Phone, slots_)[p];
    return at == SlotMap::kNone ? std::string() : wholeText(card_.properties[at]);
  }
  return contactProperty(card_, p);
}

std::string contactProperty(const Vcard& card_, CP p) {
  Field f = fieldOf(p);
  switch (f.kind) {
    case Kind::Text: {
      const VcardProperty* prop = findAny(card_, f.names);
      if (!prop) return std::string();
      return p == CP::FullName ? fullNameOf(card_, *prop) : wholeText(*prop);
    }
    case Kind::Name:
    case Kind::Org:
    case Kind::BusinessAddress:
    case Kind::HomeAddress: {
      auto at = findStructured(card_, f.kind);
      return at ? componentText(card_.properties[*at], f.component) : std::string();
    }
    case Kind::Phone:
    case Kind::Email: {
      size_t at = assignSlots(card_, f.kind == Kind::Phone)[p];
      return at == SlotMap::kNone ? std::string() : wholeText(card_.properties[at]);
    }
    case Kind::Categories:
      return getCategories(card_);
  }
  return {};
}

namespace {
// Whether what the FullName reads may depend on the card's other properties: only an FN
// without the mark that says what it is, and with some text, is judged by them (looksMade).
bool fullNameFollowsOthers(const Vcard& card) {
  const VcardProperty* fn = card.find("FN");
  return fn && !fn->rawValue().empty() && !fn->hasParam(kDerivedParam);
}
}  // namespace

void ContactCard::set(CP p, const std::string& text) {
  if (!weighsOnFullName(p) || (p != CP::FullName && !fullNameFollowsOthers(card_))) {
    setField(p, text);
    return;
  }
  if (get(p) == text) return;  // untouched properties keep their lines as read
  std::string fullName = p == CP::FullName ? text : get(CP::FullName);
  setField(p, text, true);
  keepFullName(card_, fullName);
}

void ContactCard::setField(CP p, const std::string& text, bool differs) {
  Field f = fieldOf(p);
  const bool structured = f.kind == Kind::Name || f.kind == Kind::Org ||
                          f.kind == Kind::BusinessAddress || f.kind == Kind::HomeAddress;
  std::optional<size_t> found;  // a structured field's property, looked for once
  if (structured) found = findStructured(card_, f.kind);
  // Untouched properties keep their lines as read.
  if (structured) {
    if (!differs &&
        (found ? componentText(card_.properties[*found], f.component) : std::string()) == text)
      return;
    edited();
  } else if (f.kind != Kind::Phone && f.kind != Kind::Email) {
    if (!differs && get(p) == text) return;
    edited();
  }
  switch (f.kind) {
    case Kind::Text:
      if (p == CP::FullName) {
        setFullName(card_, text);
      } else {
        setAliased(card_, f.names, text);
      }
      return;
    case Kind::Name:
    case Kind::Org:
    case Kind::BusinessAddress:
    case Kind::HomeAddress: {
      size_t at = found ? *found : makeStructured(card_, f.kind);
      auto& prop = card_.properties[at];
      setComponentText(prop, f.component, text);
      if (f.kind != Kind::Name && allComponentsEmpty(prop))
        eraseUnlessReplaced(card_, at, [&](const Vcard& c) { return findStructured(c, f.kind); });
      return;
    }
    case Kind::Phone:
    case Kind::Email: {
      bool phone = f.kind == Kind::Phone;
      SlotMap filled = cachedSlots(card_, phone, slots_);
      size_t at = filled[p];
      if ((at == SlotMap::kNone ? std::string() : wholeText(card_.properties[at])) == text) return;
      edited();
      tagSecondSlots(card_, phone, filled);
      if (at != SlotMap::kNone) {
        if (text.empty()) {
          bool erased = eraseUnlessReplaced(
              card_, at, [&](const Vcard& c) { return assignSlots(c, phone).contains(p); });
          if (!erased) setWholeText(card_.properties[at], "");
        } else {
          setWholeText(card_.properties[at], text);
        }
      } else {
        VcardProperty prop(phone ? "TEL" : "EMAIL", "");
        prop.setParam("TYPE", slotTypes(p));
        if (isSecondSlot(p)) prop.setParam(kFieldParam, {outlook::propertyName(p)});
        setWholeText(prop, text);
        insertProperty(card_, std::move(prop));
      }
      return;
    }
    case Kind::Categories:
      setCategories(card_, text);
      return;
  }
}

int32_t ContactCard::gender() const {
  const VcardProperty* p = findAny(card_, kGender);
  if (!p) return outlook::olUnspecified;
  std::string v = value::trim(unescapeText(splitRaw(p->rawValue(), ';').front()));
  if (value::equalsIgnoreCase(v, "F") || value::equalsIgnoreCase(v, "Female"))
    return outlook::olFemale;
  if (value::equalsIgnoreCase(v, "M") || value::equalsIgnoreCase(v, "Male")) return outlook::olMale;
  return outlook::olUnspecified;
}

void ContactCard::setGender(int32_t g) {
  if (g != outlook::olUnspecified && g != outlook::olFemale && g != outlook::olMale)
    throw RuntimeError(kInvalidProcedureCall, "Invalid Gender " + std::to_string(g), "vdir");
  if (g == gender()) return;
  edited();
  if (g == outlook::olUnspecified) {
    removeAll(card_, kGender);
    return;
  }
  const VcardProperty* found = findAny(card_, kGender);
  if (found && found->is("GENDER")) {
    // vCard 4: sex letter, then an optional identity component that stays.
    auto raws = splitRaw(found->rawValue(), ';');
    raws.front() = g == outlook::olFemale ? "F" : "M";
    std::string raw = join(raws, ";");
    static constexpr std::array<const char*, 2> kOthers = {"X-GENDER", "X-DOSSYNC-GENDER"};
    removeAll(card_, kOthers);
    card_.find("GENDER")->setRawValue(raw);
    return;
  }
  setAliased(card_, kGender, g == outlook::olFemale ? "Female" : "Male");
}

value::Date ContactCard::birthday() const {
  return getDate(card_, kBirthday);
}
void ContactCard::setBirthday(const value::Date& d) {
  if (d == birthday()) return;
  edited();
  setDate(card_, kBirthday, d, "Birthday");
}
value::Date ContactCard::anniversary() const {
  return getDate(card_, kAnniversary);
}
void ContactCard::setAnniversary(const value::Date& d) {
  if (d == anniversary()) return;
  edited();
  setDate(card_, kAnniversary, d, "Anniversary");
}

std::string ContactCard::uid() const {
  return cardUid(card_);
}

namespace {
constexpr std::array<const char*, 1> kUid = {"UID"};
constexpr std::array<const char*, 2> kKind = {"KIND", "X-ADDRESSBOOKSERVER-KIND"};

bool isAnyOf(std::string_view name, std::span<const char* const> names) {
  return std::any_of(names.begin(), names.end(), [&](const char* n) { return sameName(name, n); });
}

// The properties cardKeys reads, and no others.
bool isKeyProperty(std::string_view name) {
  // FileAs, and what a card without one is filed under (N, ORG, FN).
  return isAnyOf(name, kUid) || isAnyOf(name, kKind) || isAnyOf(name, fieldOf(CP::FileAs).names) ||
         sameName(name, "N") || sameName(name, "ORG") || sameName(name, "FN");
}
}  // namespace

std::string filedAs(const Vcard& card) {
  std::string fileAs = contactProperty(card, CP::FileAs);
  if (!fileAs.empty()) return fileAs;
  std::string last = contactProperty(card, CP::LastName);
  std::string first = contactProperty(card, CP::FirstName);
  if (!last.empty() && !first.empty()) return last + ", " + first;
  if (!last.empty() || !first.empty()) return last + first;
  std::string company = contactProperty(card, CP::CompanyName);
  return company.empty() ? contactProperty(card, CP::FullName) : company;
}

std::string cardUid(const Vcard& card) {
  const VcardProperty* p = findAny(card, kUid);
  return p ? unescapeText(p->rawValue()) : std::string();
}

void ContactCard::setUid(const std::string& uid) {
  edited();
  setAliased(card_, kUid, uid);
}

bool isGroupCard(const Vcard& card) {
  for (const auto& p : card.properties) {
    if (isAnyOf(p.name(), kKind) && value::equalsIgnoreCase(value::trimmed(p.rawValue()), "group"))
      return true;
  }
  return false;
}

CardKeys cardKeys(const Vcard& card) {
  CardKeys keys;
  keys.uid = cardUid(card);
  keys.group = isGroupCard(card);
  if (!keys.group) keys.fileAs = filedAs(card);
  return keys;
}

CardKeys readCardKeys(std::string_view text) {
  return cardKeys(parseVcard(text, isKeyProperty));
}

}  // namespace dossync::vdir
