// vCard 3.0 (RFC 2426, RFC 2425 directory syntax) read and written by hand.
//
// A card is a list of properties, each `[group.]NAME[;PARAM=v1,v2...]:value`, between
// BEGIN:VCARD and END:VCARD. What this layer guarantees:
//   - lines are unfolded on reading (CRLF or LF, then one blank or tab) and folded on writing
//     at 75 octets without splitting a UTF-8 sequence; lines end in CRLF;
//   - names, groups and parameter names are kept as written and compared without regard to case;
//   - parameters keep their order; `TYPE=WORK,VOICE`, `TYPE=work;TYPE=voice`, bare vCard 2.1
//     types (`TEL;WORK:`) and quoted values (`TYPE="a,b"`, `X-A="x;y:z"`) are all understood;
//   - the value is kept raw (escaped as in the file); escapeText/unescapeText and splitRaw turn
//     it into text;
//   - a property read from a file and never edited is written back byte for byte as it was read
//     (after unfolding), so properties this program does not know (X-..., PHOTO, groups of other
//     programs) survive an update of the card.
// Malformed input throws RuntimeError naming the line at fault.
// A reader that needs a few properties only (the folder's index) names them with a
// PropertyFilter: every line is still checked, the others are just not kept.
// Pure functions and plain values; safe on any thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace dossync::vdir {

// The common TYPE values as bits of VcardProperty::typeMask.
// clang-format off
enum : uint32_t {
  kTypeWork = 1u << 0, kTypeHome = 1u << 1, kTypeCell = 1u << 2, kTypeFax = 1u << 3,
  kTypeVoice = 1u << 4, kTypePager = 1u << 5, kTypeCar = 1u << 6, kTypeVideo = 1u << 7,
  kTypeModem = 1u << 8, kTypeIsdn = 1u << 9, kTypeBbs = 1u << 10, kTypeTextphone = 1u << 11,
  kTypeInternet = 1u << 12, kTypePref = 1u << 13
};
// clang-format on

// Names of properties and parameters (and TYPE values) compare by the one text rule,
// value::equalsIgnoreCase. Most pairs differ in their first or last character; when those are
// ASCII, that alone tells them apart (in UTF-8 an ASCII byte is always a character of its own),
// and a name is most often found written as asked: both spare the whole comparison where a card
// is searched by name many times over.
inline bool sameName(std::string_view a, std::string_view b) {
  if (a == b) return true;
  auto differ = [](char x, char y) {
    auto ux = static_cast<unsigned char>(x), uy = static_cast<unsigned char>(y);
    if (ux >= 0x80 || uy >= 0x80) return false;
    return (ux >= 'a' && ux <= 'z' ? ux - 32 : ux) != (uy >= 'a' && uy <= 'z' ? uy - 32 : uy);
  };
  if (!a.empty() && !b.empty() && (differ(a.front(), b.front()) || differ(a.back(), b.back())))
    return false;
  return value::equalsIgnoreCase(a, b);
}

// What tells most names apart at a glance: the first and last character, upper-cased, when
// both are ASCII (0 when they are not, or the name is empty: then it tells nothing). A property
// keeps its name's key, so a card searched by name compares two numbers per property.
constexpr uint16_t nameKey(std::string_view name) {
  if (name.empty()) return 0;
  auto upper = [](unsigned char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; };
  auto f = static_cast<unsigned char>(name.front()), b = static_cast<unsigned char>(name.back());
  if (f >= 0x80 || b >= 0x80) return 0;
  return static_cast<uint16_t>(upper(f) << 8 | upper(b));
}

// sameName with both keys at hand.
inline bool sameName(std::string_view a, uint16_t keyA, std::string_view b, uint16_t keyB) {
  if (keyA != keyB && keyA != 0 && keyB != 0) return false;
  return a == b || value::equalsIgnoreCase(a, b);
}

struct VcardParam {
  std::string name;                 // as written; "" for a bare vCard 2.1 type such as WORK
  std::vector<std::string> values;  // without quotes
  bool operator==(const VcardParam&) const = default;
};

class VcardProperty {
 public:
  VcardProperty() = default;
  VcardProperty(std::string name, std::string rawValue)
      : name_(std::move(name)), value_(std::move(rawValue)), nameKey_(vdir::nameKey(name_)) {}

  const std::string& group() const { return group_; }
  const std::string& name() const { return name_; }
  const std::vector<VcardParam>& params() const { return params_; }
  const std::string& rawValue() const { return value_; }
  // Whether the property has that name, whatever the case.
  bool is(std::string_view name) const {
    return sameName(name_, nameKey_, name, vdir::nameKey(name));
  }
  uint16_t nameKey() const { return nameKey_; }

  // The values of every parameter of that name (case-insensitive), in order.
  std::vector<std::string> paramValues(std::string_view name) const;
  // The first value of the first parameter of that name, or nullptr.
  const std::string* paramValue(std::string_view name) const;
  bool hasParam(std::string_view name) const;
  // Whether TYPE (in any of its spellings, including bare 2.1 types) lists `type`.
  bool hasType(std::string_view type) const;
  // The common types it lists, as bits (kTypeWork | ...), found once per parameter edit.
  uint32_t typeMask() const;

  // A number the caller keeps with the property while its name and parameters stay unchanged
  // (the contact card keeps its sort rank there); an edit of either forgets it, one of the
  // value does not.
  std::optional<int> memo() const { return memo_; }
  void setMemo(int memo) const { memo_ = memo; }

  // Editing forgets the line as read: the property is then written from its parts.
  void setGroup(std::string group);
  void setRawValue(std::string raw);
  void setParam(const std::string& name, std::vector<std::string> values);  // replaces
  void removeParam(std::string_view name);

  // The unfolded line as read; empty for a property made or edited here.
  const std::string& sourceLine() const { return source_; }
  // The unfolded line to write: the source line when there is one, else built from the parts.
  std::string line() const;
  void appendLine(std::string& out) const;  // line(), appended to `out`
  // Forgets the source line (the fuzzer uses it to exercise the writer on every property).
  void forgetSourceLine() { source_.clear(); }

  // Same group, name, parameters and value (the source line is not compared).
  bool sameContent(const VcardProperty& other) const;

 private:
  friend struct PropertyLineReader;
  std::string group_;
  std::string name_;
  std::vector<VcardParam> params_;
  std::string value_;
  std::string source_;
  uint16_t nameKey_ = 0;  // nameKey(name_)
  // The common TYPE values, found once per parameter edit (hasType is asked often).
  mutable uint32_t typeMask_ = 0;
  mutable bool typesKnown_ = false;
  mutable std::optional<int> memo_;
};

struct Vcard {
  std::vector<VcardProperty> properties;

  // The first property of that name, or nullptr.
  const VcardProperty* find(std::string_view name) const;
  VcardProperty* find(std::string_view name);
};

// Which properties a reader keeps, by name (as written); nullptr keeps them all.
using PropertyFilter = bool (*)(std::string_view name);

// One card. Throws RuntimeError on a missing BEGIN/END, a line without ':', a bad name or
// parameter, or anything but blank lines after END:VCARD (a second card).
// With `keep`, the card holds only the properties it accepts, in their order; the text is
// checked all the same, so it throws exactly where parseVcard(text) throws.
Vcard parseVcard(std::string_view text, PropertyFilter keep = nullptr);
std::string writeVcard(const Vcard& card);

// Card files are UTF-8. What another program wrote may not be: readableText answers the text
// with every byte that is not part of a valid UTF-8 sequence (overlong forms, surrogates and
// code points past U+10FFFF included), and every NUL, turned into U+FFFD, and tells in *changed
// whether it had to. Valid text comes back as it is, lines folded inside a character included.
std::string readableText(std::string_view text, bool* changed = nullptr);

// One property line (unfolded, without line end), for tests and the parser.
VcardProperty parsePropertyLine(std::string_view line, size_t lineNumber = 0);
// The line folded at 75 octets, each physical line ending in CRLF.
std::string foldLine(std::string_view line);

// Text escaping: backslash, comma, semicolon and line feed as \\ \, \; \n; a carriage return
// as \r, so a file never holds a bare CR (callers wanting CRLF breaks written as plain \n turn
// them into LF first and mark the property, see contact_card.h).
std::string escapeText(std::string_view text);
// The reverse; also reads \N and \: as other programs write them. Unknown escapes are kept.
std::string unescapeText(std::string_view raw);
// Splits a raw value at every `sep` that is not escaped; the parts stay raw.
std::vector<std::string> splitRaw(std::string_view raw, char sep);
// The same parts handed to `f` one by one as views into `raw`, until f answers false.
template <class F>
void forEachRawPart(std::string_view raw, char sep, F&& f) {
  size_t start = 0;
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] == '\\') {
      ++i;  // the escaped character, whatever it is
    } else if (raw[i] == sep) {
      if (!f(raw.substr(start, i - start))) return;
      start = i + 1;
    }
  }
  f(raw.substr(std::min(start, raw.size())));
}
// Part k of the raw value (empty when there are fewer parts).
std::string_view rawPart(std::string_view raw, char sep, size_t k);

}  // namespace dossync::vdir
