#include "report/watched_outlook.h"

#include <map>

#include "core/value.h"

namespace dossync::report {
namespace {

using State = std::vector<std::pair<std::string, std::string>>;

struct Shared {
  bool preview = false;
  WatchListener listener;
  // Preview: the items saved in this run, by entry id, in the order of their first save.
  std::map<std::string, std::shared_ptr<outlook::ContactItem>> kept;
  std::vector<std::string> keptOrder;
  int nextId = 1;
};

// What every stand-in holds: the run's shared state and the object it stands in front of.
template <class Interface>
class Watched : public Interface {
 public:
  Watched(std::shared_ptr<Shared> shared, std::shared_ptr<Interface> inner)
      : shared_(std::move(shared)), inner_(std::move(inner)) {}

 protected:
  std::shared_ptr<Shared> shared_;
  std::shared_ptr<Interface> inner_;
};

class WatchedContact : public outlook::ContactItem,
                       public std::enable_shared_from_this<WatchedContact> {
 public:
  WatchedContact(std::shared_ptr<Shared> shared, outlook::ContactItemPtr inner, bool created)
      : shared_(std::move(shared)),
        inner_(std::move(inner)),
        created_(created),
        before_(outlook::contactProperties(*inner_, false)) {}
  std::string EntryID() const override { return id_.empty() ? inner_->EntryID() : id_; }
  void Save() override {
    State now = outlook::contactProperties(*this, false);
    ItemSave save;
    save.created = created_ && !savedOnce_;
    for (size_t i = 0; i < now.size(); ++i) {
      if (now[i].second != before_[i].second)
        save.changes.push_back({"item", now[i].first, before_[i].second, now[i].second});
    }
    if (shared_->preview) {
      if (EntryID().empty()) id_ = "preview-" + std::to_string(shared_->nextId++);
      if (!shared_->kept.count(EntryID())) shared_->keptOrder.push_back(EntryID());
      shared_->kept[EntryID()] = shared_from_this();
    } else {
      inner_->Save();
    }
    savedOnce_ = true;
    before_ = std::move(now);
    save.entryId = EntryID();
    if (shared_->listener.saved) shared_->listener.saved(save);
  }
  std::string get(outlook::ContactProperty p) const override { return inner_->get(p); }
  void set(outlook::ContactProperty p, const std::string& v) override { inner_->set(p, v); }
  int32_t Gender() const override { return inner_->Gender(); }
  void setGender(int32_t g) override { inner_->setGender(g); }
  value::Date Birthday() const override { return inner_->Birthday(); }
  void setBirthday(const value::Date& d) override { inner_->setBirthday(d); }
  value::Date Anniversary() const override { return inner_->Anniversary(); }
  void setAnniversary(const value::Date& d) override { inner_->setAnniversary(d); }

 private:

  std::shared_ptr<Shared> shared_;
  outlook::ContactItemPtr inner_;
  bool created_;
  bool savedOnce_ = false;
  std::string id_;  // preview: the entry id a new item was kept under
  State before_;
};

std::string nameOf(const outlook::ContactItem& c) {
  for (auto p : {outlook::ContactProperty::FileAs, outlook::ContactProperty::FullName,
                 outlook::ContactProperty::CompanyName}) {
    std::string n = c.get(p);
    if (!n.empty()) return n;
  }
  return "";
}

outlook::ItemPtr wrap(const std::shared_ptr<Shared>& shared, outlook::ItemPtr item) {
  auto contact = std::dynamic_pointer_cast<outlook::ContactItem>(item);
  if (!contact || std::dynamic_pointer_cast<WatchedContact>(contact)) return item;
  if (shared->preview) {
    auto kept = shared->kept.find(contact->EntryID());
    if (kept != shared->kept.end()) return kept->second;
  }
  return std::make_shared<WatchedContact>(shared, contact, false);
}

class WatchedItems : public Watched<outlook::Items> {
 public:
  using Watched::Watched;
  int32_t Count() override { return inner_->Count(); }
  outlook::ItemPtr Item(int32_t index) override { return wrap(shared_, inner_->Item(index)); }
  outlook::ItemPtr Find(const std::string& filter) override {
    auto found = wrap(shared_, inner_->Find(filter));
    if (!shared_->preview) return found;
    // In a preview the store does not know what the run saved: the first item filed under the
    // name, of those the store has (as the run left them) and then those the run made.
    size_t open = filter.find('"'), close = filter.rfind('"');
    if (open == std::string::npos || close <= open) return found;
    std::string name = filter.substr(open + 1, close - open - 1);
    auto filedUnder = [&](const outlook::ItemPtr& i) {
      auto c = std::dynamic_pointer_cast<outlook::ContactItem>(i);
      return c && value::compareText(c->FileAs(), name) == 0;
    };
    if (found && filedUnder(found)) return found;
    for (const auto& id : shared_->keptOrder) {
      if (filedUnder(shared_->kept[id])) return shared_->kept[id];
    }
    return nullptr;
  }

};

class WatchedFolder : public Watched<outlook::MAPIFolder> {
 public:
  using Watched::Watched;
  std::shared_ptr<outlook::Items> Items() override {
    auto items = inner_->Items();
    return items ? std::make_shared<WatchedItems>(shared_, items) : nullptr;
  }
  std::string StoreID() const override { return inner_->StoreID(); }

};

class WatchedNameSpace : public Watched<outlook::NameSpace> {
 public:
  using Watched::Watched;
  void Logon(std::optional<std::string> profile, std::optional<std::string> password,
             std::optional<bool> showDialog, std::optional<bool> newSession) override {
    inner_->Logon(std::move(profile), std::move(password), showDialog, newSession);
  }
  std::shared_ptr<outlook::MAPIFolder> GetDefaultFolder(int32_t folder) override {
    auto f = inner_->GetDefaultFolder(folder);
    if (!f || folder != outlook::olFolderContacts) return f;
    return std::make_shared<WatchedFolder>(shared_, f);
  }
  outlook::ItemPtr GetItemFromID(const std::string& entryId, const std::string& storeId) override {
    outlook::ItemPtr item;
    auto kept = shared_->kept.find(entryId);
    if (shared_->preview && kept != shared_->kept.end()) {
      item = kept->second;
    } else {
      item = wrap(shared_, inner_->GetItemFromID(entryId, storeId));
    }
    auto contact = std::dynamic_pointer_cast<outlook::ContactItem>(item);
    if (contact && shared_->listener.opened) shared_->listener.opened(entryId, nameOf(*contact));
    return item;
  }

};

class WatchedApplication : public Watched<outlook::Application> {
 public:
  using Watched::Watched;
  // The items a preview kept hold the shared state they are kept in: let them go with the
  // application, which the run's objects all came from.
  ~WatchedApplication() override {
    shared_->kept.clear();
    shared_->keptOrder.clear();
  }
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& type) override {
    auto ns = inner_->GetNamespace(type);
    return ns ? std::make_shared<WatchedNameSpace>(shared_, ns) : nullptr;
  }
  outlook::ItemPtr CreateItem(int32_t itemType) override {
    auto item = inner_->CreateItem(itemType);
    auto contact = std::dynamic_pointer_cast<outlook::ContactItem>(item);
    if (!contact) return item;
    return std::make_shared<WatchedContact>(shared_, contact, true);
  }

};

}  // namespace

std::shared_ptr<outlook::Application> watchOutlook(std::shared_ptr<outlook::Application> real,
                                                   bool preview, WatchListener listener) {
  auto shared = std::make_shared<Shared>();
  shared->preview = preview;
  shared->listener = std::move(listener);
  return std::make_shared<WatchedApplication>(shared, std::move(real));
}

}  // namespace dossync::report
