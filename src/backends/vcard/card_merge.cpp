#include "backends/vcard/card_merge.h"

#include <algorithm>
#include <vector>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "base/error.h"
#include "base/value.h"

namespace dossync::vdir {
namespace {}  // namespace

// One property as a line of its meaning: names folded, parameters and their values sorted,
// each ';'-part of the value unescaped, empty parts at the end left out.
std::string propertyMeaning(const VcardProperty& p) {
  std::string out = value::foldCase(p.group()) + "." + value::foldCase(p.name());
  std::vector<std::string> params;
  for (const auto& param : p.params()) {
    std::vector<std::string> values = param.values;
    std::string name = param.name.empty() ? "type" : value::foldCase(param.name);
    if (name == "type")
      for (auto& v : values) v = value::foldCase(v);
    std::sort(values.begin(), values.end());
    for (auto& v : values) params.push_back(name + "=" + v);
  }
  std::sort(params.begin(), params.end());
  for (const auto& param : params) out += ";" + param;
  out += ":";
  bool first = true;
  forEachRawPart(p.rawValue(), ';', [&](std::string_view part) {
    if (!first) out += '\x1f';
    first = false;
    out += unescapeText(part);
    return true;
  });
  while (out.back() == '\x1f') out.pop_back();  // "ORG:Acme;" says what "ORG:Acme" says
  return out;
}

namespace {

std::vector<std::string> meaningsOf(std::string_view text) {
  std::vector<std::string> lines;
  for (const auto& p : parseVcard(text).properties) {
    if (p.is("PRODID") || p.is("REV")) continue;
    lines.push_back(propertyMeaning(p));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace

bool sameCardMeaning(std::string_view a, std::string_view b) {
  if (a == b) return true;
  try {
    return meaningsOf(a) == meaningsOf(b);
  } catch (const RuntimeError&) {
    return false;
  }
}

std::string mergeCardChanges(std::string_view base, std::string_view mine, std::string_view theirs,
                             CardConflict conflict) {
  ContactCard before;
  try {
    if (!base.empty()) before = ContactCard(parseVcard(base));
  } catch (const RuntimeError&) {
  }
  ContactCard after(parseVcard(mine));
  ContactCard merged(parseVcard(theirs));
  // Mine goes onto theirs when I changed it, unless theirs changed it too and wins.
  auto take = [&](const auto& was, const auto& now, const auto& their) {
    if (now == was) return false;
    return conflict == CardConflict::Mine || their == was;
  };
  for (int i = 0; i < outlook::kContactTextPropertyCount; ++i) {
    auto p = static_cast<outlook::ContactProperty>(i);
    std::string value = after.get(p);
    if (take(before.get(p), value, merged.get(p))) merged.set(p, value);
  }
  if (take(before.gender(), after.gender(), merged.gender())) merged.setGender(after.gender());
  if (take(before.birthday(), after.birthday(), merged.birthday()))
    merged.setBirthday(after.birthday());
  if (take(before.anniversary(), after.anniversary(), merged.anniversary()))
    merged.setAnniversary(after.anniversary());
  merged.completeName();
  return merged.text();
}

}  // namespace dossync::vdir
