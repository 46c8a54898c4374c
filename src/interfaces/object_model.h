// The Outlook object model as the component speaks it: the members the synchronisation,
// the wizard's Outlook tree and the mail sender use, with Outlook's names and numbers.
// Back ends (the local vCard folder, CardDAV, real Outlook through COM) implement these
// interfaces; the component reaches them only through platform::createObject /
// getActiveObject("Outlook.Application").
//
// "Nothing" is an empty pointer. A look-up that finds nothing (Items::Find, NameSpace::
// GetItemFromID) answers Nothing; operations that fail throw RuntimeError naming the item.
// An omitted optional argument is std::nullopt. Dates use base/value.h's Date; Outlook's
// "none" date is kNoDate (4501-01-01).
// Thread use: the apartment's one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/object.h"
#include "base/value.h"

namespace dossync::outlook {

enum OlItemType : int32_t { olMailItem = 0, olAppointmentItem = 1, olContactItem = 2 };
enum OlDefaultFolders : int32_t { olFolderCalendar = 9, olFolderContacts = 10 };
enum OlObjectClass : int32_t {
  olAppointment = 26,
  olContact = 40,
  olMail = 43,
  olDistributionList = 69
};
enum OlGender : int32_t { olUnspecified = 0, olFemale = 1, olMale = 2 };
enum OlMailRecipientType : int32_t { olTo = 1, olCC = 2, olBCC = 3 };

inline constexpr value::Date kNoDate{4501, 1, 1, 0, 0, 0};

// The text properties of a contact item, by their Outlook names.
// clang-format off
#define DOSSYNC_CONTACT_TEXT_PROPERTIES(X)                                                      \
  X(Title) X(FirstName) X(MiddleName) X(LastName) X(Suffix) X(FullName) X(FileAs)               \
  X(CompanyName) X(JobTitle) X(Department) X(OfficeLocation) X(Categories)                      \
  X(Email1Address) X(Email2Address) X(Email3Address)                                            \
  X(BusinessTelephoneNumber) X(Business2TelephoneNumber) X(BusinessFaxNumber)                   \
  X(HomeTelephoneNumber) X(Home2TelephoneNumber) X(HomeFaxNumber) X(MobileTelephoneNumber)      \
  X(BusinessAddressStreet) X(BusinessAddressCity) X(BusinessAddressState)                       \
  X(BusinessAddressPostalCode) X(BusinessAddressCountry)                                        \
  X(HomeAddressStreet) X(HomeAddressCity) X(HomeAddressState) X(HomeAddressPostalCode)          \
  X(HomeAddressCountry) X(WebPage) X(Spouse) X(Children) X(Body)
// clang-format on

enum class ContactProperty : int32_t {
#define DOSSYNC_ENUM_ENTRY(name) name,
  DOSSYNC_CONTACT_TEXT_PROPERTIES(DOSSYNC_ENUM_ENTRY)
#undef DOSSYNC_ENUM_ENTRY
};

const char* propertyName(ContactProperty p);
class ContactItem;
// Every property of a contact by its Outlook name, in a fixed order: the text properties, then
// Gender (its number), Birthday and Anniversary (default text form, "" for none), then EntryID
// when withEntryID.
std::vector<std::pair<std::string, std::string>> contactProperties(const ContactItem& c,
                                                                   bool withEntryID = true);
std::optional<ContactProperty> propertyFromName(const std::string& name);
inline constexpr int kContactTextPropertyCount = static_cast<int>(ContactProperty::Body) + 1;

// Any item of a folder.
class Item : public Object {
 public:
  virtual int32_t Class() const = 0;
  virtual std::string EntryID() const = 0;  // "" until the item is saved
  virtual void Save() = 0;
};
using ItemPtr = std::shared_ptr<Item>;

class ContactItem : public Item {
 public:
  int32_t Class() const override { return olContact; }
  virtual std::string get(ContactProperty p) const = 0;
  virtual void set(ContactProperty p, const std::string& value) = 0;
  virtual int32_t Gender() const = 0;
  virtual void setGender(int32_t gender) = 0;
  virtual value::Date Birthday() const = 0;
  virtual void setBirthday(const value::Date& date) = 0;
  virtual value::Date Anniversary() const = 0;
  virtual void setAnniversary(const value::Date& date) = 0;
  // Whether reading the property may stop for the user's consent (Outlook's object model guard
  // asks it for e-mail addresses and notes): a reader of its own, such as a run's report, leaves
  // it alone. Writing is never guarded. Nothing is, unless the back end says so.
  virtual bool guarded(ContactProperty) const { return false; }
  // Removes the item from its folder (Outlook moves it to Deleted Items); it cannot be saved
  // afterwards. A back end that cannot delete throws.
  virtual void Delete();

// clang-format off
#define DOSSYNC_ACCESSORS(name)                                              \
  std::string name() const { return get(ContactProperty::name); }           \
  void set##name(const std::string& v) { set(ContactProperty::name, v); }
  // clang-format on
  DOSSYNC_CONTACT_TEXT_PROPERTIES(DOSSYNC_ACCESSORS)
#undef DOSSYNC_ACCESSORS
};
using ContactItemPtr = std::shared_ptr<ContactItem>;

// A contact item that passes every call on to another: stand-ins in front of a back end's
// items derive from it and override what they change.
class ContactItemProxy : public ContactItem {
 public:
  explicit ContactItemProxy(ContactItemPtr inner) : inner_(std::move(inner)) {}
  std::string EntryID() const override { return inner_->EntryID(); }
  void Save() override { inner_->Save(); }
  std::string get(ContactProperty p) const override { return inner_->get(p); }
  void set(ContactProperty p, const std::string& v) override { inner_->set(p, v); }
  int32_t Gender() const override { return inner_->Gender(); }
  void setGender(int32_t g) override { inner_->setGender(g); }
  value::Date Birthday() const override { return inner_->Birthday(); }
  void setBirthday(const value::Date& d) override { inner_->setBirthday(d); }
  value::Date Anniversary() const override { return inner_->Anniversary(); }
  void setAnniversary(const value::Date& d) override { inner_->setAnniversary(d); }
  bool guarded(ContactProperty p) const override { return inner_->guarded(p); }
  void Delete() override { inner_->Delete(); }

 protected:
  ContactItemPtr inner_;
};

class Recipient : public Object {
 public:
  virtual std::string Name() const = 0;
  virtual int32_t Type() const = 0;
  virtual void setType(int32_t type) = 0;
  virtual bool Resolve() = 0;
};

class Recipients : public Object {
 public:
  virtual int32_t Count() const = 0;
  virtual std::shared_ptr<Recipient> Add(const std::string& name) = 0;
  virtual std::shared_ptr<Recipient> Item(int32_t index) const = 0;  // 1-based
};

class Attachment : public Object {
 public:
  virtual std::string DisplayName() const = 0;
  virtual void setDisplayName(const std::string& name) = 0;
  virtual std::string PathName() const = 0;
};

class Attachments : public Object {
 public:
  virtual int32_t Count() const = 0;
  virtual std::shared_ptr<Attachment> Add(
      const std::string& source, std::optional<int32_t> type = std::nullopt,
      std::optional<int32_t> position = std::nullopt,
      std::optional<std::string> displayName = std::nullopt) = 0;
  virtual std::shared_ptr<Attachment> Item(int32_t index) const = 0;  // 1-based
};

class MailItem : public Item {
 public:
  int32_t Class() const override { return olMail; }
  virtual std::string Subject() const = 0;
  virtual void setSubject(const std::string& subject) = 0;
  virtual std::string Body() const = 0;
  virtual void setBody(const std::string& body) = 0;
  virtual std::shared_ptr<outlook::Recipients> Recipients() = 0;
  virtual std::shared_ptr<outlook::Attachments> Attachments() = 0;
  virtual void Send() = 0;
  virtual void Display(std::optional<bool> modal = std::nullopt) = 0;
};

class AppointmentItem : public Item {
 public:
  int32_t Class() const override { return olAppointment; }
  virtual value::Date Start() const = 0;
  virtual void setStart(const value::Date& d) = 0;
  virtual value::Date End() const = 0;
  virtual void setEnd(const value::Date& d) = 0;
  virtual std::string Subject() const = 0;
  virtual void setSubject(const std::string& s) = 0;
  virtual std::string Location() const = 0;
  virtual void setLocation(const std::string& s) = 0;
  virtual void Send() = 0;
};

class Items : public Object {
 public:
  virtual int32_t Count() = 0;
  virtual ItemPtr Item(int32_t index) = 0;  // 1-based
  // Filter "[FileAs] = \"name\"": the first item filed under that name, or Nothing.
  virtual ItemPtr Find(const std::string& filter) = 0;
};

class MAPIFolder : public Object {
 public:
  virtual std::shared_ptr<outlook::Items> Items() = 0;
  virtual std::string StoreID() const = 0;
};

class NameSpace : public Object {
 public:
  virtual void Logon(std::optional<std::string> profile, std::optional<std::string> password,
                     std::optional<bool> showDialog, std::optional<bool> newSession) = 0;
  virtual std::shared_ptr<MAPIFolder> GetDefaultFolder(int32_t folder) = 0;
  // The item with that entry id in that store, or Nothing.
  virtual ItemPtr GetItemFromID(const std::string& entryId, const std::string& storeId) = 0;
};

class Application : public Object {
 public:
  virtual std::shared_ptr<NameSpace> GetNamespace(const std::string& type) = 0;
  virtual ItemPtr CreateItem(int32_t itemType) = 0;
};

// "Nothing" or the object's class name, as VB's TypeName answers.
inline bool isNothing(const ObjectPtr& o) {
  return o == nullptr;
}

}  // namespace dossync::outlook
