#include "backends/vcard/contact_card.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "base/error.h"

namespace dossync::vdir {
namespace {

using CP = outlook::ContactProperty;

constexpr const char* kEolParam = "X-DOSSYNC-EOL";
constexpr const char* kFieldParam = "X-DOSSYNC-FIELD";
// On FN: TRUE, the name was made here for address books (completeName), the contact has no
// FullName; FALSE, a FullName that would otherwise read as made (looksMade below).
constexpr const char* kDerivedParam = "X-DOSSYNC-DERIVED";
// Apple's (and khard's) mark of a card that shows as the company it names.
constexpr std::array<const char*, 1> kShowAs = {"X-ABShowAs"};

// ---- Text with its line-break mode --------------------------------------------------------

bool hasCr(std::string_view t) {
  return t.find('\r') != std::string_view::npos;
}

// Every CR starts a CRLF and every LF ends one.
bool crlfOnly(std::string_view t) {
  for (size_t i = 0; i < t.size(); ++i) {
    if (t[i] == '\r' && (i + 1 == t.size() || t[i + 1] != '\n')) return false;
    if (t[i] == '\n' && (i == 0 || t[i - 1] != '\r')) return false;
  }
  return true;
}

std::string replaceAll(std::string_view t, std::string_view from, std::string_view to) {
  std::string out;
  size_t pos = 0;
  for (size_t hit; (hit = t.find(from, pos)) != std::string_view::npos; pos = hit + from.size()) {
    out.append(t.substr(pos, hit - pos));
    out.append(to);
  }
  out.append(t.substr(pos));
  return out;
}

bool isCrlfMode(const VcardProperty& p) {
  for (const auto& param : p.params()) {
    if (!sameName(param.name, kEolParam)) continue;
    for (const auto& v : param.values) {
      if (value::equalsIgnoreCase(v, "CRLF")) return true;
    }
  }
  return false;
}

std::string decodeText(std::string_view raw, bool crlf) {
  std::string t = unescapeText(raw);
  return crlf ? replaceAll(t, "\n", "\r\n") : t;
}

std::string encodeText(std::string_view text, bool crlf) {
  return escapeText(crlf ? replaceAll(text, "\r\n", "\n") : std::string(text));
}

// CRLF mode when every break of every text is CRLF and there is one (or the mode was on).
bool chooseCrlf(const std::vector<std::string>& texts, bool current) {
  bool anyCr = false;
  for (const auto& t : texts) {
    if (!crlfOnly(t)) return false;
    anyCr = anyCr || hasCr(t);
  }
  return anyCr || current;
}

void setEolParam(VcardProperty& p, bool crlf) {
  if (crlf) {
    if (!isCrlfMode(p)) p.setParam(kEolParam, {"CRLF"});
  } else if (p.hasParam(kEolParam)) {
    p.removeParam(kEolParam);
  }
}

std::string join(const std::vector<std::string>& parts, std::string_view sep) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += sep;
    out += parts[i];
  }
  return out;
}

std::string wholeText(const VcardProperty& p) {
  return decodeText(p.rawValue(), isCrlfMode(p));
}

bool hasBreak(std::string_view t) {
  return t.find_first_of("\r\n") != std::string_view::npos;
}

void setWholeText(VcardProperty& p, const std::string& text) {
  bool current = isCrlfMode(p);
  bool crlf = hasBreak(text) ? chooseCrlf({text}, current) : current;
  p.setRawValue(encodeText(text, crlf));
  setEolParam(p, crlf);
}

std::string componentText(const VcardProperty& p, size_t k) {
  std::string_view raw = rawPart(p.rawValue(), ';', k);
  return raw.empty() ? std::string() : decodeText(raw, isCrlfMode(p));
}

bool allComponentsEmpty(const VcardProperty& p) {
  bool empty = true;
  forEachRawPart(p.rawValue(), ';', [&](std::string_view part) {
    empty = part.empty();
    return empty;
  });
  return empty;
}

// A raw text ending in an unpaired backslash (which reads as a backslash) would escape the
// separator written after it.
bool endsWithLoneBackslash(std::string_view raw) {
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] == '\\' && ++i == raw.size()) return true;
  }
  return false;
}

// Component k becomes `text`; the other components keep their raw text unless the line-break
// mode of the property has to change.
void setComponentText(VcardProperty& p, size_t k, const std::string& text) {
  // N and ADR are written with all their components, as readers expect.
  size_t least = std::max(p.is("N") ? size_t{5} : p.is("ADR") ? size_t{7} : 0, k + 1);
  bool crlf = isCrlfMode(p);
  const std::string& old = p.rawValue();
  // Without a break in the new text or an escape in the others, the mode cannot change: the
  // component is replaced where it stands (no escapes, so every ';' separates).
  if (!hasBreak(text) && old.find('\\') == std::string::npos) {
    size_t count = static_cast<size_t>(std::count(old.begin(), old.end(), ';')) + 1;
    std::string raw = old;
    if (count < least) raw.append(least - count, ';');
    size_t begin = 0;
    for (size_t i = 0; i < k; ++i) begin = raw.find(';', begin) + 1;
    size_t end = std::min(raw.find(';', begin), raw.size());
    raw.replace(begin, end - begin, encodeText(text, crlf));
    p.setRawValue(std::move(raw));
    setEolParam(p, crlf);
    return;
  }
  auto raws = splitRaw(old, ';');
  if (raws.size() < least) raws.resize(least);
  for (auto& r : raws) {
    if (endsWithLoneBackslash(r)) r += '\\';
  }
  std::vector<std::string> texts;
  for (const auto& r : raws) texts.push_back(decodeText(r, crlf));
  texts[k] = text;
  bool want = chooseCrlf(texts, crlf);
  if (want == crlf) {
    raws[k] = encodeText(text, crlf);
  } else {
    for (size_t i = 0; i < raws.size(); ++i) raws[i] = encodeText(texts[i], want);
  }
  p.setRawValue(join(raws, ";"));
  setEolParam(p, want);
}

// ---- Where properties go ------------------------------------------------------------------

constexpr std::array<CP, 7> kPhoneSlots = {
    CP::BusinessTelephoneNumber, CP::Business2TelephoneNumber, CP::BusinessFaxNumber,
    CP::HomeTelephoneNumber,     CP::Home2TelephoneNumber,     CP::HomeFaxNumber,
    CP::MobileTelephoneNumber};
constexpr std::array<CP, 3> kEmailSlots = {CP::Email1Address, CP::Email2Address, CP::Email3Address};

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

// Which property fills each telephone or e-mail slot (by the slot's place in its list).
class SlotMap {
 public:
  static constexpr size_t kNone = static_cast<size_t>(-1);
  explicit SlotMap(std::span<const CP> slots) : slots_(slots) { at_.fill(kNone); }
  SlotMap(std::span<const CP> slots, const std::array<size_t, kPhoneSlots.size()>& at)
      : slots_(slots), at_(at) {}
  const std::array<size_t, kPhoneSlots.size()>& positions() const { return at_; }
  bool contains(CP slot) const { return (*this)[slot] != kNone; }
  size_t operator[](CP slot) const {
    for (size_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i] == slot) return at_[i];
    }
    return kNone;
  }
  bool claim(CP slot, size_t index) {
    for (size_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i] != slot) continue;
      if (at_[i] != kNone) return false;
      at_[i] = index;
      return true;
    }
    return false;
  }
  template <class F>
  void forEach(F f) const {
    for (size_t i = 0; i < slots_.size(); ++i) {
      if (at_[i] != kNone) f(slots_[i], at_[i]);
    }
  }

 private:
  std::span<const CP> slots_;
  std::array<size_t, kPhoneSlots.size()> at_;
};

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

std::optional<int> computeRank(const VcardProperty& p) {
  for (size_t i = 0; i < kOrder.size(); ++i) {
    if (!p.is(kOrder[i])) continue;
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

void removeAll(Vcard& card, std::span<const char* const> names) {
  std::erase_if(card.properties, [&](const VcardProperty& p) {
    return std::any_of(names.begin(), names.end(), [&](const char* n) { return p.is(n); });
  });
}

// The first property with one of these names, the earlier names first.
const VcardProperty* findAny(const Vcard& card, std::span<const char* const> names) {
  for (const char* n : names) {
    if (auto* p = card.find(n)) return p;
  }
  return nullptr;
}

// Sets a one-value property known by several names: the first one present is updated, the
// others removed, and "" removes them all (or empties the first when the property is required).
void setAliased(Vcard& card, std::span<const char* const> names, const std::string& text,
                bool required = false) {
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
    removeAll(card, others);
    setWholeText(*card.find(keep), text);
  } else {
    VcardProperty p(keep, "");
    setWholeText(p, text);
    insertProperty(card, std::move(p));
  }
}

// Erases property `index` unless another property would then answer for the same field (say a
// third WORK telephone, or a second ORG): the emptied property then stays, so the field reads "".
template <class Filled>
bool eraseUnlessReplaced(Vcard& card, size_t index, Filled filled) {
  Vcard trial = card;
  trial.properties.erase(trial.properties.begin() + static_cast<std::ptrdiff_t>(index));
  if (filled(trial)) return false;
  card = std::move(trial);
  return true;
}

// ---- Field table --------------------------------------------------------------------------

enum class Kind { Text, Name, Org, BusinessAddress, HomeAddress, Phone, Email, Categories };

struct Field {
  Kind kind;
  size_t component = 0;                     // Name, Org, addresses
  std::span<const char* const> names = {};  // Text: the property's names, the one written first
};

constexpr std::array<const char*, 1> kFn = {"FN"};
constexpr std::array<const char*, 2> kFileAs = {"X-DOSSYNC-FILEAS", "X-EVOLUTION-FILE-AS"};
constexpr std::array<const char*, 1> kTitle = {"TITLE"};
constexpr std::array<const char*, 1> kOffice = {"X-DOSSYNC-OFFICE"};
constexpr std::array<const char*, 1> kUrl = {"URL"};
constexpr std::array<const char*, 3> kSpouse = {"X-SPOUSE", "X-EVOLUTION-SPOUSE",
                                                "X-DOSSYNC-SPOUSE"};
constexpr std::array<const char*, 1> kChildren = {"X-DOSSYNC-CHILDREN"};
constexpr std::array<const char*, 1> kNote = {"NOTE"};

Field fieldOf(CP p) {
  switch (p) {
    case CP::LastName:
      return {Kind::Name, 0};
    case CP::FirstName:
      return {Kind::Name, 1};
    case CP::MiddleName:
      return {Kind::Name, 2};
    case CP::Title:
      return {Kind::Name, 3};
    case CP::Suffix:
      return {Kind::Name, 4};
    case CP::FullName:
      return {Kind::Text, 0, kFn};
    case CP::FileAs:
      return {Kind::Text, 0, kFileAs};
    case CP::CompanyName:
      return {Kind::Org, 0};
    case CP::Department:
      return {Kind::Org, 1};
    case CP::JobTitle:
      return {Kind::Text, 0, kTitle};
    case CP::OfficeLocation:
      return {Kind::Text, 0, kOffice};
    case CP::Categories:
      return {Kind::Categories};
    case CP::Email1Address:
    case CP::Email2Address:
    case CP::Email3Address:
      return {Kind::Email};
    case CP::BusinessTelephoneNumber:
    case CP::Business2TelephoneNumber:
    case CP::BusinessFaxNumber:
    case CP::HomeTelephoneNumber:
    case CP::Home2TelephoneNumber:
    case CP::HomeFaxNumber:
    case CP::MobileTelephoneNumber:
      return {Kind::Phone};
    case CP::BusinessAddressStreet:
      return {Kind::BusinessAddress, 2};
    case CP::BusinessAddressCity:
      return {Kind::BusinessAddress, 3};
    case CP::BusinessAddressState:
      return {Kind::BusinessAddress, 4};
    case CP::BusinessAddressPostalCode:
      return {Kind::BusinessAddress, 5};
    case CP::BusinessAddressCountry:
      return {Kind::BusinessAddress, 6};
    case CP::HomeAddressStreet:
      return {Kind::HomeAddress, 2};
    case CP::HomeAddressCity:
      return {Kind::HomeAddress, 3};
    case CP::HomeAddressState:
      return {Kind::HomeAddress, 4};
    case CP::HomeAddressPostalCode:
      return {Kind::HomeAddress, 5};
    case CP::HomeAddressCountry:
      return {Kind::HomeAddress, 6};
    case CP::WebPage:
      return {Kind::Text, 0, kUrl};
    case CP::Spouse:
      return {Kind::Text, 0, kSpouse};
    case CP::Children:
      return {Kind::Text, 0, kChildren};
    case CP::Body:
      return {Kind::Text, 0, kNote};
  }
  throw RuntimeError(kInvalidProcedureCall, "Unknown contact property", "vdir");
}

// The ADR for business (first with TYPE=WORK) or home (first other with TYPE=HOME).
std::optional<size_t> addressIndex(const Vcard& card, bool business) {
  std::optional<size_t> work;
  for (size_t i = 0; i < card.properties.size() && !work; ++i) {
    if (card.properties[i].is("ADR") && card.properties[i].hasType("WORK")) work = i;
  }
  if (business) return work;
  for (size_t i = 0; i < card.properties.size(); ++i) {
    if (card.properties[i].is("ADR") && card.properties[i].hasType("HOME") && work != i) return i;
  }
  return std::nullopt;
}

std::optional<size_t> indexOf(const Vcard& card, const char* name) {
  for (size_t i = 0; i < card.properties.size(); ++i) {
    if (card.properties[i].is(name)) return i;
  }
  return std::nullopt;
}

// The property holding a structured field, if any.
std::optional<size_t> findStructured(const Vcard& card, Kind kind) {
  switch (kind) {
    case Kind::Name:
      return indexOf(card, "N");
    case Kind::Org:
      return indexOf(card, "ORG");
    default:
      return addressIndex(card, kind == Kind::BusinessAddress);
  }
}

size_t makeStructured(Vcard& card, Kind kind) {
  VcardProperty p(kind == Kind::Name ? "N" : kind == Kind::Org ? "ORG" : "ADR", "");
  if (kind == Kind::BusinessAddress) p.setParam("TYPE", {"WORK"});
  if (kind == Kind::HomeAddress) p.setParam("TYPE", {"HOME"});
  const VcardProperty* made = &insertProperty(card, std::move(p));
  return static_cast<size_t>(made - card.properties.data());
}

// ---- Categories ---------------------------------------------------------------------------
// CATEGORIES holds the list; Outlook's one text ("Business, VIP") is the list joined by ", ".
// When the text is not that join of its own items, X-DOSSYNC-CATEGORIES keeps it exactly; it is
// believed only while CATEGORIES still lists the same items.

std::vector<std::string> categoryItems(std::string_view text) {
  std::vector<std::string> items;
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    if (comma == std::string_view::npos) comma = text.size();
    std::string item = value::trim(text.substr(start, comma - start));
    if (!item.empty()) items.push_back(std::move(item));
    start = comma + 1;
  }
  return items;
}

std::string getCategories(const Vcard& card) {
  std::vector<std::string> listed;
  if (const auto* p = card.find("CATEGORIES")) {
    for (const auto& part : splitRaw(p->rawValue(), ',')) {
      std::string item = value::trim(decodeText(part, isCrlfMode(*p)));
      if (!item.empty()) listed.push_back(std::move(item));
    }
  }
  if (const auto* exact = card.find("X-DOSSYNC-CATEGORIES")) {
    std::string text = wholeText(*exact);
    if (categoryItems(text) == listed) return text;
  }
  return join(listed, ", ");
}

void setCategories(Vcard& card, const std::string& text) {
  static constexpr std::array<const char*, 1> kList = {"CATEGORIES"};
  static constexpr std::array<const char*, 1> kExact = {"X-DOSSYNC-CATEGORIES"};
  auto items = categoryItems(text);
  if (items.empty()) {
    removeAll(card, kList);
  } else {
    std::vector<std::string> raws;
    for (const auto& item : items) raws.push_back(escapeText(item));
    VcardProperty* p = card.find("CATEGORIES");
    if (!p) p = &insertProperty(card, VcardProperty("CATEGORIES", ""));
    p->setRawValue(join(raws, ","));
    setEolParam(*p, false);
  }
  setAliased(card, kExact, join(items, ", ") == text ? std::string() : text);
}

// ---- Dates --------------------------------------------------------------------------------

bool isNoDate(const value::Date& d) {
  return d == outlook::kNoDate || (d.year == 0 && d.month == 0 && d.day == 0);
}

bool validDate(const value::Date& d) {
  return d.year >= 1 && d.year <= 9999 && d.month >= 1 && d.month <= 12 && d.day >= 1 &&
         d.day <= value::daysInMonth(d.year, d.month) && d.hour >= 0 && d.hour < 24 &&
         d.minute >= 0 && d.minute < 60 && d.second >= 0 && d.second < 60;
}

// yyyy-mm-dd or yyyymmdd, optionally followed by Thh:mm[:ss] or Thhmm[ss] and a zone (ignored).
std::optional<value::Date> parseVcardDate(std::string_view s) {
  size_t i = 0;
  auto digits = [&](size_t n, int& out) {
    if (i + n > s.size()) return false;
    out = 0;
    for (size_t k = 0; k < n; ++k) {
      char c = s[i + k];
      if (c < '0' || c > '9') return false;
      out = out * 10 + (c - '0');
    }
    i += n;
    return true;
  };
  auto sep = [&](char c) {
    if (i < s.size() && s[i] == c) ++i;
  };
  value::Date d;
  if (!digits(4, d.year)) return std::nullopt;
  sep('-');
  if (!digits(2, d.month)) return std::nullopt;
  sep('-');
  if (!digits(2, d.day)) return std::nullopt;
  if (i < s.size() && (s[i] == 'T' || s[i] == 't')) {
    ++i;
    if (!digits(2, d.hour)) return std::nullopt;
    sep(':');
    if (!digits(2, d.minute)) return std::nullopt;
    sep(':');
    if (i < s.size() && s[i] >= '0' && s[i] <= '9' && !digits(2, d.second)) return std::nullopt;
    if (i < s.size() && s[i] == '.') {  // fractions of a second
      ++i;
      while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
    }
    if (i < s.size() && (s[i] == 'Z' || s[i] == 'z' || s[i] == '+' || s[i] == '-')) i = s.size();
  }
  if (i != s.size() || !validDate(d)) return std::nullopt;
  return d;
}

// ISO 8601: the default text form with a T between date and time.
std::string formatVcardDate(const value::Date& d) {
  std::string text = value::toText(d);
  if (d.hasTime()) text[10] = 'T';
  return text;
}

value::Date getDate(const Vcard& card, std::span<const char* const> names) {
  const VcardProperty* p = findAny(card, names);
  if (!p) return outlook::kNoDate;
  return parseVcardDate(value::trim(unescapeText(p->rawValue()))).value_or(outlook::kNoDate);
}

void setDate(Vcard& card, std::span<const char* const> names, const value::Date& d,
             const char* what) {
  if (isNoDate(d)) {
    removeAll(card, names);
    return;
  }
  if (!validDate(d))
    throw RuntimeError(kInvalidProcedureCall,
                       std::string("Invalid date for ") + what + ": " + value::toText(d), "vdir");
  setAliased(card, names, formatVcardDate(d));
  auto* p = const_cast<VcardProperty*>(findAny(card, names));
  if (p->hasParam("VALUE")) p->removeParam("VALUE");  // a date-time may replace a date
}

constexpr std::array<const char*, 1> kBirthday = {"BDAY"};
constexpr std::array<const char*, 3> kAnniversary = {"X-ANNIVERSARY", "ANNIVERSARY",
                                                     "X-EVOLUTION-ANNIVERSARY"};
constexpr std::array<const char*, 3> kGender = {"X-GENDER", "X-DOSSYNC-GENDER", "GENDER"};

// ---- The name address books show ----------------------------------------------------------
// Address books list a card by its FN, and strict readers refuse an empty one; Outlook's
// FullName of a company is empty. So a card without a FullName gets an FN made from what the
// contact is filed under, marked kDerivedParam so that it still reads as no FullName.

// The FN's mark (kDerivedParam): nullopt when it has none (another program's FN, or ours after
// a program that drops unknown parameters rewrote it, as khard does).
std::optional<bool> derivedMark(const VcardProperty& fn) {
  if (!fn.hasParam(kDerivedParam)) return std::nullopt;
  const std::string* v = fn.paramValue(kDerivedParam);
  return !(v && value::equalsIgnoreCase(value::trimmed(*v), "FALSE"));
}

// A FullName set here, or another program's FN.
bool hasRealName(const Vcard& card) {
  return !contactProperty(card, CP::FullName).empty();
}

void setFullName(Vcard& card, const std::string& text) {
  bool named = hasRealName(card);
  setAliased(card, kFn, text, true);
  if (text.empty()) return;  // completeName makes one again
  if (VcardProperty* fn = card.find("FN"); fn->hasParam(kDerivedParam))
    fn->removeParam(kDerivedParam);
  // Named now, the contact is a person: it no longer shows as its company. A card named before
  // keeps whatever its program chose.
  if (!named) removeAll(card, kShowAs);
}

// One line of display text: line breaks become blanks, blanks at either end go.
std::string displayText(const std::string& text) {
  std::string out;
  for (char c : text) {
    bool lineBreak = c == '\r' || c == '\n';
    if (lineBreak && !out.empty() && out.back() == ' ') continue;
    out += lineBreak ? ' ' : c;
  }
  return value::trim(out);
}

std::string derivedName(const Vcard& card) {
  for (CP p : {CP::FileAs, CP::CompanyName}) {
    if (std::string t = displayText(contactProperty(card, p)); !t.empty()) return t;
  }
  std::vector<std::string> parts;
  for (CP p : {CP::Title, CP::FirstName, CP::MiddleName, CP::LastName, CP::Suffix}) {
    if (std::string t = displayText(contactProperty(card, p)); !t.empty())
      parts.push_back(std::move(t));
  }
  if (!parts.empty()) return join(parts, " ");
  for (CP p : kEmailSlots) {
    if (std::string t = displayText(contactProperty(card, p)); !t.empty()) return t;
  }
  return "(no name)";
}

bool hasPersonName(const Vcard& card) {
  for (CP p : {CP::FirstName, CP::MiddleName, CP::LastName}) {
    if (!displayText(contactProperty(card, p)).empty()) return true;
  }
  return false;
}

// An unmarked FN that names what a company card is filed under, on a card without a person's
// name, reads as no FullName: it is a company card whose marks another program dropped (khard
// rewrites FN without unknown parameters and drops X-ABShowAs on every edit), or another
// program's company card (khard, Evolution and Apple name one by its organisation, khard as the
// ORG components joined by ", "). Outlook's company contacts have no FullName.
bool looksMade(const Vcard& card, const std::string& fnText) {
  std::string shown = displayText(fnText);
  if (shown.empty()) return false;
  std::string company = displayText(contactProperty(card, CP::CompanyName));
  if (company.empty() || hasPersonName(card)) return false;
  if (shown == company || shown == displayText(contactProperty(card, CP::FileAs))) return true;
  std::string department = displayText(contactProperty(card, CP::Department));
  return !department.empty() && shown == company + ", " + department;
}

std::string fullNameOf(const Vcard& card, const VcardProperty& fn) {
  auto mark = derivedMark(fn);
  if (mark && *mark) return std::string();
  std::string text = wholeText(fn);
  return !mark && looksMade(card, text) ? std::string() : text;
}

// The properties whose edit may turn an unmarked FN into one that looks made, or back.
bool weighsOnFullName(CP p) {
  return p == CP::FullName || p == CP::FileAs || p == CP::CompanyName || p == CP::Department ||
         p == CP::FirstName || p == CP::MiddleName || p == CP::LastName;
}

// After such an edit: the FullName still reads `expected`, the FN marked when it must be.
void keepFullName(Vcard& card, const std::string& expected) {
  if (contactProperty(card, CP::FullName) == expected) return;
  if (VcardProperty* fn = card.find("FN"))
    fn->setParam(kDerivedParam, {expected.empty() ? "TRUE" : "FALSE"});
}

}  // namespace

void ContactCard::completeName() {
  if (hasRealName(card_)) return;
  edited();
  std::string shown = derivedName(card_);
  VcardProperty* fn = card_.find("FN");
  if (!fn) fn = &insertProperty(card_, VcardProperty("FN", ""));
  if (wholeText(*fn) != shown) setWholeText(*fn, shown);
  if (derivedMark(*fn) != true) fn->setParam(kDerivedParam, {"TRUE"});

  bool company = !hasPersonName(card_) && !displayText(get(CP::CompanyName)).empty();
  VcardProperty* showAs = card_.find(kShowAs[0]);
  if (!company) {
    if (showAs) removeAll(card_, kShowAs);
  } else if (!showAs) {
    insertProperty(card_, VcardProperty(kShowAs[0], "COMPANY"));
  } else if (!value::equalsIgnoreCase(value::trimmed(showAs->rawValue()), "COMPANY")) {
    showAs->setRawValue("COMPANY");
  }
}

ContactCard::ContactCard() {
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

void ContactCard::set(CP p, const std::string& text) {
  if (!weighsOnFullName(p)) {
    setField(p, text);
    return;
  }
  if (get(p) == text) return;  // untouched properties keep their lines as read
  std::string fullName = p == CP::FullName ? text : get(CP::FullName);
  setField(p, text);
  keepFullName(card_, fullName);
}

void ContactCard::setField(CP p, const std::string& text) {
  Field f = fieldOf(p);
  // Untouched properties keep their lines as read.
  if (f.kind != Kind::Phone && f.kind != Kind::Email) {
    if (get(p) == text) return;
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
      size_t at = findStructured(card_, f.kind).value_or(card_.properties.size());
      if (at == card_.properties.size()) at = makeStructured(card_, f.kind);
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
