// The two-way run: reads the pairs, the host's companies and contacts and the address book once
// each, decides what every record needs (a merge, a new item, new host records, a deletion),
// refuses a run that would delete too much, then does it record by record.
#include "twoway/two_way.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/value.h"
#include "core/apartment.h"
#include "core/error_frame.h"
#include "core/host_database.h"
#include "core/recordset.h"
#include "core/run_stop.h"
#include "core/synchronization.h"
#include "hostdb/default_contacts.h"
#include "hostdb/lookups.h"
#include "hostdb/new_records.h"
#include "interfaces/progress.h"
#include "twoway/fields.h"
#include "twoway/pair_state.h"

namespace dossync::twoway {
namespace {

using ItemPtr = outlook::ContactItemPtr;

// A host procedure reported an error (and answered its fallback): the record ends here, and is
// undone as a failed one.
struct RecordAbandoned {};

// Runs a host procedure, which handles its own errors; one it reported ends the record.
template <class Call>
auto hostCall(Call&& call) {
  const uint64_t before = ErrorFrame::errorsReported();
  auto result = call();
  if (ErrorFrame::errorsReported() != before) throw RecordAbandoned{};
  return result;
}

// A record's values, one text per field of its half, kept in one string (each after its length).
class Packed {
 public:
  void add(const std::string& v) {
    data_ += std::to_string(v.size());
    data_ += ':';
    data_ += v;
  }
  std::vector<std::string> all() const {
    std::vector<std::string> out;
    for (size_t at = 0; at < data_.size();) {
      size_t colon = data_.find(':', at);
      size_t size = std::stoul(data_.substr(at, colon - at));
      out.push_back(data_.substr(colon + 1, size));
      at = colon + 1 + size;
    }
    return out;
  }
  bool empty() const { return data_.empty(); }
  void fit() { data_.shrink_to_fit(); }  // once filled: no room kept for growth

 private:
  std::string data_;
};

// What the run keeps of each record: its keys and a hash of its values, and the values
// themselves only for a record no pair holds yet (a paired one's are read again when it
// changed). So a run keeps a few dozen bytes a record, whatever the records hold.
// The first run, which adopts the one-way pairings, keeps no values of the host records those
// name (they are read again as each pair is merged, a look-up by key), nor of an item that holds
// exactly its host record's values in the item's form, as the one-way run wrote it (the merge
// makes them from the host's): so its peak is not every record's values at once.
struct HostCompany {
  std::string name;
  uint64_t hash = 0;    // of the company fields
  uint64_t asItem = 0;  // adoptable: of its values in the item's form (with its default contact's)
  Packed values;
  bool paired = false;
};

struct ItemKeys {
  std::string entryID, fileAs, companyName;
  uint64_t hash = 0;  // of every field's value, in the item's form
  Packed values;
  bool likeHost = false;  // values not kept: they are the adopted host record's, in item form
};

struct HostContact {
  int32_t company = -1;
  bool isDefault = false;
  std::string name, businessName;
  uint64_t hash = 0;    // of the contact fields (read for the contacts a run may merge)
  uint64_t asItem = 0;  // type 7, adoptable: of its values in the item's form
  Packed values;
  bool paired = false;
};

enum class JobKind { Merge, NewItem, NewHost, MarkDeleted, DeleteItem, Forget, Restore };

struct Job {
  JobKind kind;
  size_t row = 0;     // Merge, MarkDeleted, DeleteItem, Forget, Restore: the pair
  int32_t host = -1;  // NewItem: the company (1) or contact (7)
  size_t item = 0;    // NewHost: the item
};

std::string keptSide(const Settings& s) {
  return s.conflict == ConflictRule::Host ? "host" : "outlook";
}

class Run {
 public:
  Run(clsOutlookSynchronization& c, const Settings& s, ErrorFrame& f)
      : c_(c),
        settings_(s),
        f_(f),
        info_(c.SyncInformationType() == 7 ? 7 : 1),
        fields_(fieldsOf(info_)) {
    for (size_t i = 0; i < fields_.size(); ++i)
      (fields_[i].company ? companyFields_ : contactFields_).push_back(i);
  }

  void go();

 private:
  // ---- Reading.
  void readHost();
  void readCompanies();
  void readContacts();
  void readItems();
  void planPairs();
  void planAdoption();
  void markAdoptable();
  template <class Use>
  void eachOneWayPairing(Use&& use);
  // Folds the values of the fields `list` (host texts) into `hash` in the item's form; false
  // when one cannot be an item's value.
  bool hashAsItem(uint64_t& hash, const std::vector<size_t>& list,
                  const std::vector<std::string>& values) const;
  void keepValues(ItemKeys& keys);
  void planUnpaired();

  // ---- Doing.
  void runJob(const Job& job);
  void merge(PairRow& row);
  void newItem(int32_t host, PairRow* restored);
  void newHost(size_t item);
  void deleteItem(PairRow& row);

  // The host side of a pair: its company (type 1) and contact, -1 for none.
  struct HostSide {
    int32_t company = -1, contact = -1;
  };
  // Whether an item's company field holds what a one-way run writes in its place when the
  // company has none: the default contact's own business telephone, fax or web page.
  bool standsIn(const Field& f, const HostSide& h, const std::string& itemText);
  // The host's values of every field (those of a missing half "").
  std::vector<std::string> hostValues(const HostSide& h);
  uint64_t hostHash(const std::vector<std::string>& hostNow, const HostSide& h) const {
    size_t split = companyFields_.size();
    return combine(info_ == 1 ? hashValues(hostNow, 0, split) : 0,
                   h.contact >= 0 ? hashValues(hostNow, split) : 0);
  }
  // The item itself, for a change: looked up again by its entry id.
  ItemPtr fetch(const std::string& entryID);
  std::vector<std::string> valuesOf(const outlook::ContactItem& item) const {
    std::vector<std::string> out;
    for (const Field& f : fields_) out.push_back(itemValue(item, f));
    return out;
  }
  std::string hostKey(const PairRow& row) const {
    return std::to_string(info_ == 1 ? row.companyNum : row.contactNum);
  }
  bool hostExists(const PairRow& row) const {
    return info_ == 1 ? companies_.count(row.companyNum) > 0 : contacts_.count(row.contactNum) > 0;
  }
  std::optional<size_t> itemOf(const std::string& entryID) const {
    auto it = byEntry_.find(entryID);
    if (it == byEntry_.end()) return std::nullopt;
    return it->second;
  }
  int32_t freeDefaultContact(int32_t company) const {
    auto it = defaults_.find(company);
    if (it == defaults_.end() || usedContacts_.count(it->second)) return -1;
    return it->second;
  }
  // Writes the item's values of the fields into a host row; answers the texts the row holds now.
  void writeHostRow(hostdb::Recordset& rs, const std::vector<std::string>& itemNow, bool company,
                    std::vector<std::string>& held);
  // The pair's base as both sides hold it now: its text and hashes.
  void setBase(PairRow& row, const HostSide& h, const std::vector<std::string>& hostNow,
               const std::vector<std::string>& itemNow) const;
  void note(const std::string& text) {
    observeRun([&](IRunObserver& o) { o.recordNote(text); });
  }
  void action(const char* a) {
    observeRun([&](IRunObserver& o) { o.recordAction(a); });
  }

  clsOutlookSynchronization& c_;
  const Settings& settings_;
  ErrorFrame& f_;
  const int32_t info_;
  const std::vector<Field>& fields_;
  std::vector<size_t> companyFields_, contactFields_;
  std::unordered_set<int32_t> hostInRows_;       // companies (1) or contacts (7) of the pairs
  std::unordered_set<std::string> itemsInRows_;  // while the items are read
  // The first run, while it reads: the host records the one-way pairings name, and the items
  // (entry id -> the host record of its first pairing).
  std::unordered_set<int32_t> adoptHost_;
  std::unordered_map<std::string, int32_t> adoptItem_;
  hostdb::IDataAccess* db_ = nullptr;
  std::unique_ptr<PairStore> store_;

  std::vector<PairRow> rows_;
  std::unordered_map<int32_t, HostCompany> companies_;
  std::vector<int32_t> companyOrder_;
  std::unordered_map<int32_t, HostContact> contacts_;
  std::vector<int32_t> contactOrder_;
  std::unordered_map<int32_t, int32_t> defaults_;  // company -> its (first) default contact
  std::unordered_set<int32_t> usedContacts_;       // contacts some pair's contact half holds
  std::unordered_map<std::string, std::vector<int32_t>> companiesByName_;  // exact names

  std::shared_ptr<outlook::MAPIFolder> folder_;
  std::string storeID_;
  std::vector<ItemKeys> items_;
  std::vector<bool> itemPaired_;
  std::unordered_map<std::string_view, size_t> byEntry_;  // views of items_' entry ids
  // Items by a hash of their FileAs: the one item filed under it, or kSeveral.
  static constexpr size_t kSeveral = static_cast<size_t>(-1);
  std::unordered_map<uint64_t, size_t> byFileAs_;

  std::vector<Job> jobs_;
};

// ---------------------------------------------------------------------------------------------
// Reading

void Run::readHost() {
  readCompanies();
  readContacts();
  std::unordered_set<int32_t>().swap(hostInRows_);
  std::unordered_set<int32_t>().swap(adoptHost_);
}

// Calls `use` with each pairing the one-way runs keep for the scheme (host number, entry id),
// leaving out the rows that pair nothing.
template <class Use>
void Run::eachOneWayPairing(Use&& use) {
  auto& sync = apartment().syncDb;
  if (!sync) return;
  hostdb::Recordset rs(*sync, c_.mappingStatement());
  const char* keyColumn = info_ == 1 ? "CompanyNum" : "ContactNum";
  while (!rs.eof()) {
    std::string key = rs.read(keyColumn), entryID = rs.read("OutlookID");
    rs.next();
    if (value::isBlank(key) || !value::isNumeric(key) || value::isBlank(entryID) || entryID == "-1")
      continue;
    use(static_cast<int32_t>(value::toLong(key)), std::move(entryID));
  }
}

void Run::markAdoptable() {
  eachOneWayPairing([&](int32_t number, std::string entryID) {
    adoptHost_.insert(number);
    adoptItem_.emplace(std::move(entryID), number);
  });
}

bool Run::hashAsItem(uint64_t& hash, const std::vector<size_t>& list,
                     const std::vector<std::string>& values) const {
  try {
    for (size_t k = 0; k < list.size(); ++k)
      hash = hashOn(hash, asItemValue(fields_[list[k]], k < values.size() ? values[k] : ""));
    return true;
  } catch (const RuntimeError&) {
    return false;  // a date no item can hold: the item cannot be this record's form
  }
}

void Run::keepValues(ItemKeys& keys) {
  if (!keys.likeHost) return;
  ItemPtr item = fetch(keys.entryID);
  keys.fileAs = item->FileAs();
  if (info_ == 7) keys.companyName = item->CompanyName();
  for (const std::string& v : valuesOf(*item)) keys.values.add(v);
  keys.values.fit();
  keys.likeHost = false;
}

// Each table's recordset is let go before the next is read: what it holds of the table is the
// larger part of a run's memory.
void Run::readCompanies() {
  hostdb::Recordset companies(*db_, hostdb::kCompanies);
  while (!companies.eof()) {
    int32_t id = value::toLong(companies.read("CompanyID"));
    HostCompany& co = companies_[id];
    co.name = companies.read("CompanyName");
    if (info_ == 1) {
      std::vector<std::string> values;
      for (size_t i : companyFields_) values.push_back(companies.read(fields_[i].pair.column));
      co.hash = hashValues(values);
      if (adoptHost_.count(id)) {
        co.asItem = kHashStart;
        if (!hashAsItem(co.asItem, companyFields_, values)) co.asItem = 0;
      } else if (!hostInRows_.count(id)) {
        for (const std::string& v : values) co.values.add(v);
        co.values.fit();
      }
    } else {
      companiesByName_[co.name].push_back(id);
    }
    companyOrder_.push_back(id);
    companies.next();
  }
}

void Run::readContacts() {
  hostdb::Recordset contacts(*db_, hostdb::kContacts);
  while (!contacts.eof()) {
    int32_t id = value::toLong(contacts.read("ContactID"));
    const bool isDefault = value::toBoolean(contacts.read("DefaultContact"));
    // Type 1 merges only the contacts that are their company's default or a pair's.
    if (info_ == 1 && !isDefault && !usedContacts_.count(id)) {
      contacts.next();
      continue;
    }
    HostContact& ct = contacts_[id];
    std::string company = contacts.read("CompanyNum");
    ct.company =
        value::isBlank(company) || !value::isNumeric(company) ? -1 : value::toLong(company);
    ct.isDefault = isDefault;
    if (info_ == 7) ct.name = contacts.read("DisplayName");
    const bool firstDefault =
        ct.isDefault && ct.company >= 0 && defaults_.emplace(ct.company, id).second;
    {
      std::vector<std::string> values;
      for (size_t i : contactFields_) values.push_back(contacts.read(fields_[i].pair.column));
      ct.hash = hashValues(values);
      const int32_t key = info_ == 7 ? id : ct.company;
      const bool adoptable = adoptHost_.count(key) > 0;
      // A company's adopted item holds its first default contact's values, as the merge uses.
      if (adoptable && info_ == 1 && firstDefault) {
        HostCompany& co = companies_[ct.company];
        if (co.asItem && !hashAsItem(co.asItem, contactFields_, values)) co.asItem = 0;
      } else if (adoptable && info_ == 7) {
        ct.asItem = kHashStart;
        if (!hashAsItem(ct.asItem, contactFields_, values)) ct.asItem = 0;
      }
      bool unpaired = info_ == 7
                          ? !hostInRows_.count(id)
                          : ct.isDefault && ct.company >= 0 && !hostInRows_.count(ct.company);
      if (unpaired && info_ == 7) ct.businessName = contacts.read("BusinessName");
      if (unpaired && !adoptable) {
        for (const std::string& v : values) ct.values.add(v);
        ct.values.fit();
      }
    }
    if (info_ == 7) contactOrder_.push_back(id);
    contacts.next();
  }
}

void Run::readItems() {
  folder_ = c_.contactsFolder();
  storeID_ = folder_->StoreID();
  auto items = folder_->Items();
  int32_t count = items->Count();
  items_.reserve(static_cast<size_t>(count));
  for (int32_t i = 1; i <= count; ++i) {
    auto item = std::dynamic_pointer_cast<outlook::ContactItem>(items->Item(i));
    if (!item) continue;  // a distribution list, say
    size_t at = items_.size();
    ItemKeys keys;
    keys.entryID = item->EntryID();
    const std::string fileAs = item->FileAs();
    std::vector<std::string> values = valuesOf(*item);
    keys.hash = hashValues(values);
    if (auto adopt = adoptItem_.find(keys.entryID); adopt != adoptItem_.end()) {
      // The one-way run's item of a host record: is it that record's values, as it wrote them?
      uint64_t expected = 0;
      if (info_ == 1) {
        auto co = companies_.find(adopt->second);
        if (co != companies_.end() && co->second.asItem) {
          expected = co->second.asItem;
          if (!defaults_.count(adopt->second) && !hashAsItem(expected, contactFields_, {}))
            expected = 0;
        }
      } else if (auto ct = contacts_.find(adopt->second); ct != contacts_.end()) {
        expected = ct->second.asItem;
      }
      keys.likeHost = expected && expected == keys.hash;
    }
    if (!keys.likeHost && !itemsInRows_.count(keys.entryID)) {
      keys.fileAs = fileAs;
      if (info_ == 7) keys.companyName = item->CompanyName();
      for (const std::string& v : values) keys.values.add(v);
      keys.values.fit();
    }
    auto [slot, first] = byFileAs_.emplace(hashValues({fileAs}), at);
    if (!first) slot->second = kSeveral;
    items_.push_back(std::move(keys));  // never beyond the capacity reserved: the views stay
    byEntry_.emplace(items_.back().entryID, at);
  }
  itemPaired_.assign(items_.size(), false);
  std::unordered_set<std::string>().swap(itemsInRows_);
  std::unordered_map<std::string, int32_t>().swap(adoptItem_);
}

void Run::planPairs() {
  size_t deletions = 0, paired = 0;
  for (size_t r = 0; r < rows_.size(); ++r) {
    PairRow& row = rows_[r];
    bool host = hostExists(row);
    auto item = itemOf(row.outlookID);
    if (host)
      (info_ == 1 ? companies_[row.companyNum].paired : contacts_[row.contactNum].paired) = true;
    if (item) itemPaired_[*item] = true;
    if (row.deleted) {
      if (host && settings_.restoreDeleted && !item) jobs_.push_back({JobKind::Restore, r});
      if (!host) jobs_.push_back({JobKind::Forget, r});
      continue;
    }
    ++paired;
    if (host && item) {
      jobs_.push_back({JobKind::Merge, r});
    } else if (host) {
      jobs_.push_back({JobKind::MarkDeleted, r});
    } else if (item) {
      jobs_.push_back({JobKind::DeleteItem, r});
      ++deletions;
    } else {
      jobs_.push_back({JobKind::Forget, r});
    }
  }
  if (deletions > 5 && deletions * 5 > paired && !settings_.force) {
    throw RuntimeError(
        kTooManyDeletions,
        "The run would delete " + std::to_string(deletions) + " of " + std::to_string(paired) +
            " paired contacts in the address book (more than a fifth): nothing was done. Run "
            "again with --force to delete them");
  }
}

// The first run takes over the pairings the one-way runs made for the scheme.
void Run::planAdoption() {
  eachOneWayPairing([&](int32_t number, std::string entryID) {
    auto item = itemOf(entryID);
    if (!item || itemPaired_[*item]) return;
    PairRow row;
    if (info_ == 1) {
      auto co = companies_.find(number);
      if (co == companies_.end() || co->second.paired) return;
      co->second.paired = true;
      row.companyNum = number;
    } else {
      auto ct = contacts_.find(number);
      if (ct == contacts_.end() || ct->second.paired) return;
      ct->second.paired = true;
      row.contactNum = number;
      row.companyNum = ct->second.company;
    }
    itemPaired_[*item] = true;
    row.outlookID = entryID;
    rows_.push_back(std::move(row));
    jobs_.push_back({JobKind::Merge, rows_.size() - 1});
  });
}

void Run::planUnpaired() {
  // An item whose host records a run made, but whose pair that run did not keep (it was killed
  // before its last commit), is found again as the unpaired record holding all its values.
  std::vector<size_t> freeItems;
  for (size_t i = 0; i < items_.size(); ++i) {
    if (itemPaired_[i]) continue;
    try {
      keepValues(items_[i]);  // one the first run meant to adopt, but did not
    } catch (const RuntimeError&) {
      itemPaired_[i] = true;  // gone since it was read: left to the next run
      continue;
    }
    freeItems.push_back(i);
  }
  const std::vector<int32_t>& order = info_ == 1 ? companyOrder_ : contactOrder_;
  auto isPaired = [&](int32_t id) {
    return info_ == 1 ? companies_[id].paired : contacts_[id].paired;
  };
  auto setPaired = [&](int32_t id) {
    (info_ == 1 ? companies_[id].paired : contacts_[id].paired) = true;
  };
  auto newPair = [&](int32_t id, size_t item) {
    setPaired(id);
    itemPaired_[item] = true;
    PairRow row;
    if (info_ == 1) {
      row.companyNum = id;
    } else {
      row.contactNum = id;
      row.companyNum = contacts_[id].company;
    }
    row.outlookID = items_[item].entryID;
    rows_.push_back(std::move(row));
    jobs_.push_back({JobKind::Merge, rows_.size() - 1});
  };
  if (!freeItems.empty()) {
    std::unordered_map<std::string, std::vector<int32_t>> bySignature;
    for (int32_t id : order) {
      if (isPaired(id)) continue;
      HostSide h;
      if (info_ == 1) {
        h.company = id;
        auto d = defaults_.find(id);
        if (d != defaults_.end() && !usedContacts_.count(d->second)) h.contact = d->second;
      } else {
        h.contact = id;
      }
      std::string signature;
      try {
        std::vector<std::string> values = hostValues(h);
        for (size_t i = 0; i < fields_.size(); ++i)
          signature += asItemValue(fields_[i], values[i]) + '\x1f';
      } catch (const RuntimeError&) {
        continue;  // a date the item could not hold: no item holds this record's values
      }
      bySignature[signature].push_back(id);
    }
    for (size_t item : freeItems) {
      std::string signature;
      for (const std::string& v : items_[item].values.all()) signature += v + '\x1f';
      auto it = bySignature.find(signature);
      if (it == bySignature.end()) continue;
      for (int32_t id : it->second) {
        if (isPaired(id)) continue;
        newPair(id, item);
        break;
      }
    }
  }
  // An unpaired host record takes the one unpaired item filed under its name, or a new one.
  for (int32_t id : order) {
    if (isPaired(id)) continue;
    const std::string& name = info_ == 1 ? companies_[id].name : contacts_[id].name;
    auto it = byFileAs_.find(hashValues({name}));
    if (it != byFileAs_.end() && it->second != kSeveral && !itemPaired_[it->second] &&
        items_[it->second].fileAs == name) {
      newPair(id, it->second);
      continue;
    }
    setPaired(id);
    Job job{JobKind::NewItem};
    job.host = id;
    jobs_.push_back(job);
  }
  // An unpaired item gets host records of its own.
  for (size_t i = 0; i < items_.size(); ++i) {
    if (itemPaired_[i]) continue;
    Job job{JobKind::NewHost};
    job.item = i;
    jobs_.push_back(job);
  }
}

// ---------------------------------------------------------------------------------------------
// Doing

std::vector<std::string> Run::hostValues(const HostSide& h) {
  std::vector<std::string> out(fields_.size());
  auto fill = [&](bool company, int32_t key) {
    const std::vector<size_t>& list = company ? companyFields_ : contactFields_;
    const Packed* packed = nullptr;
    if (company) {
      auto it = companies_.find(key);
      if (it != companies_.end() && !it->second.values.empty()) packed = &it->second.values;
    } else {
      auto it = contacts_.find(key);
      if (it != contacts_.end() && !it->second.values.empty()) packed = &it->second.values;
    }
    if (packed) {
      std::vector<std::string> values = packed->all();
      for (size_t k = 0; k < list.size() && k < values.size(); ++k) out[list[k]] = values[k];
      return;
    }
    hostdb::Recordset rs(*db_, company ? hostdb::kCompanies : hostdb::kContacts);
    if (!rs.find(company ? "CompanyID" : "ContactID", key))
      throw RuntimeError(kNoCurrentRecord, std::string(company ? "Company " : "Contact ") +
                                               std::to_string(key) + " is gone");
    for (size_t i : list) out[i] = rs.read(fields_[i].pair.column);
  };
  if (info_ == 1 && h.company >= 0) fill(true, h.company);
  if (h.contact >= 0) fill(false, h.contact);
  return out;
}

bool Run::standsIn(const Field& f, const HostSide& h, const std::string& itemText) {
  static const std::unordered_map<std::string_view, const char*> kStandIns = {
      {"OfficeNumber", "BusinessPhone_Main"},
      {"FaxNumber", "BusinessPhone_Fax"},
      {"WebSite", "BusinessWebSite"}};
  if (info_ != 1 || !f.company || h.contact < 0 || itemText.empty()) return false;
  auto it = kStandIns.find(f.pair.column);
  if (it == kStandIns.end()) return false;
  hostdb::Recordset rs(*db_, hostdb::kContacts);
  return rs.find("ContactID", h.contact) && rs.read(it->second) == itemText;
}

ItemPtr Run::fetch(const std::string& entryID) {
  auto item = std::dynamic_pointer_cast<outlook::ContactItem>(
      c_.outlookNameSpace()->GetItemFromID(entryID, storeID_));
  if (!item)
    throw RuntimeError(kItemNotFound, "The address book's contact " + entryID + " is gone");
  return item;
}

void Run::writeHostRow(hostdb::Recordset& rs, const std::vector<std::string>& itemNow, bool company,
                       std::vector<std::string>& held) {
  for (size_t i : company ? companyFields_ : contactFields_) {
    const Field& f = fields_[i];
    if (auto text = asHostText(f, itemNow[i])) rs.write(f.pair.column, *text);
    held[i] = rs.read(f.pair.column);
  }
}

void Run::setBase(PairRow& row, const HostSide& h, const std::vector<std::string>& hostNow,
                  const std::vector<std::string>& itemNow) const {
  Base base;
  row.hostHash = hostHash(hostNow, h);
  row.itemHash = hashValues(itemNow);
  if (info_ == 1 && h.company >= 0) base.company.emplace();
  if (h.contact >= 0) base.contact.emplace();
  for (size_t i = 0; i < fields_.size(); ++i) {
    const Field& f = fields_[i];
    auto& half = f.company ? base.company : base.contact;
    if (!half) continue;
    (*half)[f.pair.column] = {hostNow[i], itemNow[i]};
  }
  row.base = base.encode();
}

void Run::merge(PairRow& row) {
  const ItemKeys& keys = items_[*itemOf(row.outlookID)];
  const bool newPair = row.pairID <= 0;
  HostSide h;
  bool contactMoved = false;
  if (info_ == 1) {
    h.company = row.companyNum;
    // The pair keeps the contact it was made with; once that contact is gone, the company's
    // default contact takes its place (merged as a new pair's).
    if (row.contactNum >= 0 && contacts_.count(row.contactNum)) {
      h.contact = row.contactNum;
    } else {
      int32_t next = freeDefaultContact(row.companyNum);
      if (next != row.contactNum) {
        contactMoved = true;
        row.contactNum = next;
        if (next >= 0) usedContacts_.insert(next);
      }
      h.contact = row.contactNum;
    }
  } else {
    h.contact = row.contactNum;
  }
  observeRun([&](IRunObserver& o) {
    o.recordStarted(IRunObserver::Kind::Pair, hostKey(row));
    o.recordNamed(info_ == 1 ? companies_[row.companyNum].name : contacts_[row.contactNum].name);
    o.lookedUp(row.outlookID);
  });
  // Neither side changed since the base: nothing to read, nothing to write.
  if (row.hasBase && !contactMoved && (row.hostHash || row.itemHash) && keys.hash == row.itemHash &&
      combine(info_ == 1 ? companies_[h.company].hash : 0,
              h.contact >= 0 ? contacts_[h.contact].hash : 0) == row.hostHash) {
    action("nothing");
    return;
  }

  if (row.hasBase && row.base.empty()) row.base = store_->baseText(row.pairID);
  Base base = Base::decode(row.base);
  if (contactMoved) base.contact.reset();
  ItemPtr item;
  std::vector<std::string> hostNow = hostValues(h);
  std::vector<std::string> itemNow;
  if (!keys.values.empty()) {
    itemNow = keys.values.all();
  } else if (keys.likeHost) {
    // The item held the host record's values in its own form when it was read: made again from
    // the host's (the hash says whether they are still what the item held).
    try {
      for (size_t i = 0; i < fields_.size(); ++i)
        itemNow.push_back(asItemValue(fields_[i], hostNow[i]));
    } catch (const RuntimeError&) {
      itemNow.clear();
    }
    if (hashValues(itemNow) != keys.hash) itemNow.clear();
  }
  if (itemNow.empty()) {
    item = fetch(row.outlookID);
    itemNow = valuesOf(*item);
  }
  std::vector<size_t> toItem, toHost;
  for (size_t i = 0; i < fields_.size(); ++i) {
    const Field& f = fields_[i];
    if (!f.company && h.contact < 0) continue;
    const std::optional<Base::Half>& half = f.company ? base.company : base.contact;
    const std::string host = hostNow[i];
    const std::string& itemText = itemNow[i];
    std::string hostAsItem = asItemValue(f, host);
    bool same = hostAsItem == itemText;
    bool hostChanged = true, itemChanged = true;
    std::string baseText;
    if (half) {
      auto [bh, bi] = Base::of(*half, f.pair.column);
      hostChanged = host != bh;
      itemChanged = itemText != bi;
      baseText = bh;
    }
    if (!hostChanged && !itemChanged) continue;
    if (same) continue;
    if (hostChanged && !itemChanged) {
      toItem.push_back(i);
    } else if (itemChanged && !hostChanged) {
      toHost.push_back(i);
    } else if (!half && hostEmpty(host) && standsIn(f, h, itemText)) {
      continue;  // the contact's number the one-way run showed for the company's: left as it is
    } else if (!half && hostEmpty(host)) {
      toHost.push_back(i);
    } else if (!half && itemEmpty(f, itemText)) {
      toItem.push_back(i);
    } else {
      bool hostWins = settings_.conflict == ConflictRule::Host;
      observeRun([&](IRunObserver& o) {
        o.conflict(f.name, baseText, host, itemText, keptSide(settings_));
      });
      (hostWins ? toItem : toHost).push_back(i);
    }
  }

  bool itemWritten = false;
  if (!toItem.empty()) {
    if (!item) item = fetch(row.outlookID);
    for (size_t i : toItem) itemWritten |= copyToItem(*item, fields_[i], hostNow[i]);
    if (itemWritten) {
      item->Save();
      ++c_.counters().itemsUpdated;
      itemNow = valuesOf(*item);
    }
  }
  bool companyWritten = false, contactWritten = false, defaultInfo = false;
  if (!toHost.empty()) {
    std::unique_ptr<hostdb::Recordset> co, ct;
    for (size_t i : toHost) {
      const Field& f = fields_[i];
      auto text = asHostText(f, itemNow[i]);
      if (!text || *text == hostNow[i]) continue;
      auto& rs = f.company ? co : ct;
      if (!rs) {
        rs = std::make_unique<hostdb::Recordset>(
            *db_, f.company ? hostdb::kCompanies : hostdb::kContacts, hostdb::kLockOptimistic);
        int32_t key = f.company ? h.company : h.contact;
        if (!rs->find(f.company ? "CompanyID" : "ContactID", key))
          throw RuntimeError(kNoCurrentRecord, std::string(f.company ? "Company " : "Contact ") +
                                                   std::to_string(key) + " is gone");
      }
      rs->write(f.pair.column, *text);
      hostNow[i] = rs->read(f.pair.column);
      (f.company ? companyWritten : contactWritten) = true;
      if (!f.company && (f.pair.column == "DisplayName" || f.pair.column == "BusinessEmail"))
        defaultInfo = true;
    }
  }
  if (companyWritten) ++c_.counters().companiesUpdated;
  if (defaultInfo) {
    auto ct = contacts_.find(h.contact);
    if (ct != contacts_.end() && ct->second.isDefault && ct->second.company >= 0)
      hostCall([&] {
        hostdb::updateDefaultContactInfo(ct->second.company);
        return 0;
      });
  }

  const std::string before = std::move(row.base);
  const uint64_t hostBefore = row.hostHash, itemBefore = row.itemHash;
  setBase(row, h, hostNow, itemNow);
  if (newPair || row.base != before || row.hostHash != hostBefore || row.itemHash != itemBefore) {
    store_->save(row);
    ++c_.counters().mappingsSaved;
  }
  std::string().swap(
      row.base);  // read again should the pair come up again (clear keeps its memory)
  bool hostWritten = companyWritten || contactWritten;
  action(itemWritten && hostWritten ? "update-both"
         : itemWritten              ? "update-item"
         : companyWritten           ? "update-company"
         : contactWritten           ? "update-contact"
                                    : "nothing");
}

void Run::newItem(int32_t host, PairRow* restored) {
  HostSide h;
  std::string name, company;
  if (info_ == 1) {
    h.company = host;
    h.contact = freeDefaultContact(host);
    if (h.contact >= 0) usedContacts_.insert(h.contact);
    name = companies_[host].name;
  } else {
    h.contact = host;
    name = contacts_[host].name;
    company = contacts_[host].businessName;
  }
  observeRun([&](IRunObserver& o) {
    o.recordStarted(IRunObserver::Kind::Pair, std::to_string(host));
    o.recordNamed(name);
  });
  auto item = std::dynamic_pointer_cast<outlook::ContactItem>(
      c_.outlookApplication()->CreateItem(outlook::olContactItem));
  if (!item) throw RuntimeError(kOutlookOperationFailed, "Outlook did not create a contact item");
  std::vector<std::string> hostNow = hostValues(h);
  if (info_ == 7 && !value::isBlank(company)) item->setCompanyName(company);
  for (size_t i = 0; i < fields_.size(); ++i) {
    const Field& f = fields_[i];
    if (!f.company && h.contact < 0) continue;
    if (!hostEmpty(hostNow[i])) copyToItem(*item, f, hostNow[i]);
  }
  item->setFileAs(name);
  item->setCategories(c_.OutlookCategory());
  c_.showStatus(name);
  item->Save();
  ++c_.counters().itemsCreated;

  PairRow fresh;
  PairRow& row = restored ? *restored : fresh;
  row.companyNum = info_ == 1 ? host : contacts_[host].company;
  row.contactNum = h.contact;
  row.outlookID = item->EntryID();
  row.deleted = false;
  setBase(row, h, hostNow, valuesOf(*item));
  store_->save(row);
  ++c_.counters().mappingsSaved;
  action("create-item");
  if (restored) note("the item deleted from the address book was made again");
}

void Run::newHost(size_t index) {
  const ItemKeys& item = items_[index];
  observeRun([&](IRunObserver& o) {
    o.recordStarted(IRunObserver::Kind::Pair, item.entryID);
    o.recordNamed(item.fileAs);
  });
  const std::vector<std::string> itemNow = item.values.all();
  std::vector<std::string> hostNow(fields_.size());
  HostSide h;
  std::string fullName;
  for (size_t i = 0; i < fields_.size(); ++i)
    if (fields_[i].pair.column == "DisplayName") fullName = itemNow[i];
  if (info_ == 1) {
    int32_t clientData = hostCall([] { return hostdb::addNewEntry(); });
    h.company = hostCall([&] { return hostdb::getCompanyIDFromClientDataID(clientData); });
    {
      hostdb::Recordset co(*db_, hostdb::kCompanies, hostdb::kLockOptimistic);
      if (!co.find("CompanyID", h.company))
        throw RuntimeError(kNoCurrentRecord,
                           "The new company " + std::to_string(h.company) + " is gone");
      writeHostRow(co, itemNow, true, hostNow);
    }
    ++c_.counters().companiesCreated;
    companies_[h.company].name = itemNow[0];
    companies_[h.company].paired = true;
  } else {
    // The contact's company: the one named exactly as the item's, else a new one of that name.
    const std::string& companyName = item.companyName;
    if (!value::isBlank(companyName)) {
      auto it = companiesByName_.find(companyName);
      if (it != companiesByName_.end() && it->second.size() == 1) {
        h.company = it->second[0];
      } else {
        int32_t clientData = hostCall([] { return hostdb::addNewEntry(); });
        h.company = hostCall([&] { return hostdb::getCompanyIDFromClientDataID(clientData); });
        hostdb::Recordset co(*db_, hostdb::kCompanies, hostdb::kLockOptimistic);
        if (!co.find("CompanyID", h.company))
          throw RuntimeError(kNoCurrentRecord,
                             "The new company " + std::to_string(h.company) + " is gone");
        co.write("CompanyName", companyName);
        ++c_.counters().companiesCreated;
        companies_[h.company].name = companyName;
        companiesByName_[companyName] = {h.company};
        note("a new company \"" + companyName + "\" was made for the contact");
      }
    }
    if (value::isBlank(fullName)) fullName = item.fileAs;
  }
  if (!value::isBlank(fullName)) {
    std::optional<int32_t> company;
    if (h.company >= 0) company = h.company;
    h.contact = hostCall([&] { return hostdb::addPersonnel(fullName, std::nullopt, company); });
    if (h.contact <= 0) throw RuntimeError(kNoCurrentRecord, "No contact was made for " + fullName);
    {
      hostdb::Recordset ct(*db_, hostdb::kContacts, hostdb::kLockOptimistic);
      if (!ct.find("ContactID", h.contact))
        throw RuntimeError(kNoCurrentRecord,
                           "The new contact " + std::to_string(h.contact) + " is gone");
      writeHostRow(ct, itemNow, false, hostNow);
    }
    ++c_.counters().contactsCreated;
    usedContacts_.insert(h.contact);
    if (h.company >= 0) {
      hostCall([&] {
        hostdb::updateDefaultContactInfo(h.company);
        return 0;
      });
    }
  } else if (info_ == 7) {
    throw RuntimeError(kInvalidProcedureCall, "The address book's contact " + item.entryID +
                                                  " has no name: no contact was made");
  }

  PairRow row;
  row.companyNum = h.company;
  row.contactNum = h.contact;
  row.outlookID = item.entryID;
  setBase(row, h, hostNow, itemNow);
  store_->save(row);
  ++c_.counters().mappingsSaved;
  action(info_ == 1 ? "create-company" : "create-contact");
}

void Run::deleteItem(PairRow& row) {
  ItemPtr item = fetch(row.outlookID);
  observeRun([&](IRunObserver& o) {
    o.recordStarted(IRunObserver::Kind::Pair, hostKey(row));
    o.recordNamed(item->FileAs());
    o.lookedUp(row.outlookID);
  });
  item->Delete();
  store_->remove(row);
  action("delete-item");
  note(std::string("the ") + (info_ == 1 ? "company" : "contact") +
       " was deleted from the practice database; its item is deleted from the address book");
}

void Run::runJob(const Job& job) {
  switch (job.kind) {
    case JobKind::Merge:
      merge(rows_[job.row]);
      break;
    case JobKind::NewItem:
      newItem(job.host, nullptr);
      break;
    case JobKind::Restore:
      newItem(info_ == 1 ? rows_[job.row].companyNum : rows_[job.row].contactNum, &rows_[job.row]);
      break;
    case JobKind::NewHost:
      newHost(job.item);
      break;
    case JobKind::DeleteItem:
      deleteItem(rows_[job.row]);
      break;
    case JobKind::MarkDeleted: {
      PairRow& row = rows_[job.row];
      observeRun([&](IRunObserver& o) {
        o.recordStarted(IRunObserver::Kind::Pair, hostKey(row));
        o.recordNamed(info_ == 1 ? companies_[row.companyNum].name
                                 : contacts_[row.contactNum].name);
        o.lookedUp(row.outlookID);
      });
      row.deleted = true;
      store_->save(row);
      action("item-deleted");
      note("the item was deleted from the address book; the client record is kept");
      break;
    }
    case JobKind::Forget: {
      PairRow& row = rows_[job.row];
      observeRun([&](IRunObserver& o) {
        o.recordStarted(IRunObserver::Kind::Pair, hostKey(row));
        o.lookedUp(row.outlookID);
      });
      store_->remove(row);
      action("nothing");
      note("the record and its item are both gone; the pair is forgotten");
      break;
    }
  }
}

void Run::go() {
  if (!f_.step([&] {
        db_ = apartment().hostDb.get();
        if (!db_) throw RuntimeError(kObjectVariableNotSet, "The companies database is not open");
        store_ = std::make_unique<PairStore>(c_, info_);
        rows_ = store_->load();
        for (const PairRow& r : rows_) {
          if (info_ == 1 && r.contactNum >= 0) usedContacts_.insert(r.contactNum);
          hostInRows_.insert(info_ == 1 ? r.companyNum : r.contactNum);
          itemsInRows_.insert(r.outlookID);
        }
        if (rows_.empty()) markAdoptable();
        readHost();
        readItems();
      }))
    return;
  const bool firstRun = rows_.empty();
  if (!f_.step([&] { planPairs(); })) return;  // refused: nothing was written
  if (firstRun && !f_.step([&] { planAdoption(); })) return;
  if (!f_.step([&] { planUnpaired(); })) return;

  auto dialog = c_.showProgress() ? c_.progressDialog() : nullptr;
  if (dialog) f_.step([&] { dialog->setMaximum(static_cast<int32_t>(jobs_.size())); });
  for (const Job& job : jobs_) {
    if (f_.leaving()) break;
    const uint64_t errors = ErrorFrame::errorsReported();
    const auto before = c_.counters();
    f_.step([&] { apartment().beginRecord(true); });
    {
      // Each record is a procedure of its own: an error that makes it leave ends this record
      // only, and the run goes on with the next.
      ErrorFrame record(std::string(kSyncLocation) + "synchronizePair");
      record.step([&] {
        try {
          runJob(job);
        } catch (const RecordAbandoned&) {
          // Already reported by the host procedure that failed.
        }
      });
    }
    const bool failed = ErrorFrame::errorsReported() != errors;
    apartment().endRecord(!failed);
    if (failed) {
      auto& counters = c_.counters();
      int32_t walked = counters.rowsWalked, commits = counters.commitsFailed;
      counters = before;
      counters.rowsWalked = walked;
      counters.commitsFailed = commits;
      ++counters.recordsFailed;
    }
    ++c_.counters().rowsWalked;
    observeRun([](IRunObserver& o) { o.recordFinished(); });
    if (dialog) {
      f_.step([&] {
        int32_t v = dialog->value();
        if (v < INT32_MAX) dialog->setValue(v + 1);
      });
    }
    if (runStopRequested()) break;
    for (const RuntimeError& e : apartment().commitPoint()) f_.step([&] { throw e; });
    f_.step([&] { apartment().doEvents(); });
  }
}

}  // namespace

void enableBothWays(clsOutlookSynchronization& component, const Settings& settings) {
  component.setBothWaysRunner(
      [settings](clsOutlookSynchronization& c) { synchronizeBothWays(c, settings); });
}

void synchronizeBothWays(clsOutlookSynchronization& component, const Settings& settings) {
  ErrorFrame f(std::string(kSyncLocation) + "synchronizeBothWays");
  Run run(component, settings, f);
  run.go();
}

}  // namespace dossync::twoway
