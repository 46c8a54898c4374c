#include "objects.h"

#include <atomic>
#include <functional>
#include <map>
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

// What a member does when got or called, and when assigned (none: the member is read-only).
using Get = std::function<HRESULT(DISPPARAMS*, VARIANT*)>;
using Put = std::function<void(const Variant&)>;

template <typename F>
Get value(F f) {
  return [f](DISPPARAMS*, VARIANT* result) {
    Variant(f()).copyTo(result);
    return S_OK;
  };
}
template <typename F>
Get method(F f) {
  return [f](DISPPARAMS* params, VARIANT*) {
    f(params);
    return S_OK;
  };
}
// A member that answers a new wrapper (or Nothing for nullptr), handing the caller its one
// reference.
template <typename F>
Get object(F f) {
  return [f](DISPPARAMS* params, VARIANT* result) {
    IDispatch* object = f(params);
    if (result) {
      result->vt = VT_DISPATCH;
      result->pdispVal = object;
    } else if (object) {
      object->Release();
    }
    return S_OK;
  };
}

// The base of every wrapper: its members by name, counted, and named in errors. "Item" is the
// default member.
class Object : public win32::DispatchServer {
 public:
  explicit Object(std::string label) : label_(std::move(label)) { ++g_live; }
  ~Object() override { --g_live; }

 protected:
  std::string label() const override { return label_; }

  void add(const std::wstring& name, Get get, Put put = nullptr) {
    DISPID id = name == L"Item" ? DISPID_VALUE : static_cast<DISPID>(members_.size()) + 1;
    addMember(name, id);
    members_[id] = {std::move(get), std::move(put)};
  }
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    auto m = members_.find(id);
    if (m == members_.end()) return DISP_E_MEMBERNOTFOUND;
    if (!(flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)))
      return m->second.first(params, result);
    if (!m->second.second) return DISP_E_MEMBERNOTFOUND;
    m->second.second(assigned(params));
    return S_OK;
  }

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
  template <typename T>
  static std::optional<T> optional(const DISPPARAMS* params, unsigned i, T (Variant::*as)() const) {
    Variant v = argument(params, i);
    if (v.isMissing()) return std::nullopt;
    return (v.*as)();
  }
  static std::optional<std::string> text(const DISPPARAMS* params, unsigned i) {
    return optional(params, i, &Variant::toString);
  }

 private:
  std::string label_;
  std::map<DISPID, std::pair<Get, Put>> members_;
};

class ItemObject : public Object {
 public:
  ItemObject(const outlook::ItemPtr& item, std::string label) : Object(std::move(label)) {
    add(L"Class", value([item] { return item->Class(); }));
    add(L"EntryID", value([item] { return item->EntryID(); }));
    add(L"Save", method([item](DISPPARAMS*) { item->Save(); }));
  }
};

class ContactObject final : public ItemObject {
 public:
  explicit ContactObject(const std::shared_ptr<outlook::ContactItem>& c)
      : ItemObject(c, "ContactItem") {
    using P = outlook::ContactProperty;
    for (int i = 0; i < outlook::kContactTextPropertyCount; ++i) {
      const auto p = static_cast<P>(i);
      const bool guarded =
          p == P::Email1Address || p == P::Email2Address || p == P::Email3Address || p == P::Body;
      add(win32::widen(outlook::propertyName(p)), value([c, p, guarded] {
            if (guarded) ++g_guardedReads;
            return c->get(p);
          }),
          [c, p](const Variant& v) { c->set(p, v.toString()); });
    }
    add(L"Gender", value([c] { return c->Gender(); }),
        [c](const Variant& v) { c->setGender(v.toInt32()); });
    add(L"Birthday", value([c] { return c->Birthday(); }),
        [c](const Variant& v) { c->setBirthday(v.toDate()); });
    add(L"Anniversary", value([c] { return c->Anniversary(); }),
        [c](const Variant& v) { c->setAnniversary(v.toDate()); });
    add(L"Delete", method([c](DISPPARAMS*) { c->Delete(); }));
  }
};

class RecipientObject final : public Object {
 public:
  explicit RecipientObject(std::shared_ptr<outlook::Recipient> r) : Object("Recipient") {
    add(L"Name", value([r] { return r->Name(); }));
    add(L"Type", value([r] { return r->Type(); }),
        [r](const Variant& v) { r->setType(v.toInt32()); });
    add(L"Resolve", value([r] { return r->Resolve(); }));
  }
};

class RecipientsObject final : public Object {
 public:
  explicit RecipientsObject(std::shared_ptr<outlook::Recipients> list) : Object("Recipients") {
    add(L"Count", value([list] { return list->Count(); }));
    add(L"Add", object([this, list](DISPPARAMS* p) {
          return new RecipientObject(list->Add(required(p, 0, "Add").toString()));
        }));
    add(L"Item", object([this, list](DISPPARAMS* p) {
          return new RecipientObject(list->Item(required(p, 0, "Item").toInt32()));
        }));
  }
};

class AttachmentObject final : public Object {
 public:
  explicit AttachmentObject(std::shared_ptr<outlook::Attachment> a) : Object("Attachment") {
    add(L"DisplayName", value([a] { return a->DisplayName(); }),
        [a](const Variant& v) { a->setDisplayName(v.toString()); });
    add(L"PathName", value([a] { return a->PathName(); }));
  }
};

class AttachmentsObject final : public Object {
 public:
  explicit AttachmentsObject(std::shared_ptr<outlook::Attachments> list) : Object("Attachments") {
    add(L"Count", value([list] { return list->Count(); }));
    add(L"Add", object([this, list](DISPPARAMS* p) {
          std::string source = required(p, 0, "Add").toString();
          return new AttachmentObject(list->Add(source, optional(p, 1, &Variant::toInt32),
                                                optional(p, 2, &Variant::toInt32), text(p, 3)));
        }));
    add(L"Item", object([this, list](DISPPARAMS* p) {
          return new AttachmentObject(list->Item(required(p, 0, "Item").toInt32()));
        }));
  }
};

class MailObject final : public ItemObject {
 public:
  explicit MailObject(const std::shared_ptr<outlook::MailItem>& m) : ItemObject(m, "MailItem") {
    add(L"Subject", value([m] { return m->Subject(); }),
        [m](const Variant& v) { m->setSubject(v.toString()); });
    add(L"Body", value([m] { return m->Body(); }),
        [m](const Variant& v) { m->setBody(v.toString()); });
    add(L"Recipients", object([m](DISPPARAMS* p) -> IDispatch* {
          if (hasArguments(p))
            return new RecipientObject(m->Recipients()->Item(argument(p, 0).toInt32()));
          return new RecipientsObject(m->Recipients());
        }));
    add(L"Attachments", object([m](DISPPARAMS* p) -> IDispatch* {
          if (hasArguments(p))
            return new AttachmentObject(m->Attachments()->Item(argument(p, 0).toInt32()));
          return new AttachmentsObject(m->Attachments());
        }));
    add(L"Send", method([m](DISPPARAMS*) { m->Send(); }));
    add(L"Display", method([m](DISPPARAMS* p) { m->Display(optional(p, 0, &Variant::toBool)); }));
  }
};

IDispatch* wrapItem(const outlook::ItemPtr& item) {
  if (!item) return nullptr;
  if (auto c = std::dynamic_pointer_cast<outlook::ContactItem>(item)) return new ContactObject(c);
  if (auto m = std::dynamic_pointer_cast<outlook::MailItem>(item)) return new MailObject(m);
  return new ItemObject(item, "Item");  // a distribution list or an appointment, say
}

class ItemsObject final : public Object {
 public:
  explicit ItemsObject(std::shared_ptr<outlook::Items> items) : Object("Items") {
    add(L"Count", value([items] { return items->Count(); }));
    add(L"Item", object([this, items](DISPPARAMS* p) {
          return wrapItem(items->Item(required(p, 0, "Item").toInt32()));
        }));
    add(L"Find", object([this, items](DISPPARAMS* p) {
          return wrapItem(items->Find(required(p, 0, "Find").toString()));
        }));
  }
};

class FolderObject final : public Object {
 public:
  explicit FolderObject(std::shared_ptr<outlook::MAPIFolder> folder) : Object("MAPIFolder") {
    // Items(i) is Items.Item(i), as hosts apply extra arguments to the default member.
    add(L"Items", object([folder](DISPPARAMS* p) -> IDispatch* {
          if (hasArguments(p)) return wrapItem(folder->Items()->Item(argument(p, 0).toInt32()));
          return new ItemsObject(folder->Items());
        }));
    add(L"StoreID", value([folder] { return folder->StoreID(); }));
  }
};

class NameSpaceObject final : public Object {
 public:
  explicit NameSpaceObject(std::shared_ptr<outlook::NameSpace> s) : Object("NameSpace") {
    add(L"Logon", method([s](DISPPARAMS* p) {
          s->Logon(text(p, 0), text(p, 1), optional(p, 2, &Variant::toBool),
                   optional(p, 3, &Variant::toBool));
        }));
    add(L"GetDefaultFolder", object([this, s](DISPPARAMS* p) {
          return new FolderObject(
              s->GetDefaultFolder(required(p, 0, "GetDefaultFolder").toInt32()));
        }));
    add(L"GetItemFromID", object([this, s](DISPPARAMS* p) {
          std::string entryId = required(p, 0, "GetItemFromID").toString();
          return wrapItem(s->GetItemFromID(entryId, text(p, 1).value_or("")));
        }));
  }
};

class ApplicationObject final : public Object {
 public:
  explicit ApplicationObject(std::shared_ptr<outlook::Application> app) : Object("Application") {
    add(L"GetNamespace", object([this, app](DISPPARAMS* p) {
          return new NameSpaceObject(app->GetNamespace(required(p, 0, "GetNamespace").toString()));
        }));
    add(L"CreateItem", object([this, app](DISPPARAMS* p) {
          return wrapItem(app->CreateItem(required(p, 0, "CreateItem").toInt32()));
        }));
    add(L"Name", value([] { return std::string("Outlook"); }));
    // The stand-in's own, for the tests.
    add(L"GuardedReads", value([] { return static_cast<int32_t>(g_guardedReads.load()); }));
    add(L"DialogLog", value([] { return dialogLog(); }));
  }
};

}  // namespace

IDispatch* newApplicationObject(std::shared_ptr<outlook::Application> app) {
  return new ApplicationObject(std::move(app));
}

long liveObjects() {
  return g_live.load();
}

}  // namespace dossync::standin
