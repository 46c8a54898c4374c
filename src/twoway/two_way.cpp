// The two-way run: reads the pairs, the host's companies and contacts and the address book once
// each, decides what every record needs (a merge, a new item, new host records, a deletion),
// refuses a run that would delete too much, then does it record by record.
#include "twoway/two_way.h"

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/apartment.h"
#include "core/error.h"
#include "core/progress.h"
#include "core/run_stop.h"
#include "core/synchronization.h"
#include "core/value.h"
#include "hostdb/default_contacts.h"
#include "hostdb/host_database.h"
#include "hostdb/lookups.h"
#include "hostdb/new_records.h"
#include "hostdb/recordset.h"
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

// A record's values, one text per field of its half, kept in one string.
class Packed {
 public:
  void add(const std::string& v) {
    data_ += v;
    data_ += '\x1f';
  }
  std::string get(size_t index) const {
    size_t at = 0;
    for (size_t i = 0; i < index; ++i) {
      at = data_.find('\x1f', at);
      if (at == std::string::npos) return {};
      ++at;
    }
    size_t end = data_.find('\x1f', at);
    return end == std::string::npos ? std::string() : data_.substr(at, end - at);
  }
  std::vector<std::string> all() const {
    std::vector<std::string> out;
    size_t at = 0;
    for (size_t end; (end = data_.find('\x1f', at)) != std::string::npos; at = end + 1)
      out.push_back(data_.substr(at, end - at));
    return out;
  }
  bool empty() const { return data_.empty(); }

 private:
  std::string data_;
};

struct HostCompany {
  std::string name;
  Packed values;  // the company fields
  bool paired = false;
};

struct HostContact {
  int32_t company = -1;
  bool isDefault = false;
  std::string name, businessName;
  Packed values;  // the contact fields (read for the contacts a run may merge)
  bool paired = false;
};

enum class JobKind { Merge, NewItem, NewHost, MarkDeleted, DeleteItem, Forget, Restore };

struct Job {
  JobKind kind;
  size_t row = 0;     // Merge, MarkDeleted, DeleteItem, Forget, Restore: the pair
  int32_t host = -1;  // NewItem: the company (1) or contact (7)
  size_t item = 0;    // NewHost: the item
};

std::string keptSide(const Settings& s) { return s.conflict == ConflictRule::Host ? "host" : "outlook"; }

class Run {
 public:
  Run(clsOutlookSynchronization& c, const Settings& s, ErrorFrame& f)
      : c_(c), settings_(s), f_(f), info_(c.SyncInformationType() == 7 ? 7 : 1),
        fields_(fieldsOf(info_)) {
    for (size_t i = 0; i < fields_.size(); ++i) {
      auto& half = fields_[i].company ? companyFields_ : contactFields_;
      place_.push_back(half.size());
      half.push_back(i);
    }
  }

  void go();

 private:
  // ---- Reading.
  void readHost();
  void readItems();
  void planPairs();
  void planAdoption();
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
  std::string hostValue(const HostSide& h, const Field& f) const;
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
  void writeHostRow(hostdb::Recordset& rs, const outlook::ContactItem& item, bool company,
                    std::vector<std::string>& held);
  std::string baseOfNow(const HostSide& h, const std::vector<std::string>& hostNow,
                        const outlook::ContactItem& item) const;
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
  std::vector<size_t> place_;  // each field's place among its half's
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

  std::vector<ItemPtr> items_;
  std::vector<bool> itemPaired_;
  std::unordered_map<std::string, size_t> byEntry_;
  std::unordered_map<std::string, std::vector<size_t>> byFileAs_;

  std::vector<Job> jobs_;
};

// ---------------------------------------------------------------------------------------------
// Reading

void Run::readHost() {
  hostdb::Recordset companies(*db_, hostdb::kCompanies);
  while (!companies.eof()) {
    int32_t id = value::toLong(companies.read("CompanyID"));
    HostCompany& co = companies_[id];
    co.name = companies.read("CompanyName");
    if (info_ == 1)
      for (size_t i : companyFields_) co.values.add(companies.read(fields_[i].pair.column));
    companiesByName_[co.name].push_back(id);
    companyOrder_.push_back(id);
    companies.next();
  }
  hostdb::Recordset contacts(*db_, hostdb::kContacts);
  while (!contacts.eof()) {
    int32_t id = value::toLong(contacts.read("ContactID"));
    HostContact& ct = contacts_[id];
    std::string company = contacts.read("CompanyNum");
    ct.company = value::isBlank(company) || !value::isNumeric(company) ? -1 : value::toLong(company);
    ct.isDefault = value::toBoolean(contacts.read("DefaultContact"));
    ct.name = contacts.read("DisplayName");
    if (ct.isDefault && ct.company >= 0) defaults_.emplace(ct.company, id);
    if (info_ == 7 || ct.isDefault || usedContacts_.count(id)) {
      if (info_ == 7) ct.businessName = contacts.read("BusinessName");
      for (size_t i : contactFields_) ct.values.add(contacts.read(fields_[i].pair.column));
    }
    contactOrder_.push_back(id);
    contacts.next();
  }
}

void Run::readItems() {
  auto items = c_.contactsFolder()->Items();
  int32_t count = items->Count();
  items_.reserve(static_cast<size_t>(count));
  for (int32_t i = 1; i <= count; ++i) {
    auto item = std::dynamic_pointer_cast<outlook::ContactItem>(items->Item(i));
    if (!item) continue;  // a distribution list, say
    size_t at = items_.size();
    byEntry_.emplace(item->EntryID(), at);
    byFileAs_[item->FileAs()].push_back(at);
    items_.push_back(std::move(item));
  }
  itemPaired_.assign(items_.size(), false);
}

void Run::planPairs() {
  size_t deletions = 0, paired = 0;
  for (size_t r = 0; r < rows_.size(); ++r) {
    PairRow& row = rows_[r];
    bool host = hostExists(row);
    auto item = itemOf(row.outlookID);
    if (host) (info_ == 1 ? companies_[row.companyNum].paired : contacts_[row.contactNum].paired) = true;
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
  auto& sync = apartment().syncDb;
  if (!sync) return;
  hostdb::Recordset rs(*sync, c_.mappingStatement());
  const char* keyColumn = info_ == 1 ? "CompanyNum" : "ContactNum";
  while (!rs.eof()) {
    std::string key = rs.read(keyColumn), entryID = rs.read("OutlookID");
    rs.next();
    if (value::isBlank(key) || !value::isNumeric(key) || value::isBlank(entryID) || entryID == "-1")
      continue;
    int32_t number = value::toLong(key);
    auto item = itemOf(entryID);
    if (!item || itemPaired_[*item]) continue;
    PairRow row;
    if (info_ == 1) {
      auto co = companies_.find(number);
      if (co == companies_.end() || co->second.paired) continue;
      co->second.paired = true;
      row.companyNum = number;
    } else {
      auto ct = contacts_.find(number);
      if (ct == contacts_.end() || ct->second.paired) continue;
      ct->second.paired = true;
      row.contactNum = number;
      row.companyNum = ct->second.company;
    }
    itemPaired_[*item] = true;
    row.outlookID = entryID;
    rows_.push_back(std::move(row));
    jobs_.push_back({JobKind::Merge, rows_.size() - 1});
  }
}

void Run::planUnpaired() {
  // An item whose host records a run made, but whose pair that run did not keep (it was killed
  // before its last commit), is found again as the unpaired record holding all its values.
  std::vector<size_t> freeItems;
  for (size_t i = 0; i < items_.size(); ++i)
    if (!itemPaired_[i]) freeItems.push_back(i);
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
    row.outlookID = items_[item]->EntryID();
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
        for (const Field& f : fields_) signature += asItemValue(f, hostValue(h, f)) + '\x1f';
      } catch (const RuntimeError&) {
        continue;  // a date the item could not hold: no item holds this record's values
      }
      bySignature[signature].push_back(id);
    }
    for (size_t item : freeItems) {
      std::string signature;
      for (const Field& f : fields_) signature += itemValue(*items_[item], f) + '\x1f';
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
    auto it = byFileAs_.find(name);
    if (it != byFileAs_.end() && it->second.size() == 1 && !itemPaired_[it->second[0]]) {
      newPair(id, it->second[0]);
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

std::string Run::hostValue(const HostSide& h, const Field& f) const {
  const size_t index = place_[static_cast<size_t>(&f - fields_.data())];
  if (f.company) {
    auto it = companies_.find(h.company);
    return it == companies_.end() ? std::string() : it->second.values.get(index);
  }
  auto it = contacts_.find(h.contact);
  return it == contacts_.end() ? std::string() : it->second.values.get(index);
}

void Run::writeHostRow(hostdb::Recordset& rs, const outlook::ContactItem& item, bool company,
                       std::vector<std::string>& held) {
  for (size_t i : company ? companyFields_ : contactFields_) {
    const Field& f = fields_[i];
    if (auto text = asHostText(item, f)) rs.write(f.pair.column, *text);
    held[i] = rs.read(f.pair.column);
  }
}

std::string Run::baseOfNow(const HostSide& h, const std::vector<std::string>& hostNow,
                           const outlook::ContactItem& item) const {
  Base base;
  if (info_ == 1 && h.company >= 0) base.company.emplace();
  if (h.contact >= 0) base.contact.emplace();
  for (size_t i = 0; i < fields_.size(); ++i) {
    const Field& f = fields_[i];
    auto& half = f.company ? base.company : base.contact;
    if (!half) continue;
    (*half)[f.pair.column] = {hostNow[i], itemValue(item, f)};
  }
  return base.encode();
}

void Run::merge(PairRow& row) {
  ItemPtr item = items_[*itemOf(row.outlookID)];
  Base base = Base::decode(row.base);
  const bool newPair = row.pairID <= 0;
  HostSide h;
  if (info_ == 1) {
    h.company = row.companyNum;
    // The pair keeps the contact it was made with; once that contact is gone, the company's
    // default contact takes its place (merged as a new pair's).
    if (row.contactNum >= 0 && contacts_.count(row.contactNum)) {
      h.contact = row.contactNum;
    } else {
      int32_t next = freeDefaultContact(row.companyNum);
      if (next != row.contactNum || base.contact) {
        row.contactNum = next;
        base.contact.reset();
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
  });

  std::vector<std::string> hostNow(fields_.size());
  std::vector<size_t> toItem, toHost;
  for (size_t i = 0; i < fields_.size(); ++i) {
    const Field& f = fields_[i];
    if (!f.company && h.contact < 0) continue;
    const std::optional<Base::Half>& half = f.company ? base.company : base.contact;
    std::string host = hostValue(h, f);
    hostNow[i] = host;
    std::string itemText = itemValue(*item, f);
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
  for (size_t i : toItem) itemWritten |= copyToItem(*item, fields_[i], hostNow[i]);
  if (itemWritten) {
    item->Save();
    ++c_.counters().itemsUpdated;
  }
  bool companyWritten = false, contactWritten = false, defaultInfo = false;
  if (!toHost.empty()) {
    std::unique_ptr<hostdb::Recordset> co, ct;
    for (size_t i : toHost) {
      const Field& f = fields_[i];
      auto text = asHostText(*item, f);
      if (!text || *text == hostNow[i]) continue;
      auto& rs = f.company ? co : ct;
      if (!rs) {
        rs = std::make_unique<hostdb::Recordset>(*db_, f.company ? hostdb::kCompanies : hostdb::kContacts,
                                                 hostdb::kLockOptimistic);
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

  std::string now = baseOfNow(h, hostNow, *item);
  if (newPair || now != row.base) {
    row.base = now;
    store_->save(row);
    ++c_.counters().mappingsSaved;
  }
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
  std::vector<std::string> hostNow(fields_.size());
  if (info_ == 7 && !value::isBlank(company)) item->setCompanyName(company);
  for (size_t i = 0; i < fields_.size(); ++i) {
    const Field& f = fields_[i];
    if (!f.company && h.contact < 0) continue;
    hostNow[i] = hostValue(h, f);
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
  row.base = baseOfNow(h, hostNow, *item);
  store_->save(row);
  ++c_.counters().mappingsSaved;
  action("create-item");
  if (restored) note("the item deleted from the address book was made again");
}

void Run::newHost(size_t index) {
  ItemPtr item = items_[index];
  observeRun([&](IRunObserver& o) {
    o.recordStarted(IRunObserver::Kind::Pair, item->EntryID());
    o.recordNamed(item->FileAs());
  });
  std::vector<std::string> hostNow(fields_.size());
  HostSide h;
  std::string fullName = item->FullName();
  if (info_ == 1) {
    int32_t clientData = hostCall([] { return hostdb::addNewEntry(); });
    h.company = hostCall([&] { return hostdb::getCompanyIDFromClientDataID(clientData); });
    {
      hostdb::Recordset co(*db_, hostdb::kCompanies, hostdb::kLockOptimistic);
      if (!co.find("CompanyID", h.company))
        throw RuntimeError(kNoCurrentRecord, "The new company " + std::to_string(h.company) + " is gone");
      writeHostRow(co, *item, true, hostNow);
    }
    ++c_.counters().companiesCreated;
    companies_[h.company].name = item->CompanyName();
    companies_[h.company].paired = true;
  } else {
    // The contact's company: the one named exactly as the item's, else a new one of that name.
    std::string companyName = item->CompanyName();
    if (!value::isBlank(companyName)) {
      auto it = companiesByName_.find(companyName);
      if (it != companiesByName_.end() && it->second.size() == 1) {
        h.company = it->second[0];
      } else {
        int32_t clientData = hostCall([] { return hostdb::addNewEntry(); });
        h.company = hostCall([&] { return hostdb::getCompanyIDFromClientDataID(clientData); });
        hostdb::Recordset co(*db_, hostdb::kCompanies, hostdb::kLockOptimistic);
        if (!co.find("CompanyID", h.company))
          throw RuntimeError(kNoCurrentRecord, "The new company " + std::to_string(h.company) + " is gone");
        co.write("CompanyName", companyName);
        ++c_.counters().companiesCreated;
        companies_[h.company].name = companyName;
        companiesByName_[companyName] = {h.company};
        note("a new company \"" + companyName + "\" was made for the contact");
      }
    }
    if (value::isBlank(fullName)) fullName = item->FileAs();
  }
  if (!value::isBlank(fullName)) {
    std::optional<int32_t> company;
    if (h.company >= 0) company = h.company;
    h.contact = hostCall([&] { return hostdb::addPersonnel(fullName, std::nullopt, company); });
    if (h.contact <= 0) throw RuntimeError(kNoCurrentRecord, "No contact was made for " + fullName);
    {
      hostdb::Recordset ct(*db_, hostdb::kContacts, hostdb::kLockOptimistic);
      if (!ct.find("ContactID", h.contact))
        throw RuntimeError(kNoCurrentRecord, "The new contact " + std::to_string(h.contact) + " is gone");
      writeHostRow(ct, *item, false, hostNow);
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
    throw RuntimeError(kInvalidProcedureCall,
                       "The address book's contact " + item->EntryID() + " has no name: no contact was made");
  }

  PairRow row;
  row.companyNum = h.company;
  row.contactNum = h.contact;
  row.outlookID = item->EntryID();
  row.base = baseOfNow(h, hostNow, *item);
  store_->save(row);
  ++c_.counters().mappingsSaved;
  action(info_ == 1 ? "create-company" : "create-contact");
}

void Run::deleteItem(PairRow& row) {
  ItemPtr item = items_[*itemOf(row.outlookID)];
  observeRun([&](IRunObserver& o) {
    o.recordStarted(IRunObserver::Kind::Pair, hostKey(row));
    o.recordNamed(item->FileAs());
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
        o.recordNamed(info_ == 1 ? companies_[row.companyNum].name : contacts_[row.contactNum].name);
      });
      row.deleted = true;
      store_->save(row);
      action("item-deleted");
      note("the item was deleted from the address book; the client record is kept");
      break;
    }
    case JobKind::Forget: {
      PairRow& row = rows_[job.row];
      observeRun([&](IRunObserver& o) { o.recordStarted(IRunObserver::Kind::Pair, hostKey(row)); });
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
        for (const PairRow& r : rows_)
          if (info_ == 1 && r.contactNum >= 0) usedContacts_.insert(r.contactNum);
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
    f_.step([&] { apartment().beginRecord(); });
    f_.step([&] {
      try {
        runJob(job);
      } catch (const RecordAbandoned&) {
        // Already reported by the host procedure that failed.
      }
    });
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
