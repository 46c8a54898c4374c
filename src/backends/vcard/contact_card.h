// A contact's vCard seen through the Outlook contact properties (docs/vcard-mapping.md has the
// full table). Reading answers the text the card holds; writing edits only the vCard property
// (or component) behind the Outlook property and leaves every other line as it was, so cards
// written by other programs keep what we do not know about.
//
// Round trip: whatever text is set is what a reader of the written card gets back, byte for
// byte (empty, blanks at either end, commas, semicolons, backslashes, CR/LF, non-ASCII).
// Line breaks: a value whose breaks are all CRLF (Outlook's) is written with plain \n escapes
// and the parameter X-DOSSYNC-EOL=CRLF on its property; any other CR is written \r.
// Setting "" removes the property (FN and N, which vCard 3.0 requires, stay with empty text).
//
// The name address books show: a card is completed before it is written (completeName) so that
// FN is never empty. Without a FullName, FN is made from what the contact is filed under and
// carries the parameter X-DOSSYNC-DERIVED=TRUE, which makes it read as no FullName; a company
// card (no person name, a company name) also gets X-ABShowAs:COMPANY. Setting a FullName on a
// card that had none replaces the made FN and takes the company mark away. An FN without the
// parameter that names the company of a card without a person's name (a company card whose
// marks khard dropped as it edited it, or another program's company card) reads as no FullName
// too; a FullName that would read so is marked X-DOSSYNC-DERIVED=FALSE.
//
// Telephone and e-mail slots: the slot an entry fills is told by X-DOSSYNC-FIELD=<Outlook name>
// when present, else by TYPE in card order (WORK -> Business then Business2, HOME -> Home then
// Home2, CELL -> Mobile, FAX -> BusinessFax or HomeFax; e-mails fill Email1..3 in order).
// Entries in a second slot (Business2, Home2, Email2, Email3) are tagged with X-DOSSYNC-FIELD
// before any telephone or e-mail is changed, so removing the first never moves the second.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "backends/vcard/vcard.h"
#include "base/value.h"
#include "interfaces/object_model.h"

namespace dossync::vdir {

// Which TEL and EMAIL properties fill the telephone and e-mail slots (positions in the card, in
// the order of the slots), once worked out.
struct CardSlots {
  std::array<size_t, 7> phones{}, emails{};
  bool phonesKnown = false, emailsKnown = false;
};

class ContactCard {
 public:
  // A new card: VERSION:3.0, PRODID, empty FN and N.
  ContactCard();
  explicit ContactCard(Vcard card) : card_(std::move(card)) {}

  const Vcard& vcard() const { return card_; }
  std::string text() const { return writeVcard(card_); }

  std::string get(outlook::ContactProperty p) const;
  void set(outlook::ContactProperty p, const std::string& text);
  // Without a FullName (set here or another program's FN): FN := FileAs, else CompanyName, else
  // the name parts, else an e-mail address, else "(no name)", marked as made; X-ABShowAs:COMPANY
  // when there is no first, middle or last name but a company name, and none otherwise. No
  // contact property reads differently afterwards. A card with a FullName is left as it is.
  void completeName();

  int32_t gender() const;          // X-GENDER (also X-DOSSYNC-GENDER, vCard 4 GENDER)
  void setGender(int32_t gender);  // 0 removes; other values than 0/1/2 throw
  value::Date birthday() const;    // BDAY; outlook::kNoDate when absent or unreadable
  void setBirthday(const value::Date& date);
  value::Date anniversary() const;  // X-ANNIVERSARY (also ANNIVERSARY, X-EVOLUTION-ANNIVERSARY)
  void setAnniversary(const value::Date& date);

  std::string uid() const;
  void setUid(const std::string& uid);

 private:
  // The slots are worked out when first asked and kept until the card is edited: every edit
  // goes through this class and forgets them first.
  void edited() { slots_ = CardSlots{}; }
  // set() but the FN's mark; `differs`: the caller knows the property holds another text.
  void setField(outlook::ContactProperty p, const std::string& text, bool differs = false);

  Vcard card_;
  mutable CardSlots slots_;
};

// What ContactCard(card).get(p) answers, without a copy of the card.
std::string contactProperty(const Vcard& card, outlook::ContactProperty p);

// What the contact is filed under: its FileAs; for a card filed under nothing (another
// program's), what Outlook files a contact under: "Last, First", the one name there is, else
// the company, else the full name.
std::string filedAs(const Vcard& card);

// The card's UID as text ("" when it has none).
std::string cardUid(const Vcard& card);

// Whether the card is a contact group (KIND:group or X-ADDRESSBOOKSERVER-KIND:group).
bool isGroupCard(const Vcard& card);

// What a folder's index keeps of a card.
struct CardKeys {
  std::string uid;     // cardUid
  bool group = false;  // isGroupCard
  std::string fileAs;  // filedAs; "" for a group
  bool operator==(const CardKeys&) const = default;
};
CardKeys cardKeys(const Vcard& card);
// The same keys from the card's text, keeping only the few properties they come from: throws
// where parseVcard(text) throws, and answers what cardKeys(parseVcard(text)) answers.
CardKeys readCardKeys(std::string_view text);

}  // namespace dossync::vdir
