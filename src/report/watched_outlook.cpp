#include "report/watched_outlook.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <unordered_map>

#include "base/value.h"

namespace dossync::report {
namespace {

using P = outlook::ContactProperty;

// What a watched item compares, in the order of outlook::contactProperties: the text
// properties, then Gender (its number), Birthday and Anniversary (text, "" for none).
constexpr int kGender = outlook::kContactTextPropertyCount;
constexpr int kSlots = kGender + 3;

std::string slotName(int s) {
  static const char* const others[] = {"Gender", "Birthday", "Anniversary"};
  return s < kGender ? outlook::propertyName(static_cast<P>(s)) : others[s - kGender];
}

class WatchedContact;

// An item a preview kept: its place in the order of first saves, and the name (folded) it was
// last saved under.
struct Kept {
  std::shared_ptr<WatchedContact> item;
  size_t order = 0;
  std::string fileAs;
};

struct Shared {
  bool preview = false;
  WatchListener listener;
  // Preview: the items saved in this run, by entry id, and by the name they were saved under
  // (folded; the entry ids by order of first save).
  std::unordered_map<std::string, Kept> kept;
  std::unordered_map<std::string, std::map<size_t, std::string>> keptByFileAs;
  int nextId = 1;

  void keep(const std::string& entryId, std::shared_ptr<WatchedContact> item,
            const std::string& fileAs) {
    std::string key = value::foldCase(fileAs);
    auto [at, isNew] = kept.try_emplace(entryId);
    Kept& k = at->second;
    if (isNew) {
      k.order = kept.size();
    } else if (k.fileAs != key) {
      auto old = keptByFileAs.find(k.fileAs);
      old->second.erase(k.order);
      if (old->second.empty()) keptByFileAs.erase(old);
    }
    if (isNew || k.fileAs != key) keptByFileAs[key].emplace(k.order, entryId);
    k.item = std::move(item);
    k.fileAs = std::move(key);
  }
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

// The watch reads no more than the run does: an item's old value of a property is the one the
// run read before setting it, or, for a property the back end does not guard, read by the watch
// just before the run's first set of it; a property the run leaves alone is not read at all, and
// a new item held nothing. A guarded property set without being read first is a change whose
// old value is not known. What a save changed is what the run set to another value since the
// last save.
class WatchedContact : public outlook::ContactItemProxy,
                       public std::enable_shared_from_this<WatchedContact> {
 public:
  WatchedContact(std::shared_ptr<Shared> shared, outlook::ContactItemPtr inner, bool created)
      : ContactItemProxy(std::move(inner)), shared_(std::move(shared)), created_(created) {
    if (created_) before_.fill(std::string());
  }
  std::string EntryID() const override { return id_.empty() ? inner_->EntryID() : id_; }
  void Save() override {
    ItemSave save;
    save.created = created_ && !savedOnce_;
    save.changes.reserve(
        static_cast<size_t>(std::count(setSinceSave_.begin(), setSinceSave_.end(), true)));
    for (int s = 0; s < kSlots; ++s) {
      if (setSinceSave_[s] && setTo_[s] != before_[s]) {
        save.changes.push_back(
            {"item", slotName(s), before_[s].value_or(""), setTo_[s], before_[s].has_value()});
      }
    }
    if (shared_->preview) {
      if (EntryID().empty()) id_ = "preview-" + std::to_string(shared_->nextId++);
      constexpr int kFileAs = static_cast<int>(P::FileAs);
      if (!setSinceSave_[kFileAs] && !before_[kFileAs]) before_[kFileAs] = inner_->get(P::FileAs);
      shared_->keep(EntryID(), shared_from_this(),
                    setSinceSave_[kFileAs] ? setTo_[kFileAs] : *before_[kFileAs]);
    } else {
      inner_->Save();  // a save that fails leaves the changes to the next one
    }
    for (int s = 0; s < kSlots; ++s) {
      if (!setSinceSave_[s]) continue;
      setSinceSave_[s] = false;
      before_[s] = std::move(setTo_[s]);
    }
    savedOnce_ = true;
    save.entryId = EntryID();
    if (shared_->listener.saved) shared_->listener.saved(std::move(save));
  }
  // A preview deletes nothing.
  void Delete() override {
    if (!shared_->preview) inner_->Delete();
  }
  std::string get(P p) const override {
    std::string v = inner_->get(p);
    read(static_cast<int>(p), v);
    return v;
  }
  void set(P p, const std::string& v) override {
    int s = static_cast<int>(p);
    if (!before_[s] && !setSinceSave_[s] && !inner_->guarded(p)) before_[s] = inner_->get(p);
    inner_->set(p, v);
    wrote(s, v);
  }
  int32_t Gender() const override {
    int32_t g = inner_->Gender();
    read(kGender, std::to_string(g));
    return g;
  }
  void setGender(int32_t g) override {
    if (!before_[kGender] && !setSinceSave_[kGender]) Gender();
    inner_->setGender(g);
    wrote(kGender, std::to_string(g));
  }
  value::Date Birthday() const override {
    value::Date d = inner_->Birthday();
    read(kGender + 1, dateText(d));
    return d;
  }
  void setBirthday(const value::Date& d) override {
    if (!before_[kGender + 1] && !setSinceSave_[kGender + 1]) Birthday();
    inner_->setBirthday(d);
    wrote(kGender + 1, dateText(d));
  }
  value::Date Anniversary() const override {
    value::Date d = inner_->Anniversary();
    read(kGender + 2, dateText(d));
    return d;
  }
  void setAnniversary(const value::Date& d) override {
    if (!before_[kGender + 2] && !setSinceSave_[kGender + 2]) Anniversary();
    inner_->setAnniversary(d);
    wrote(kGender + 2, dateText(d));
  }

 private:
  static std::string dateText(const value::Date& d) {
    return d == outlook::kNoDate ? std::string() : value::toText(d);
  }
  // A value the run read: the old one when nothing was set since the last save, else what the
  // item holds after the run's set (the back end may have tidied it).
  void read(int s, const std::string& v) const {
    if (setSinceSave_[s]) {
      setTo_[s] = v;
    } else if (!before_[s]) {
      before_[s] = v;
    }
  }
  void wrote(int s, const std::string& v) {
    setSinceSave_[s] = true;
    setTo_[s] = v;
  }

  std::shared_ptr<Shared> shared_;
  bool created_;
  bool savedOnce_ = false;
  std::string id_;  // preview: the entry id a new item was kept under
  // The values as last saved (as opened, before the first save), as far as known; those the
  // run set since, and to what.
  mutable std::array<std::optional<std::string>, kSlots> before_;
  mutable std::array<std::string, kSlots> setTo_;
  std::array<bool, kSlots> setSinceSave_{};
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
    if (kept != shared->kept.end()) return kept->second.item;
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
    auto named = shared_->keptByFileAs.find(value::foldCase(name));
    if (named == shared_->keptByFileAs.end()) return nullptr;
    for (const auto& [order, id] : named->second) {
      const auto& item = shared_->kept.at(id).item;
      if (filedUnder(item)) return item;
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
      item = kept->second.item;
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
    shared_->keptByFileAs.clear();
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
