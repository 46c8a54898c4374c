#include "backends/outlook_com/outlook_automation.h"

#include "base/platform.h"
#include "platform/win32/automation.h"

namespace dossync::outlook_com {

using win32::Dispatch;
using win32::Variant;

namespace {

Variant optionalText(const std::optional<std::string>& v) {
  return v ? Variant(*v) : Variant::missing();
}
Variant optionalBool(const std::optional<bool>& v) {
  return v ? Variant(*v) : Variant::missing();
}
Variant optionalInt(const std::optional<int32_t>& v) {
  return v ? Variant(*v) : Variant::missing();
}

// The object a call answered, labelled; empty for Nothing.
Dispatch objectOf(const Variant& v, const std::string& label) {
  auto d = v.toDispatch();
  return d ? Dispatch(d.get(), label) : Dispatch();
}

outlook::ItemPtr wrapItem(Dispatch item);

template <class Base>
class ItemOf : public Base {
 public:
  explicit ItemOf(Dispatch d) : d_(std::move(d)) {}
  std::string EntryID() const override { return d_.get("EntryID").toString(); }
  void Save() override { d_.call("Save"); }

 protected:
  Dispatch d_;
};

class OtherItem final : public ItemOf<outlook::Item> {
 public:
  OtherItem(Dispatch d, int32_t cls) : ItemOf(std::move(d)), class_(cls) {}
  int32_t Class() const override { return class_; }

 private:
  int32_t class_;
};

class ContactItem final : public ItemOf<outlook::ContactItem> {
 public:
  using ItemOf::ItemOf;
  std::string get(outlook::ContactProperty p) const override {
    return d_.get(outlook::propertyName(p)).toString();
  }
  void set(outlook::ContactProperty p, const std::string& value) override {
    d_.put(outlook::propertyName(p), Variant(value));
  }
  // Outlook's object model guard: reading these raises the address book warning.
  bool guarded(outlook::ContactProperty p) const override {
    using P = outlook::ContactProperty;
    return p == P::Email1Address || p == P::Email2Address || p == P::Email3Address || p == P::Body;
  }
  int32_t Gender() const override { return d_.get("Gender").toInt32(); }
  void setGender(int32_t gender) override { d_.put("Gender", Variant(gender)); }
  value::Date Birthday() const override { return d_.get("Birthday").toDate(); }
  void setBirthday(const value::Date& date) override { d_.put("Birthday", Variant(date)); }
  value::Date Anniversary() const override { return d_.get("Anniversary").toDate(); }
  void setAnniversary(const value::Date& date) override { d_.put("Anniversary", Variant(date)); }
  // Outlook moves the item to Deleted Items; the object answers nothing useful afterwards.
  void Delete() override { d_.call("Delete"); }
};

class Recipient final : public outlook::Recipient {
 public:
  explicit Recipient(Dispatch d) : d_(std::move(d)) {}
  std::string Name() const override { return d_.get("Name").toString(); }
  int32_t Type() const override { return d_.get("Type").toInt32(); }
  void setType(int32_t type) override { d_.put("Type", Variant(type)); }
  bool Resolve() override { return d_.call("Resolve").toBool(); }

 private:
  Dispatch d_;
};

class Recipients final : public outlook::Recipients {
 public:
  explicit Recipients(Dispatch d) : d_(std::move(d)) {}
  int32_t Count() const override { return d_.get("Count").toInt32(); }
  std::shared_ptr<outlook::Recipient> Add(const std::string& name) override {
    return wrap(d_.call("Add", {Variant(name)}));
  }
  std::shared_ptr<outlook::Recipient> Item(int32_t index) const override {
    return wrap(d_.call("Item", {Variant(index)}));
  }

 private:
  static std::shared_ptr<outlook::Recipient> wrap(const Variant& v) {
    Dispatch d = objectOf(v, "Recipient");
    return d ? std::make_shared<Recipient>(std::move(d)) : nullptr;
  }
  Dispatch d_;
};

class Attachment final : public outlook::Attachment {
 public:
  explicit Attachment(Dispatch d) : d_(std::move(d)) {}
  std::string DisplayName() const override { return d_.get("DisplayName").toString(); }
  void setDisplayName(const std::string& name) override { d_.put("DisplayName", Variant(name)); }
  std::string PathName() const override { return d_.get("PathName").toString(); }

 private:
  Dispatch d_;
};

class Attachments final : public outlook::Attachments {
 public:
  explicit Attachments(Dispatch d) : d_(std::move(d)) {}
  int32_t Count() const override { return d_.get("Count").toInt32(); }
  std::shared_ptr<outlook::Attachment> Add(const std::string& source, std::optional<int32_t> type,
                                           std::optional<int32_t> position,
                                           std::optional<std::string> displayName) override {
    return wrap(d_.call("Add", {Variant(source), optionalInt(type), optionalInt(position),
                                optionalText(displayName)}));
  }
  std::shared_ptr<outlook::Attachment> Item(int32_t index) const override {
    return wrap(d_.call("Item", {Variant(index)}));
  }

 private:
  static std::shared_ptr<outlook::Attachment> wrap(const Variant& v) {
    Dispatch d = objectOf(v, "Attachment");
    return d ? std::make_shared<Attachment>(std::move(d)) : nullptr;
  }
  Dispatch d_;
};

class MailItem final : public ItemOf<outlook::MailItem> {
 public:
  using ItemOf::ItemOf;
  std::string Subject() const override { return d_.get("Subject").toString(); }
  void setSubject(const std::string& subject) override { d_.put("Subject", Variant(subject)); }
  std::string Body() const override { return d_.get("Body").toString(); }
  void setBody(const std::string& body) override { d_.put("Body", Variant(body)); }
  std::shared_ptr<outlook::Recipients> Recipients() override {
    return std::make_shared<outlook_com::Recipients>(objectOf(d_.get("Recipients"), "Recipients"));
  }
  std::shared_ptr<outlook::Attachments> Attachments() override {
    return std::make_shared<outlook_com::Attachments>(
        objectOf(d_.get("Attachments"), "Attachments"));
  }
  void Send() override { d_.call("Send"); }
  void Display(std::optional<bool> modal) override { d_.call("Display", {optionalBool(modal)}); }
};

class AppointmentItem final : public ItemOf<outlook::AppointmentItem> {
 public:
  using ItemOf::ItemOf;
  value::Date Start() const override { return d_.get("Start").toDate(); }
  void setStart(const value::Date& d) override { d_.put("Start", Variant(d)); }
  value::Date End() const override { return d_.get("End").toDate(); }
  void setEnd(const value::Date& d) override { d_.put("End", Variant(d)); }
  std::string Subject() const override { return d_.get("Subject").toString(); }
  void setSubject(const std::string& s) override { d_.put("Subject", Variant(s)); }
  std::string Location() const override { return d_.get("Location").toString(); }
  void setLocation(const std::string& s) override { d_.put("Location", Variant(s)); }
  void Send() override { d_.call("Send"); }
};

outlook::ItemPtr wrapItem(Dispatch item) {
  if (!item) return nullptr;
  const int32_t cls = item.get("Class").toInt32();
  switch (cls) {
    case outlook::olContact:
      return std::make_shared<ContactItem>(Dispatch(item.get(), "ContactItem"));
    case outlook::olMail:
      return std::make_shared<MailItem>(Dispatch(item.get(), "MailItem"));
    case outlook::olAppointment:
      return std::make_shared<AppointmentItem>(Dispatch(item.get(), "AppointmentItem"));
    default:
      return std::make_shared<OtherItem>(std::move(item), cls);
  }
}

class Items final : public outlook::Items {
 public:
  explicit Items(Dispatch d) : d_(std::move(d)) {}
  int32_t Count() override { return d_.get("Count").toInt32(); }
  outlook::ItemPtr Item(int32_t index) override {
    return wrapItem(objectOf(d_.call("Item", {Variant(index)}), "item"));
  }
  outlook::ItemPtr Find(const std::string& filter) override {
    return wrapItem(objectOf(d_.call("Find", {Variant(filter)}), "item"));
  }

 private:
  Dispatch d_;
};

class Folder final : public outlook::MAPIFolder {
 public:
  explicit Folder(Dispatch d) : d_(std::move(d)) {}
  std::shared_ptr<outlook::Items> Items() override {
    return std::make_shared<outlook_com::Items>(objectOf(d_.get("Items"), "Items"));
  }
  std::string StoreID() const override { return d_.get("StoreID").toString(); }

 private:
  Dispatch d_;
};

class NameSpace final : public outlook::NameSpace {
 public:
  explicit NameSpace(Dispatch d) : d_(std::move(d)) {}
  void Logon(std::optional<std::string> profile, std::optional<std::string> password,
             std::optional<bool> showDialog, std::optional<bool> newSession) override {
    d_.call("Logon", {optionalText(profile), optionalText(password), optionalBool(showDialog),
                      optionalBool(newSession)});
  }
  std::shared_ptr<outlook::MAPIFolder> GetDefaultFolder(int32_t folder) override {
    Dispatch d = objectOf(d_.call("GetDefaultFolder", {Variant(folder)}), "MAPIFolder");
    return d ? std::make_shared<Folder>(std::move(d)) : nullptr;
  }
  outlook::ItemPtr GetItemFromID(const std::string& entryId, const std::string& storeId) override {
    // Outlook raises an error for an id it does not know: that is Nothing here.
    try {
      return wrapItem(
          objectOf(d_.call("GetItemFromID", {Variant(entryId), Variant(storeId)}), "item"));
    } catch (const RuntimeError&) {
      return nullptr;
    }
  }

 private:
  Dispatch d_;
};

class Application final : public outlook::Application {
 public:
  explicit Application(Dispatch d) : d_(std::move(d)) {}
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& type) override {
    Dispatch d = objectOf(d_.call("GetNamespace", {Variant(type)}), "NameSpace");
    return d ? std::make_shared<NameSpace>(std::move(d)) : nullptr;
  }
  outlook::ItemPtr CreateItem(int32_t itemType) override {
    return wrapItem(objectOf(d_.call("CreateItem", {Variant(itemType)}), "item"));
  }

 private:
  Dispatch d_;
};

CLSID outlookClass() {
  CLSID clsid{};
  HRESULT hr = ::CLSIDFromProgID(L"Outlook.Application", &clsid);
  if (FAILED(hr))
    win32::throwHresult(hr, "Outlook is not installed (no class Outlook.Application)");
  return clsid;
}

ObjectPtr createOutlook() {
  CLSID clsid = outlookClass();
  win32::ComPtr<IDispatch> app;
  HRESULT hr = ::CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER | CLSCTX_INPROC_SERVER,
                                  IID_IDispatch, reinterpret_cast<void**>(app.put()));
  if (FAILED(hr)) win32::throwHresult(hr, "Cannot start Outlook");
  return wrapApplication(app.get());
}

ObjectPtr attachOutlook() {
  CLSID clsid = outlookClass();
  win32::ComPtr<IUnknown> running;
  HRESULT hr = ::GetActiveObject(clsid, nullptr, running.put());
  if (FAILED(hr)) win32::throwHresult(hr, "Outlook is not running");
  win32::ComPtr<IDispatch> app;
  hr = running->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(app.put()));
  if (FAILED(hr)) win32::throwHresult(hr, "The running Outlook cannot be automated");
  return wrapApplication(app.get());
}

}  // namespace

std::shared_ptr<outlook::Application> wrapApplication(IDispatch* application) {
  return std::make_shared<Application>(Dispatch(application, "Outlook.Application"));
}

void registerOutlookAutomation() {
  platform::registerClass(platform::kOutlookApplication, createOutlook, attachOutlook);
}

}  // namespace dossync::outlook_com
