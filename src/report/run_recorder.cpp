#include "report/run_recorder.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>

#include <unistd.h>

#include "base/value.h"
#include "core/apartment.h"
#include "core/recordset.h"
#include "core/run_stop.h"
#include "core/synchronization.h"
#include "report/watched_outlook.h"

namespace dossync::report {
namespace {

double monotonicSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

const char* kindName(IRunObserver::Kind k) {
  switch (k) {
    case IRunObserver::Kind::Company:
      return "company";
    case IRunObserver::Kind::Contact:
      return "contact";
    case IRunObserver::Kind::Pair:
      return "pair";
    default:
      return "outlook-item";
  }
}

std::string directionName(const clsOutlookSynchronization& c) {
  int32_t d = c.SyncDirectionType();
  switch (d) {
    case syncBothsWays:
      return c.bothWaysEnabled() ? "1 (both ways, two-way mode)" : "1 (synchronises nothing)";
    case syncFromDossieraToOutlook:
      return "2 (host to Outlook)";
    case syncFromOutlookToDossiera:
      return "3 (Outlook to host)";
    default:
      return std::to_string(d) + " (synchronises nothing)";
  }
}

// "company 9 \"Twin Ltd.\"".
std::string describe(const RecordPlan& r) {
  return r.kind + " " + r.key + (r.name.empty() ? "" : " \"" + r.name + "\"");
}

// What a record that was not chosen notes: its pairing is saved all the same.
const char* const kNotChosenNone = "not chosen: its pairing is saved all the same, with no item";
const char* const kNotChosenFound =
    "not chosen: its pairing is saved all the same, with the item the look-up found";

// Builds with libzstd compress; others store the lines in uncompressed frames.
#ifdef DOSSYNC_HAVE_ZSTD
constexpr bool kCompress = true;
#else
constexpr bool kCompress = false;
#endif

// What is kept of earlier records, as indexes into these.
const char* const kLookups[] = {"none", "mapping", "name", ""};

uint8_t indexOf(const std::string& s, const char* const* texts, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (s == texts[i]) return static_cast<uint8_t>(i);
  return 0;
}

// The name of a host company or contact ("" none), read again for a warning.
std::string hostName(const std::string& kind, int32_t number) {
  auto& db = apartment().hostDb;
  if (!db) return "";
  bool company = kind == "company";
  hostdb::Recordset rs(*db, std::string("SELECT ") +
                                (company ? "Companies.* FROM Companies WHERE CompanyID = "
                                         : "Contacts.* FROM Contacts WHERE ContactID = ") +
                                std::to_string(number) + ";");
  return rs.hasRow() ? rs.read(company ? "CompanyName" : "DisplayName") : "";
}

// The name of the host company a contact is at ("" none).
std::string companyOfContact(const std::string& contactNumber) {
  auto& db = apartment().hostDb;
  if (!db || !value::isNumeric(contactNumber)) return "";
  hostdb::Recordset contact(
      *db, "SELECT Contacts.* FROM Contacts WHERE ContactID = " + contactNumber + ";");
  if (!contact.hasRow()) return "";
  std::string company = contact.read("CompanyNum");
  if (!value::isNumeric(company)) return "";
  hostdb::Recordset companies(*db, "SELECT Companies.* FROM Companies WHERE CompanyID = " +
                                       std::to_string(value::toLong(company)) + ";");
  return companies.hasRow() ? companies.read("CompanyName") : "";
}

}  // namespace

std::string localTimestamp(bool compact) {
  value::Date d = value::now();
  char text[32];
  std::snprintf(text, sizeof text,
                compact ? "%04d%02d%02d-%02d%02d%02d" : "%04d-%02d-%02dT%02d:%02d:%02d", d.year,
                d.month, d.day, d.hour, d.minute, d.second);
  return text;
}

void RunRecorder::setSetting(const std::string& key, const std::string& value) {
  for (auto& [k, v] : extraSettings_) {
    if (k == key) {
      v = value;
      return;
    }
  }
  extraSettings_.emplace_back(key, value);
}

void RunRecorder::runStarted(clsOutlookSynchronization& c) {
  component_ = &c;
  plan_ = RunPlan{};
  plan_.kind = preview_ ? "preview" : "report";
  plan_.started = localTimestamp();
  plan_.counts.emplace();
  std::fill(std::begin(groupActions_), std::end(groupActions_), 0);
  startedAt_ = monotonicSeconds();
  inRecord_ = false;
  pairedItems_.clear();
  currentPairing_ = nullptr;
  late_.clear();
  listed_ = 0;
  writer_.reset();
  file_.clear();
  writeError_.clear();
  auto& s = plan_.settings;
  s.emplace_back("direction", directionName(c));
  s.emplace_back("information", std::to_string(c.SyncInformationType()));
  s.emplace_back("scheme", std::to_string(c.SchemeID()));
  s.emplace_back("dataFile", c.DataFileUniqueID());
  s.emplace_back("category", c.OutlookCategory());
  s.emplace_back("hostDatabase", c.MainDatabaseLocation());
  s.emplace_back("syncDatabase", c.SyncDatabaseLocation());
  s.emplace_back("pairCreated", c.pairCreatedCompanies() ? "yes" : "no");
  for (const auto& kv : extraSettings_) {
    auto same =
        std::find_if(s.begin(), s.end(), [&](const auto& e) { return e.first == kv.first; });
    if (same != s.end()) {
      same->second = kv.second;
    } else {
      s.push_back(kv);
    }
  }
  try {
    file_ = preview_ ? previewFile_ : open ? open(plan_) : std::filesystem::path();
    if (file_.empty()) return;
    writer_ = std::make_unique<ReportWriter>(file_, kCompress);
    writer_->head(plan_);
  } catch (const std::exception& e) {
    writeFailed(e);
  }
}

void RunRecorder::runFinished(clsOutlookSynchronization&) {
  if (inRecord_) recordFinished();
  plan_.finished = localTimestamp();
  plan_.seconds = monotonicSeconds() - startedAt_;
  plan_.interrupted = runStopRequested();
  plan_.counts->errors += static_cast<int32_t>(plan_.errors.size());
  component_ = nullptr;
  pairedItems_.clear();
  try {
    if (writer_) writer_->tail(plan_, late_);
  } catch (const std::exception& e) {
    writeFailed(e);
  }
  writer_.reset();
  late_.clear();
  if (preview_) {
    // The plan as the file has it, records and all.
    RunPlan written = readReportFile(file_);
    written.id.clear();
    plan_ = std::move(written);
    return;
  }
  if (finished) finished(plan_, file_, writeError_);
}

void RunRecorder::writeFailed(const std::exception& e) {
  writer_.reset();
  if (writeError_.empty()) {
    auto* error = dynamic_cast<const RuntimeError*>(&e);
    writeError_ = error ? error->description() : e.what();
  }
}

std::shared_ptr<outlook::Application> RunRecorder::watch(
    std::shared_ptr<outlook::Application> app) {
  WatchListener listener;
  listener.saved = [this](ItemSave&& save) {
    RecordPlan* r = current();
    if (!r) return;
    itemSaved_ = true;
    itemCreated_ = itemCreated_ || save.created;
    r->outlookId = std::move(save.entryId);
    if (r->changes.empty()) {
      r->changes = std::move(save.changes);
    } else {
      r->changes.insert(r->changes.end(), std::make_move_iterator(save.changes.begin()),
                        std::make_move_iterator(save.changes.end()));
    }
  };
  listener.opened = [this](const std::string& entryId, const std::string& name) {
    RecordPlan* r = current();
    if (r && r->kind == "outlook-item" && r->key == entryId && r->name.empty()) r->name = name;
  };
  return watchOutlook(std::move(app), preview_, std::move(listener));
}

RecordPlan* RunRecorder::current() {
  return inRecord_ ? &current_ : nullptr;
}

void RunRecorder::recordStarted(Kind kind, const std::string& key) {
  if (inRecord_) recordFinished();
  current_ = RecordPlan{};
  current_.kind = kindName(kind);
  current_.key = key;
  if (kind == Kind::OutlookItem) current_.outlookId = key;
  inRecord_ = true;
  currentPairing_ = nullptr;
  itemSaved_ = itemCreated_ = madeBefore_ = lookedUp_ = actionTold_ = false;
  if (kind != Kind::OutlookItem || !component_ || !apartment().syncDb) return;
  // Whether an earlier run made a company from this item and paired it with -1.
  hostdb::Recordset pairing(*apartment().syncDb, component_->mappingStatement());
  madeBefore_ = pairing.find("OutlookID", key) && pairing.read("CompanyNum") == "-1";
}

void RunRecorder::recordNamed(const std::string& name) {
  if (RecordPlan* r = current()) r->name = name;
}

void RunRecorder::recordSelected(bool selected) {
  if (RecordPlan* r = current()) r->selected = selected;
}

void RunRecorder::lookedUp(const std::string& counterpart) {
  RecordPlan* r = current();
  if (r && r->kind != "outlook-item") r->outlookId = counterpart;
}

void RunRecorder::paired(const std::string& hostNumber, const std::string& outlookID) {
  RecordPlan* r = current();
  if (!r) return;
  r->pairedWith = r->kind == "outlook-item" ? hostNumber : outlookID;
  if (r->kind == "outlook-item" || outlookID.empty() || !value::isNumeric(r->key)) return;
  // One Outlook contact for two host records (two companies of one name): each run writes one
  // record's values over the other's.
  auto [at, first] = pairedItems_.try_emplace(std::hash<std::string>{}(outlookID));
  ItemPairing& earlier = at->second;
  if (first) {
    earlier.key = value::toLong(r->key);
    currentPairing_ = &earlier;
    return;
  }
  RecordPlan e;  // the earlier record, as far as it is known
  e.kind = r->kind;
  e.key = std::to_string(earlier.key);
  e.name = hostName(e.kind, earlier.key);
  const std::string risk = " in this run: both write to one Outlook contact";
  if (earlier.more++ == 0) {
    ++plan_.itemsPairedTwice;
    // The earlier record is written already: its warning goes with the run's end.
    LateWarning w;
    w.listed = earlier.listed;
    w.warning = "its Outlook contact is also paired with " + describe(*r) + risk;
    if (earlier.listed < 0) {
      w.before = earlier.before;
      w.record = e;
      RecordPlan& stub = w.record;
      stub.selected = earlier.selected;
      stub.action = RunCounts::kActionNames[earlier.action];
      stub.pairedWith = stub.outlookId = outlookID;
      stub.foundBy = kLookups[earlier.foundBy];
      stub.contactFoundBy = kLookups[earlier.contactFoundBy];
      if (!stub.selected) stub.notes.push_back(kNotChosenFound);
    }
    late_.push_back(std::move(w));
  }
  r->warnings.push_back("its Outlook contact is also paired with " + describe(e) + risk);
}

void RunRecorder::lookupAnswered(Kind kind, FoundBy how, const std::string& hostNumber,
                                 const std::string& itemCompany) {
  RecordPlan* r = current();
  if (!r) return;
  // The record's own look-up comes first; from Outlook, the item's contact is looked up next.
  bool own = !lookedUp_;
  lookedUp_ = true;
  const char* by = how == FoundBy::Mapping ? "mapping" : how == FoundBy::Name ? "name" : "none";
  (own ? r->foundBy : r->contactFoundBy) = by;
  if (how != FoundBy::Name) return;
  ++plan_.nameMatches;
  if (r->kind != "outlook-item") {
    r->notes.push_back(
        "paired by name: it had no pairing, and the Outlook contact filed under "
        "its name was taken");
  } else if (own) {
    r->notes.push_back("paired by name: the item had no pairing, and company " + hostNumber +
                       ", the first named like its CompanyName, was taken");
  } else {
    r->notes.push_back(
        "its contact paired by name: the item's contact had no pairing, and host "
        "contact " +
        hostNumber + ", the first named like its FullName, was taken");
  }
  if (kind != Kind::Contact || itemCompany.empty()) return;
  std::string hostCompany = companyOfContact(hostNumber);
  if (value::equalsIgnoreCase(hostCompany, itemCompany)) return;
  ++plan_.contactsAtAnotherCompany;
  r->warnings.push_back("contact found by name at another company: host contact " + hostNumber +
                        " is at \"" + hostCompany + "\", the Outlook contact at \"" + itemCompany +
                        "\"");
}

void RunRecorder::recordFinished() {
  RecordPlan* r = current();
  if (!r) return;
  if (actionTold_ || r->kind == "pair") {
    // A two-way run says each record's action itself (one that failed first stays "nothing").
  } else if (r->kind == "outlook-item") {
    bool madeCompany = false;
    for (const auto& a : r->added) madeCompany = madeCompany || a.table == "Companies";
    r->action = madeCompany                                  ? "create-company"
                : (!r->changes.empty() || !r->added.empty()) ? "update-company"
                                                             : "nothing";
    if (madeCompany && madeBefore_) {
      r->notes.push_back(
          "an earlier run already made a company from this item and paired it with -1: this "
          "run makes another");
      ++plan_.companiesCreatedAgain;
    }
    if (madeCompany && r->pairedWith == "-1") {
      r->notes.push_back(
          "the item stays paired with company -1: the next run from Outlook makes its company "
          "again (--pair-created pairs it with the company made)");
      ++plan_.companiesToCreateAgain;
    }
  } else if (!r->selected) {
    r->action = "pair-only";
    r->notes.push_back(r->pairedWith.empty() ? kNotChosenNone : kNotChosenFound);
  } else if (itemSaved_) {
    r->action = itemCreated_ ? "create-item" : (r->changes.empty() ? "nothing" : "update-item");
  }
  inRecord_ = false;
  plan_.counts->add(*r);
  if (recordDone) recordDone(*r);
  if (r->errors.empty())
    ++groupActions_[indexOf(r->action, RunCounts::kActionNames, RunCounts::kActions)];
  bool listed = (preview_ && previewAll_) || worthListing(*r);
  if (ItemPairing* p = currentPairing_) {
    currentPairing_ = nullptr;
    p->listed = listed ? listed_ : -1;
    p->before = listed_;
    p->selected = r->selected;
    p->action = indexOf(r->action, RunCounts::kActionNames, RunCounts::kActions);
    p->foundBy = indexOf(r->foundBy, kLookups, std::size(kLookups));
    p->contactFoundBy = indexOf(r->contactFoundBy, kLookups, std::size(kLookups));
  }
  if (!listed) return;
  ++listed_;
  if (!writer_) return;
  try {
    writer_->record(std::move(*r));  // the record is done with
  } catch (const std::exception& e) {
    writeFailed(e);
  }
}

void RunRecorder::hostRowAdded(const std::string& table,
                               const std::vector<std::pair<std::string, std::string>>& fields) {
  if (RecordPlan* r = current()) r->added.push_back({table, fields});
}

void RunRecorder::hostColumnChanged(const std::string& table, const std::string& column,
                                    const std::string& before, const std::string& after) {
  if (RecordPlan* r = current()) r->changes.push_back({table, column, before, after});
}

void RunRecorder::recordAction(const std::string& action) {
  if (RecordPlan* r = current()) {
    r->action = action;
    actionTold_ = true;
  }
}

void RunRecorder::conflict(const std::string& field, const std::string& base,
                           const std::string& host, const std::string& outlook,
                           const std::string& kept) {
  if (RecordPlan* r = current()) r->conflicts.push_back({field, base, host, outlook, kept});
}

void RunRecorder::recordNote(const std::string& text) {
  if (RecordPlan* r = current()) r->notes.push_back(text);
}

void RunRecorder::groupEnded(bool committed) {
  for (size_t i = 0; i < RunCounts::kActions; ++i) {
    if (!committed && plan_.counts) {
      plan_.counts->actions[i] -= groupActions_[i];
      plan_.counts->failed += groupActions_[i];
    }
    groupActions_[i] = 0;
  }
}

void RunRecorder::errorReported(const RuntimeError& error, const std::string& location) {
  ErrorNote e{error.number(), error.description(), location};
  if (RecordPlan* r = current()) {
    r->errors.push_back(std::move(e));
  } else {
    plan_.errors.push_back(std::move(e));
  }
}

PreviewScope::PreviewScope(RunRecorder& recorder, bool all) : recorder_(recorder) {
  Apartment& a = apartment();
  bool hostBegun = false;
  try {
    if (a.hostDb && a.hostDb->isDatabaseOpen()) {
      if (!a.hostDb->beginPreview())
        throw RuntimeError(kInvalidProcedureCall, "The host database cannot be previewed");
      hostBegun = true;
    }
    if (a.syncDb && a.syncDb->isDatabaseOpen() && !a.syncDb->beginPreview())
      throw RuntimeError(kInvalidProcedureCall, "The synchronisation database cannot be previewed");
  } catch (...) {
    if (hostBegun) a.hostDb->endPreview();
    throw;
  }
  recorder_.preview_ = true;
  recorder_.previewAll_ = all;
  static int serial = 0;
  recorder_.previewFile_ =
      std::filesystem::temp_directory_path() / ("dossync-preview-" + std::to_string(::getpid()) +
                                                "-" + std::to_string(++serial) + kReportExtension);
}

PreviewScope::~PreviewScope() {
  recorder_.preview_ = recorder_.previewAll_ = false;
  std::error_code ec;
  std::filesystem::remove(recorder_.previewFile_, ec);
  recorder_.previewFile_.clear();
  Apartment& a = apartment();
  for (auto* db : {a.hostDb.get(), a.syncDb.get()}) {
    try {
      if (db) db->endPreview();
    } catch (...) {
      // Closing the database rolls it back all the same.
    }
  }
}

}  // namespace dossync::report
