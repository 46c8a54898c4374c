#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "backends/vcard/card_parts.h"
#include "base/error.h"

namespace dossync::vdir::card {

// ---- Field table --------------------------------------------------------------------------

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
  constexpr uint16_t kAdr = nameKey("ADR");
  auto isAdr = [&](const VcardProperty& p) { return sameName(p.name(), p.nameKey(), "ADR", kAdr); };
  std::optional<size_t> work;
  for (size_t i = 0; i < card.properties.size() && !work; ++i) {
    if (isAdr(card.properties[i]) && card.properties[i].typeMask() & kTypeWork) work = i;
  }
  if (business) return work;
  for (size_t i = 0; i < card.properties.size(); ++i) {
    if (isAdr(card.properties[i]) && card.properties[i].typeMask() & kTypeHome && work != i)
      return i;
  }
  return std::nullopt;
}

std::optional<size_t> indexOf(const Vcard& card, std::string_view name) {
  uint16_t key = nameKey(name);
  for (size_t i = 0; i < card.properties.size(); ++i) {
    const VcardProperty& p = card.properties[i];
    if (sameName(p.name(), p.nameKey(), name, key)) return i;
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

}  // namespace dossync::vdir::card
