#include "objects.h"

#include <atomic>
#include <optional>
#include <string>
#include <utility>

#include "base/error.h"
#include "dialog.h"
#include "platform/win32/automation.h"

namespace dossync::standin {

namespace {

using win32::Variant;

std::atomic<long> g_live{0};
// Reads of the properties Outlook's object model guard asks the user about (e-mail addresses,
// the notes) since the process started: a run that writes to Outlook must make none.
std::atomic<long> g_guardedReads{0};

bool isPut(WORD flags) {
  return (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
}

// The base of every wrapper: counts itself and names itself in errors.
class Object : public win32::DispatchServer {
 public:
  explicit Object(std::string label) : label_(std::move(label)) { ++g_live; }
  ~Object() override { --g_live; }

 protected:
  std::string label() const override { return label_; }

  // A required argument; DISP_E_PARAMNOTOPTIONAL when the caller left it out.
  Variant required(const DISPPARAMS* params, unsigned i, const char* member) const {
    Variant v = argument(params, i);
    if (v.isMissing())
      throw RuntimeError(static_cast<int32_t>(DISP_E_PARAMNOTOPTIONAL),
                         "Argument not optional: " + label_ + "." + member, label_);
    return v;
  }
  // Arguments given to a property that takes none: a collection property answers them as its
  // collection's Item would.
  static bool hasArguments(const DISPPARAMS* params) { return params->cArgs > params->cNamedArgs; }
  static std::optional<std::string> optionalText(const DISPPARAMS* params, unsigned i) {
    Variant v = argument(params, i);
    if (v.isMissing()) return std::nullopt;
    return v.toString();
  }
  static std::optional<int32_t> optionalInt(const DISPPARAMS* params, unsigned i) {
    Variant v = argument(params, i);
    if (v.isMissing()) return std::nullopt;
    return v.toInt32();
  }
  static std::optional<bool> optionalBool(const DISPPARAMS* params, unsigned i) {
    Variant v = argument(params, i);
    if (v.isMissing()) return std::nullopt;
    return v.toBool();
  }

 private:
  std::string label_;
};

// Hands a value to the caller.
HRESULT answer(VARIANT* result, const Variant& v) {
  v.copyTo(result);
  return S_OK;
}

// Hands a new wrapper (reference count 1) to the caller, or Nothing for nullptr.
HRESULT answerObject(VARIANT* result, IDispatch* object) {
  if (result) {
    result->vt = VT_DISPATCH;
    result->pdispVal = object;  // takes over the wrapper's one reference
  } else if (object) {
    object->Release();
  }
  return S_OK;
}

IDispatch* wrapItem(const outlook::ItemPtr& item);

// ---- Items of any kind: Class, EntryID, Save.

enum : DISPID { kClass = 1, kEntryID, kSave, kOwnFirst = 10 };

class ItemObject : public Object {
 public:
  ItemObject(outlook::ItemPtr item, std::string label)
      : Object(std::move(label)), item_(std::move(item)) {
    addMember(L"Class", kClass);
    addMember(L"EntryID", kEntryID);
    addMember(L"Save", kSave);
  }

 protected:
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    switch (id) {
      case kClass:
        if (isPut(flags)) break;
        return answer(result, Variant(item_->Class()));
      case kEntryID:
        if (isPut(flags)) break;
        return answer(result, Variant(item_->EntryID()));
      case kSave:
        if (isPut(flags)) break;
        item_->Save();
        return S_OK;
      default:
        return invokeOwn(id, flags, params, result);
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  virtual HRESULT invokeOwn(DISPID, WORD, DISPPARAMS*, VARIANT*) { return DISP_E_MEMBERNOTFOUND; }

 private:
  outlook::ItemPtr item_;
};

// ---- ContactItem.

class ContactObject final : public ItemObject {
 public:
  explicit ContactObject(std::shared_ptr<outlook::ContactItem> contact)
      : ItemObject(contact, "ContactItem"), contact_(std::move(contact)) {
    for (int p = 0; p < outlook::kContactTextPropertyCount; ++p)
      addMember(win32::widen(outlook::propertyName(static_cast<outlook::ContactProperty>(p))),
                kText + p);
    addMember(L"Gender", kGender);
    addMember(L"Birthday", kBirthday);
    addMember(L"Anniversary", kAnniversary);
    addMember(L"Delete", kDelete);
  }

 private:
  enum : DISPID { kGender = kOwnFirst, kBirthday, kAnniversary, kDelete, kText = 100 };

  HRESULT invokeOwn(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    const bool put = isPut(flags);
    switch (id) {
      case kGender:
        if (put) return contact_->setGender(assigned(params).toInt32()), S_OK;
        return answer(result, Variant(contact_->Gender()));
      case kBirthday:
        if (put) return contact_->setBirthday(assigned(params).toDate()), S_OK;
        return answer(result, Variant(contact_->Birthday()));
      case kAnniversary:
        if (put) return contact_->setAnniversary(assigned(params).toDate()), S_OK;
        return answer(result, Variant(contact_->Anniversary()));
      case kDelete:
        if (put) return DISP_E_MEMBERNOTFOUND;
        contact_->Delete();
        return S_OK;
      default:
        break;
    }
    if (id < kText || id >= kText + outlook::kContactTextPropertyCount)
      return DISP_E_MEMBERNOTFOUND;
    const auto p = static_cast<outlook::ContactProperty>(id - kText);
    if (put) return contact_->set(p, assigned(params).toString()), S_OK;
    using P = outlook::ContactProperty;
    if (p == P::Email1Address || p == P::Email2Address || p == P::Email3Address || p == P::Body)
      ++g_guardedReads;
    return answer(result, Variant(contact_->get(p)));
  }

  std::shared_ptr<outlook::ContactItem> contact_;
};

// ---- Mail: recipients and attachments.

class RecipientObject final : public Object {
 public:
  explicit RecipientObject(std::shared_ptr<outlook::Recipient> r)
      : Object("Recipient"), r_(std::move(r)) {
    addMember(L"Name", kName);
    addMember(L"Type", kType);
    addMember(L"Resolve", kResolve);
  }

 private:
  enum : DISPID { kName = 1, kType, kResolve };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    const bool put = isPut(flags);
    switch (id) {
      case kName:
        if (put) break;
        return answer(result, Variant(r_->Name()));
      case kType:
        if (put) return r_->setType(assigned(params).toInt32()), S_OK;
        return answer(result, Variant(r_->Type()));
      case kResolve:
        if (put) break;
        return answer(result, Variant(r_->Resolve()));
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::Recipient> r_;
};

class RecipientsObject final : public Object {
 public:
  explicit RecipientsObject(std::shared_ptr<outlook::Recipients> list)
      : Object("Recipients"), list_(std::move(list)) {
    addMember(L"Count", kCount);
    addMember(L"Add", kAdd);
    addMember(L"Item", DISPID_VALUE);
  }

 private:
  enum : DISPID { kCount = 1, kAdd };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    if (isPut(flags)) return DISP_E_MEMBERNOTFOUND;
    switch (id) {
      case kCount:
        return answer(result, Variant(list_->Count()));
      case kAdd:
        return answerObject(result,
                            new RecipientObject(list_->Add(required(params, 0, "Add").toString())));
      case DISPID_VALUE:
        return answerObject(
            result, new RecipientObject(list_->Item(required(params, 0, "Item").toInt32())));
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::Recipients> list_;
};

class AttachmentObject final : public Object {
 public:
  explicit AttachmentObject(std::shared_ptr<outlook::Attachment> a)
      : Object("Attachment"), a_(std::move(a)) {
    addMember(L"DisplayName", kDisplayName);
    addMember(L"PathName", kPathName);
  }

 private:
  enum : DISPID { kDisplayName = 1, kPathName };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    const bool put = isPut(flags);
    switch (id) {
      case kDisplayName:
        if (put) return a_->setDisplayName(assigned(params).toString()), S_OK;
        return answer(result, Variant(a_->DisplayName()));
      case kPathName:
        if (put) break;
        return answer(result, Variant(a_->PathName()));
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::Attachment> a_;
};

class AttachmentsObject final : public Object {
 public:
  explicit AttachmentsObject(std::shared_ptr<outlook::Attachments> list)
      : Object("Attachments"), list_(std::move(list)) {
    addMember(L"Count", kCount);
    addMember(L"Add", kAdd);
    addMember(L"Item", DISPID_VALUE);
  }

 private:
  enum : DISPID { kCount = 1, kAdd };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    if (isPut(flags)) return DISP_E_MEMBERNOTFOUND;
    switch (id) {
      case kCount:
        return answer(result, Variant(list_->Count()));
      case kAdd: {
        std::string source = required(params, 0, "Add").toString();
        auto a = list_->Add(source, optionalInt(params, 1), optionalInt(params, 2),
                            optionalText(params, 3));
        return answerObject(result, new AttachmentObject(std::move(a)));
      }
      case DISPID_VALUE:
        return answerObject(
            result, new AttachmentObject(list_->Item(required(params, 0, "Item").toInt32())));
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::Attachments> list_;
};

class MailObject final : public ItemObject {
 public:
  explicit MailObject(std::shared_ptr<outlook::MailItem> mail)
      : ItemObject(mail, "MailItem"), mail_(std::move(mail)) {
    addMember(L"Subject", kSubject);
    addMember(L"Body", kBody);
    addMember(L"Recipients", kRecipients);
    addMember(L"Attachments", kAttachments);
    addMember(L"Send", kSend);
    addMember(L"Display", kDisplay);
  }

 private:
  enum : DISPID { kSubject = kOwnFirst, kBody, kRecipients, kAttachments, kSend, kDisplay };
  HRESULT invokeOwn(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    const bool put = isPut(flags);
    switch (id) {
      case kSubject:
        if (put) return mail_->setSubject(assigned(params).toString()), S_OK;
        return answer(result, Variant(mail_->Subject()));
      case kBody:
        if (put) return mail_->setBody(assigned(params).toString()), S_OK;
        return answer(result, Variant(mail_->Body()));
      default:
        break;
    }
    if (put) return DISP_E_MEMBERNOTFOUND;
    switch (id) {
      case kRecipients:
        if (hasArguments(params))
          return answerObject(
              result,
              new RecipientObject(mail_->Recipients()->Item(argument(params, 0).toInt32())));
        return answerObject(result, new RecipientsObject(mail_->Recipients()));
      case kAttachments:
        if (hasArguments(params))
          return answerObject(
              result,
              new AttachmentObject(mail_->Attachments()->Item(argument(params, 0).toInt32())));
        return answerObject(result, new AttachmentsObject(mail_->Attachments()));
      case kSend:
        mail_->Send();
        return S_OK;
      case kDisplay:
        mail_->Display(optionalBool(params, 0));
        return S_OK;
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::MailItem> mail_;
};

// ---- AppointmentItem.

class AppointmentObject final : public ItemObject {
 public:
  explicit AppointmentObject(std::shared_ptr<outlook::AppointmentItem> a)
      : ItemObject(a, "AppointmentItem"), a_(std::move(a)) {
    addMember(L"Start", kStart);
    addMember(L"End", kEnd);
    addMember(L"Subject", kSubject);
    addMember(L"Location", kLocation);
    addMember(L"Send", kSend);
  }

 private:
  enum : DISPID { kStart = kOwnFirst, kEnd, kSubject, kLocation, kSend };
  HRESULT invokeOwn(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    const bool put = isPut(flags);
    switch (id) {
      case kStart:
        if (put) return a_->setStart(assigned(params).toDate()), S_OK;
        return answer(result, Variant(a_->Start()));
      case kEnd:
        if (put) return a_->setEnd(assigned(params).toDate()), S_OK;
        return answer(result, Variant(a_->End()));
      case kSubject:
        if (put) return a_->setSubject(assigned(params).toString()), S_OK;
        return answer(result, Variant(a_->Subject()));
      case kLocation:
        if (put) return a_->setLocation(assigned(params).toString()), S_OK;
        return answer(result, Variant(a_->Location()));
      case kSend:
        if (put) break;
        a_->Send();
        return S_OK;
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::AppointmentItem> a_;
};

IDispatch* wrapItem(const outlook::ItemPtr& item) {
  if (!item) return nullptr;
  if (auto c = std::dynamic_pointer_cast<outlook::ContactItem>(item))
    return new ContactObject(std::move(c));
  if (auto m = std::dynamic_pointer_cast<outlook::MailItem>(item))
    return new MailObject(std::move(m));
  if (auto a = std::dynamic_pointer_cast<outlook::AppointmentItem>(item))
    return new AppointmentObject(std::move(a));
  return new ItemObject(item, "Item");  // a distribution list, say
}

// ---- Folders and their items.

class ItemsObject final : public Object {
 public:
  explicit ItemsObject(std::shared_ptr<outlook::Items> items)
      : Object("Items"), items_(std::move(items)) {
    addMember(L"Count", kCount);
    addMember(L"Item", DISPID_VALUE);
    addMember(L"Find", kFind);
  }

 private:
  enum : DISPID { kCount = 1, kFind };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    if (isPut(flags)) return DISP_E_MEMBERNOTFOUND;
    switch (id) {
      case kCount:
        return answer(result, Variant(items_->Count()));
      case DISPID_VALUE:
        return answerObject(result, wrapItem(items_->Item(required(params, 0, "Item").toInt32())));
      case kFind:
        return answerObject(result, wrapItem(items_->Find(required(params, 0, "Find").toString())));
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::Items> items_;
};

class FolderObject final : public Object {
 public:
  explicit FolderObject(std::shared_ptr<outlook::MAPIFolder> folder)
      : Object("MAPIFolder"), folder_(std::move(folder)) {
    addMember(L"Items", kItems);
    addMember(L"StoreID", kStoreID);
  }

 private:
  enum : DISPID { kItems = 1, kStoreID };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    if (isPut(flags)) return DISP_E_MEMBERNOTFOUND;
    switch (id) {
      case kItems:
        // Items(i) is Items.Item(i), as hosts apply extra arguments to the default member.
        if (hasArguments(params))
          return answerObject(result,
                              wrapItem(folder_->Items()->Item(argument(params, 0).toInt32())));
        return answerObject(result, new ItemsObject(folder_->Items()));
      case kStoreID:
        return answer(result, Variant(folder_->StoreID()));
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::MAPIFolder> folder_;
};

class NameSpaceObject final : public Object {
 public:
  explicit NameSpaceObject(std::shared_ptr<outlook::NameSpace> session)
      : Object("NameSpace"), session_(std::move(session)) {
    addMember(L"Logon", kLogon);
    addMember(L"GetDefaultFolder", kGetDefaultFolder);
    addMember(L"GetItemFromID", kGetItemFromID);
  }

 private:
  enum : DISPID { kLogon = 1, kGetDefaultFolder, kGetItemFromID };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    if (isPut(flags)) return DISP_E_MEMBERNOTFOUND;
    switch (id) {
      case kLogon:
        session_->Logon(optionalText(params, 0), optionalText(params, 1), optionalBool(params, 2),
                        optionalBool(params, 3));
        return S_OK;
      case kGetDefaultFolder:
        return answerObject(result, new FolderObject(session_->GetDefaultFolder(
                                        required(params, 0, "GetDefaultFolder").toInt32())));
      case kGetItemFromID: {
        std::string entryId = required(params, 0, "GetItemFromID").toString();
        return answerObject(result, wrapItem(session_->GetItemFromID(
                                        entryId, optionalText(params, 1).value_or(""))));
      }
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::NameSpace> session_;
};

class ApplicationObject final : public Object {
 public:
  explicit ApplicationObject(std::shared_ptr<outlook::Application> app)
      : Object("Application"), app_(std::move(app)) {
    addMember(L"GetNamespace", kGetNamespace);
    addMember(L"CreateItem", kCreateItem);
    addMember(L"Name", kName);
    addMember(L"GuardedReads", kGuardedReads);  // the stand-in's own, for the tests
    addMember(L"DialogLog", kDialogLog);
  }

 private:
  enum : DISPID { kGetNamespace = 1, kCreateItem, kName, kGuardedReads, kDialogLog };
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    if (isPut(flags)) return DISP_E_MEMBERNOTFOUND;
    switch (id) {
      case kGetNamespace:
        return answerObject(result, new NameSpaceObject(app_->GetNamespace(
                                        required(params, 0, "GetNamespace").toString())));
      case kCreateItem:
        return answerObject(
            result, wrapItem(app_->CreateItem(required(params, 0, "CreateItem").toInt32())));
      case kName:
        return answer(result, Variant("Outlook"));
      case kGuardedReads:
        return answer(result, Variant(static_cast<int32_t>(g_guardedReads.load())));
      case kDialogLog:
        return answer(result, Variant(dialogLog()));
      default:
        break;
    }
    return DISP_E_MEMBERNOTFOUND;
  }
  std::shared_ptr<outlook::Application> app_;
};

}  // namespace

IDispatch* newApplicationObject(std::shared_ptr<outlook::Application> app) {
  return new ApplicationObject(std::move(app));
}

long liveObjects() {
  return g_live.load();
}

}  // namespace dossync::standin
