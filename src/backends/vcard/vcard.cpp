#include "backends/vcard/vcard.h"

#include <algorithm>
#include <utility>

#include "base/error.h"
#include "base/value.h"

namespace dossync::vdir {
namespace {

constexpr size_t kFoldOctets = 75;

// ASCII letters and digits whatever the locale, '-' and '_'.
bool isNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

bool isUtf8Continuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

RuntimeError syntaxError(size_t lineNumber, const std::string& what) {
  std::string where = lineNumber > 0 ? "line " + std::to_string(lineNumber) + ": " : "";
  return RuntimeError(kOutlookOperationFailed, "Malformed vCard: " + where + what, "vdir");
}

std::string_view takeName(std::string_view line, size_t& i) {
  size_t begin = i;
  while (i < line.size() && isNameChar(line[i])) ++i;
  return line.substr(begin, i - begin);
}

// A parameter value as written: quoted when it holds a delimiter, which a quoted value cannot
// itself contain a double quote; such quotes become apostrophes.
void appendParamValue(std::string& out, const std::string& v) {
  bool needsQuotes = v.find_first_of(";:,") != std::string::npos || (!v.empty() && v[0] == '"');
  if (!needsQuotes) {
    out += v;
    return;
  }
  out += '"';
  size_t from = out.size();
  out += v;
  std::replace(out.begin() + static_cast<std::ptrdiff_t>(from), out.end(), '"', '\'');
  out += '"';
}

// Whether the line is that marker, whatever its case and blanks.
bool isMarker(std::string_view line, std::string_view marker) {
  return sameName(value::trimmed(line), marker);
}

}  // namespace

std::vector<std::string> VcardProperty::paramValues(std::string_view name) const {
  std::vector<std::string> out;
  for (const auto& p : params_) {
    if (sameName(p.name, name)) out.insert(out.end(), p.values.begin(), p.values.end());
  }
  return out;
}

bool VcardProperty::hasParam(std::string_view name) const {
  return std::any_of(params_.begin(), params_.end(),
                     [&](const VcardParam& p) { return sameName(p.name, name); });
}

const std::string* VcardProperty::paramValue(std::string_view name) const {
  for (const auto& p : params_) {
    if (!p.values.empty() && sameName(p.name, name)) return &p.values.front();
  }
  return nullptr;
}

namespace {

constexpr std::string_view kCommonTypes[] = {"WORK",  "HOME",      "CELL",     "FAX",   "VOICE",
                                             "PAGER", "CAR",       "VIDEO",    "MODEM", "ISDN",
                                             "BBS",   "TEXTPHONE", "INTERNET", "PREF"};

int commonTypeIndex(std::string_view type) {
  for (size_t i = 0; i < std::size(kCommonTypes); ++i) {
    if (sameName(kCommonTypes[i], type)) return static_cast<int>(i);
  }
  return -1;
}

// Calls `each` with every type the property lists, in any of TYPE's spellings (TYPE=a,b;
// TYPE=c; a quoted "a,b"; bare 2.1 types), until it answers true.
template <class Each>
bool anyType(const std::vector<VcardParam>& params, Each each) {
  for (const auto& p : params) {
    if (!p.name.empty() && !sameName(p.name, "TYPE")) continue;
    for (const auto& v : p.values) {
      size_t start = 0;
      while (start <= v.size()) {
        size_t comma = v.find(',', start);
        if (comma == std::string::npos) comma = v.size();
        if (each(value::trimmed(std::string_view(v).substr(start, comma - start)))) return true;
        start = comma + 1;
      }
    }
  }
  return false;
}

}  // namespace

bool VcardProperty::hasType(std::string_view type) const {
  int common = commonTypeIndex(type);
  if (common < 0) return anyType(params_, [&](std::string_view t) { return sameName(t, type); });
  return (typeMask() >> common) & 1u;
}

uint32_t VcardProperty::typeMask() const {
  if (!typesKnown_) {
    typeMask_ = 0;
    anyType(params_, [&](std::string_view t) {
      int i = commonTypeIndex(t);
      if (i >= 0) typeMask_ |= 1u << i;
      return false;
    });
    typesKnown_ = true;
  }
  return typeMask_;
}

void VcardProperty::setGroup(std::string group) {
  group_ = std::move(group);
  source_.clear();
  memo_.reset();
}

void VcardProperty::setRawValue(std::string raw) {
  value_ = std::move(raw);
  source_.clear();
}

void VcardProperty::setParam(const std::string& name, std::vector<std::string> values) {
  removeParam(name);
  params_.push_back({name, std::move(values)});
  typesKnown_ = false;
  memo_.reset();
}

void VcardProperty::removeParam(std::string_view name) {
  std::erase_if(params_, [&](const VcardParam& p) { return sameName(p.name, name); });
  source_.clear();
  typesKnown_ = false;
  memo_.reset();
}

std::string VcardProperty::line() const {
  if (!source_.empty()) return source_;
  std::string out;
  appendLine(out);
  return out;
}

void VcardProperty::appendLine(std::string& out) const {
  if (!source_.empty()) {
    out += source_;
    return;
  }
  if (!group_.empty()) {
    out += group_;
    out += '.';
  }
  out += name_;
  for (const auto& p : params_) {
    out += ';';
    if (!p.name.empty()) {
      out += p.name;
      out += '=';
    }
    for (size_t i = 0; i < p.values.size(); ++i) {
      if (i > 0) out += ',';
      appendParamValue(out, p.values[i]);
    }
  }
  out += ':';
  out += value_;
}

bool VcardProperty::sameContent(const VcardProperty& other) const {
  return group_ == other.group_ && name_ == other.name_ && params_ == other.params_ &&
         value_ == other.value_;
}

const VcardProperty* Vcard::find(std::string_view name) const {
  uint16_t key = nameKey(name);
  for (const auto& p : properties) {
    if (sameName(p.name(), p.nameKey(), name, key)) return &p;
  }
  return nullptr;
}

VcardProperty* Vcard::find(std::string_view name) {
  return const_cast<VcardProperty*>(std::as_const(*this).find(name));
}

// What reading one line tells besides the property: its name and value as written, and whether
// the property was kept.
struct LineParts {
  std::string_view name, value;
  bool kept = false;
};

struct PropertyLineReader {
  // Checks one property line; `out`, when given, becomes the property if `keep` (when given)
  // accepts its name. Nothing is copied for a property that is not kept.
  static LineParts read(std::string_view line, size_t lineNumber, PropertyFilter keep,
                        VcardProperty* out) {
    size_t i = 0;
    std::string_view group;
    std::string_view name = takeName(line, i);
    if (name.empty()) throw syntaxError(lineNumber, "property name missing");
    if (i < line.size() && line[i] == '.') {
      group = name;
      ++i;
      name = takeName(line, i);
      if (name.empty()) throw syntaxError(lineNumber, "property name missing after the group");
    }
    if (out && keep && !keep(name)) out = nullptr;

    while (i < line.size() && line[i] == ';') {
      ++i;
      std::string_view pname = takeName(line, i);
      if (pname.empty()) throw syntaxError(lineNumber, "bad parameter of " + std::string(name));
      VcardParam param;
      if (i < line.size() && line[i] == '=') {
        if (out) param.name = std::string(pname);
        ++i;
        for (;;) {
          std::string_view v;
          if (i < line.size() && line[i] == '"') {
            size_t close = line.find('"', i + 1);
            if (close == std::string_view::npos)
              throw syntaxError(lineNumber,
                                "unterminated quoted parameter of " + std::string(name));
            v = line.substr(i + 1, close - i - 1);
            i = close + 1;
          } else {
            size_t begin = i;
            while (i < line.size() && line[i] != ';' && line[i] != ':' && line[i] != ',') ++i;
            v = line.substr(begin, i - begin);
          }
          if (out) param.values.emplace_back(v);
          if (i < line.size() && line[i] == ',') {
            ++i;
            continue;
          }
          break;
        }
      } else if (out) {
        param.values.emplace_back(pname);  // bare 2.1 type
      }
      if (out) out->params_.push_back(std::move(param));
    }
    if (i >= line.size() || line[i] != ':')
      throw syntaxError(lineNumber, "':' missing after " + std::string(name));
    LineParts parts{name, line.substr(i + 1)};
    if (out) {
      out->group_ = std::string(group);
      out->name_ = std::string(name);
      out->nameKey_ = nameKey(name);
      out->value_ = std::string(parts.value);
      out->source_ = std::string(line);
      parts.kept = true;
    }
    return parts;
  }
};

VcardProperty parsePropertyLine(std::string_view line, size_t lineNumber) {
  VcardProperty p;
  PropertyLineReader::read(line, lineNumber, nullptr, &p);
  return p;
}

Vcard parseVcard(std::string_view text, PropertyFilter keep) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);

  // Unfold: a physical line that starts with a blank or tab continues the one before it.
  // Lines that were not folded stay views into the text; the folded ones are joined in
  // `joined`, one after the other (the last line is always the one being continued).
  constexpr size_t kNotJoined = std::string_view::npos;
  struct Logical {
    std::string_view text;
    size_t number;
    size_t joinedAt = kNotJoined, joinedSize = 0;
  };
  std::vector<Logical> lines;
  lines.reserve(64);
  std::string joined;
  size_t pos = 0, number = 0;
  for (;;) {
    size_t nl = text.find('\n', pos);
    std::string_view phys = text.substr(pos, nl == std::string_view::npos ? nl : nl - pos);
    ++number;
    if (!phys.empty() && phys.back() == '\r') phys.remove_suffix(1);
    if (!phys.empty() && (phys[0] == ' ' || phys[0] == '\t')) {
      if (lines.empty()) throw syntaxError(number, "continuation line with nothing to continue");
      Logical& last = lines.back();
      if (last.joinedAt == kNotJoined) {
        last.joinedAt = joined.size();
        joined.append(last.text);
      }
      joined.append(phys.substr(1));
      last.joinedSize = joined.size() - last.joinedAt;
    } else {
      lines.push_back({phys, number});
    }
    if (nl == std::string_view::npos) break;
    pos = nl + 1;
  }
  for (auto& l : lines) {
    if (l.joinedAt != kNotJoined)
      l.text = std::string_view(joined).substr(l.joinedAt, l.joinedSize);
  }

  Vcard card;
  if (!keep) card.properties.reserve(lines.size());
  enum { kBefore, kInside, kAfter } state = kBefore;
  for (const auto& l : lines) {
    if (l.text.empty()) continue;
    switch (state) {
      case kBefore:
        if (!isMarker(l.text, "BEGIN:VCARD")) throw syntaxError(l.number, "BEGIN:VCARD expected");
        state = kInside;
        break;
      case kInside: {
        if (isMarker(l.text, "END:VCARD")) {
          state = kAfter;
          break;
        }
        VcardProperty p;
        LineParts parts = PropertyLineReader::read(l.text, l.number, keep, &p);
        if (sameName(parts.name, "BEGIN") || sameName(parts.name, "END"))
          throw syntaxError(
              l.number, "unexpected " + std::string(parts.name) + ":" + std::string(parts.value));
        if (parts.kept) card.properties.push_back(std::move(p));
        break;
      }
      case kAfter:
        throw syntaxError(l.number, "text after END:VCARD (one card per file)");
    }
  }
  if (state == kBefore) throw syntaxError(0, "no BEGIN:VCARD");
  if (state == kInside) throw syntaxError(0, "END:VCARD missing");
  return card;
}

namespace {

// Appends `line` folded at 75 octets, each physical line ending in CRLF.
void appendFolded(std::string& out, std::string_view line) {
  bool first = true;
  while (true) {
    size_t limit = first ? kFoldOctets : kFoldOctets - 1;  // continuation lines start with a blank
    if (!first) out += ' ';
    if (line.size() <= limit) {
      out.append(line);
      out += "\r\n";
      return;
    }
    size_t cut = limit;
    for (int back = 0; back < 3 && cut > 1 && isUtf8Continuation(line[cut]); ++back) --cut;
    if (isUtf8Continuation(line[cut])) cut = limit;  // not UTF-8 after all: cut anywhere
    out.append(line.substr(0, cut));
    out += "\r\n";
    line.remove_prefix(cut);
    first = false;
  }
}

}  // namespace

std::string foldLine(std::string_view line) {
  std::string out;
  appendFolded(out, line);
  return out;
}

std::string writeVcard(const Vcard& card) {
  std::string out = "BEGIN:VCARD\r\n";
  out.reserve(1024);
  std::string line;  // one buffer for every line
  for (const auto& p : card.properties) {
    const std::string* whole = &p.sourceLine();
    if (whole->empty()) {
      line.clear();
      p.appendLine(line);
      whole = &line;
    }
    // A short line (most of them) needs no folding.
    if (whole->size() <= kFoldOctets) {
      out += *whole;
      out += "\r\n";
    } else {
      appendFolded(out, *whole);
    }
  }
  out += "END:VCARD\r\n";
  return out;
}

namespace {

// The length of the fold (a line end, then a blank or tab) at text[i]; 0 when there is none.
size_t foldAt(std::string_view text, size_t i) {
  size_t end = text.compare(i, 2, "\r\n") == 0 ? 2 : text.compare(i, 1, "\n") == 0 ? 1 : 0;
  return end > 0 && i + end < text.size() && (text[i + end] == ' ' || text[i + end] == '\t')
             ? end + 1
             : 0;
}

// The length of the valid UTF-8 sequence at text[i] (not NUL), with the folds inside it (some
// programs fold a line inside a character); 0 when there is none.
size_t utf8SequenceAt(std::string_view text, size_t i) {
  unsigned char b = static_cast<unsigned char>(text[i]);
  if (b >= 0x01 && b < 0x80) return 1;
  size_t n = b >= 0xC2 && b <= 0xDF   ? 2
             : b >= 0xE0 && b <= 0xEF ? 3
             : b >= 0xF0 && b <= 0xF4 ? 4
                                      : 0;
  if (n == 0) return 0;
  size_t at = i + 1;
  for (size_t k = 1; k < n; ++k, ++at) {
    at += foldAt(text, at);
    if (at >= text.size()) return 0;
    // The second byte's range rules out overlong forms, surrogates and code points past
    // U+10FFFF.
    unsigned char lo = 0x80, hi = 0xBF;
    if (k == 1 && b == 0xE0) lo = 0xA0;
    if (k == 1 && b == 0xED) hi = 0x9F;
    if (k == 1 && b == 0xF0) lo = 0x90;
    if (k == 1 && b == 0xF4) hi = 0x8F;
    auto c = static_cast<unsigned char>(text[at]);
    if (c < lo || c > hi) return 0;
  }
  return at - i;
}

}  // namespace

std::string readableText(std::string_view text, bool* changed) {
  if (changed) *changed = false;
  size_t i = 0;
  for (size_t n; i < text.size() && (n = utf8SequenceAt(text, i)) > 0;) i += n;
  if (i == text.size()) return std::string(text);
  if (changed) *changed = true;
  std::string out(text.substr(0, i));
  out.reserve(text.size() + 16);
  while (i < text.size()) {
    size_t n = utf8SequenceAt(text, i);
    if (n == 0) {
      out += "\xEF\xBF\xBD";
      ++i;
    } else {
      out.append(text.substr(i, n));
      i += n;
    }
  }
  return out;
}

std::string escapeText(std::string_view text) {
  // One pass over the text (find_first_of would search the five characters for each of it).
  auto special = [](char c) { return c == '\\' || c == ',' || c == ';' || c == '\n' || c == '\r'; };
  if (std::none_of(text.begin(), text.end(), special)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 8);
  for (char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case ',':
        out += "\\,";
        break;
      case ';':
        out += "\\;";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string unescapeText(std::string_view raw) {
  if (raw.find('\\') == std::string_view::npos) return std::string(raw);
  std::string out;
  out.reserve(raw.size());
  for (size_t i = 0; i < raw.size(); ++i) {
    char c = raw[i];
    if (c != '\\' || i + 1 == raw.size()) {
      out += c;
      continue;
    }
    char d = raw[++i];
    switch (d) {
      case '\\':
      case ',':
      case ';':
      case ':':
        out += d;
        break;
      case 'n':
      case 'N':
        out += '\n';
        break;
      case 'r':
        out += '\r';
        break;
      default:
        out += '\\';
        out += d;
    }
  }
  return out;
}

std::vector<std::string> splitRaw(std::string_view raw, char sep) {
  std::vector<std::string> parts;
  forEachRawPart(raw, sep, [&](std::string_view part) {
    parts.emplace_back(part);
    return true;
  });
  return parts;
}

std::string_view rawPart(std::string_view raw, char sep, size_t k) {
  std::string_view found;
  size_t i = 0;
  forEachRawPart(raw, sep, [&](std::string_view part) {
    if (i++ < k) return true;
    found = part;
    return false;
  });
  return found;
}

}  // namespace dossync::vdir
