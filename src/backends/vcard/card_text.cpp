#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "backends/vcard/card_parts.h"
#include "base/error.h"

namespace dossync::vdir::card {

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

}  // namespace dossync::vdir::card
