#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "backends/vcard/card_parts.h"
#include "base/error.h"

namespace dossync::vdir::card {

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

}  // namespace dossync::vdir::card

namespace dossync::vdir {

using namespace card;

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

}  // namespace dossync::vdir
