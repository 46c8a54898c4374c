// The parts of ContactCard (contact_card.h is its public face), shared by its files:
//   card_text.cpp    a property's text with its line-break mode, and structured components
//   card_slots.cpp   which TEL and EMAIL fill which Outlook slot, and where a new property goes
//   card_fields.cpp  the field table (Outlook property -> vCard property or component),
//                    categories and dates
//   card_names.cpp   the name address books show (FN) and the FullName it stands for
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "base/value.h"
#include "interfaces/object_model.h"

namespace dossync::vdir::card {

using CP = outlook::ContactProperty;

inline constexpr const char* kEolParam = "X-DOSSYNC-EOL";
inline constexpr const char* kFieldParam = "X-DOSSYNC-FIELD";
// On FN: TRUE, the name was made here for address books (completeName), the contact has no
// FullName; FALSE, a FullName that would otherwise read as made (looksMade in card_names.cpp).
inline constexpr const char* kDerivedParam = "X-DOSSYNC-DERIVED";
// Apple's (and khard's) mark of a card that shows as the company it names.
inline constexpr std::array<const char*, 1> kShowAs = {"X-ABShowAs"};

// ---- Text with its line-break mode (card_text.cpp) ----
bool isCrlfMode(const VcardProperty& p);
std::string decodeText(std::string_view raw, bool crlf);
void setEolParam(VcardProperty& p, bool crlf);
std::string join(const std::vector<std::string>& parts, std::string_view sep);
std::string wholeText(const VcardProperty& p);
void setWholeText(VcardProperty& p, const std::string& text);
std::string componentText(const VcardProperty& p, size_t k);
bool allComponentsEmpty(const VcardProperty& p);
// Component k becomes `text`; the others keep their raw text unless the line-break mode changes.
void setComponentText(VcardProperty& p, size_t k, const std::string& text);

// ---- Slots and where properties go (card_slots.cpp) ----
inline constexpr std::array<CP, 7> kPhoneSlots = {
    CP::BusinessTelephoneNumber, CP::Business2TelephoneNumber, CP::BusinessFaxNumber,
    CP::HomeTelephoneNumber,     CP::Home2TelephoneNumber,     CP::HomeFaxNumber,
    CP::MobileTelephoneNumber};
inline constexpr std::array<CP, 3> kEmailSlots = {CP::Email1Address, CP::Email2Address,
                                                  CP::Email3Address};

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

bool isSecondSlot(CP p);
// Which TEL (phone) or EMAIL property fills which slot: tagged ones first, then the others by
// type in card order. A second property tagged for a taken slot fills none.
SlotMap assignSlots(const Vcard& card, bool phone);
// assignSlots, kept in `cache` until the card is edited.
SlotMap cachedSlots(const Vcard& card, bool phone, CardSlots& cache);
// Tagging keeps every property in the slot it fills (`filled`, the card's slots now).
void tagSecondSlots(Vcard& card, bool phone, const SlotMap& filled);
std::vector<std::string> slotTypes(CP slot);

// Inserted where its kind goes, so a card made here reads in one order.
VcardProperty& insertProperty(Vcard& card, VcardProperty p);
void removeAll(Vcard& card, std::span<const char* const> names);
// The first property with one of these names, the earlier names first.
const VcardProperty* findAny(const Vcard& card, std::span<const char* const> names);
// Sets a one-value property known by several names: the first one present is updated, the
// others removed, and "" removes them all (or empties the first when the property is required).
void setAliased(Vcard& card, std::span<const char* const> names, const std::string& text,
                bool required = false);

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

// ---- The field table, categories and dates (card_fields.cpp) ----
enum class Kind { Text, Name, Org, BusinessAddress, HomeAddress, Phone, Email, Categories };

struct Field {
  Kind kind;
  size_t component = 0;                     // Name, Org, addresses
  std::span<const char* const> names = {};  // Text: the property's names, the one written first
};

inline constexpr std::array<const char*, 1> kFn = {"FN"};
inline constexpr std::array<const char*, 1> kBirthday = {"BDAY"};
inline constexpr std::array<const char*, 3> kAnniversary = {"X-ANNIVERSARY", "ANNIVERSARY",
                                                            "X-EVOLUTION-ANNIVERSARY"};
inline constexpr std::array<const char*, 3> kGender = {"X-GENDER", "X-DOSSYNC-GENDER", "GENDER"};

Field fieldOf(CP p);
// The property holding a structured field, if any.
std::optional<size_t> findStructured(const Vcard& card, Kind kind);
size_t makeStructured(Vcard& card, Kind kind);
std::string getCategories(const Vcard& card);
void setCategories(Vcard& card, const std::string& text);
value::Date getDate(const Vcard& card, std::span<const char* const> names);
void setDate(Vcard& card, std::span<const char* const> names, const value::Date& d,
             const char* what);

// ---- The name address books show (card_names.cpp) ----
void setFullName(Vcard& card, const std::string& text);
std::string fullNameOf(const Vcard& card, const VcardProperty& fn);
// The properties whose edit may turn an unmarked FN into one that looks made, or back.
bool weighsOnFullName(CP p);
// After such an edit: the FullName still reads `expected`, the FN marked when it must be.
void keepFullName(Vcard& card, const std::string& expected);

}  // namespace dossync::vdir::card
