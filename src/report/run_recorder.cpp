#include "report/run_recorder.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "core/apartment.h"
#include "core/synchronization.h"
#include "core/value.h"
#include "hostdb/recordset.h"
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
    default:
      return "outlook-item";
  }
}

std::string directionName(int32_t d) {
  switch (d) {
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
  std::snprintf(text, sizeof text, compact ? "%04d%02d%02d-%02d%02d%02d" : "%04d-%02d-%02dT%02d:%02d:%02d",
                d.year, d.month, d.day, d.hour, d.minute, d.second);
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
  startedAt_ = monotonicSeconds();
  inRecord_ = false;
  pairedItems_.clear();
  auto& s = plan_.settings;
  s.emplace_back("direction", directionName(c.SyncDirectionType()));
  s.emplace_back("information", std::to_string(c.SyncInformationType()));
  s.emplace_back("scheme", std::to_string(c.SchemeID()));
  s.emplace_back("dataFile", c.DataFileUniqueID());
  s.emplace_back("category", c.OutlookCategory());
  s.emplace_back("hostDatabase", c.MainDatabaseLocation());
  s.emplace_back("syncDatabase", c.SyncDatabaseLocation());
  s.emplace_back("pairCreated", c.pairCreatedCompanies() ? "yes" : "no");
  for (const auto& kv : extraSettings_) {
    auto same = std::find_if(s.begin(), s.end(), [&](const auto& e) { return e.first == kv.first; });
    if (same != s.end()) {
      same->second = kv.second;
    } else {
      s.push_back(kv);
    }
  }
}

void RunRecorder::runFinished(clsOutlookSynchronization&) {
  if (inRecord_) recordFinished();
  plan_.finished = localTimestamp();
  plan_.seconds = monotonicSeconds() - startedAt_;
  component_ = nullptr;
  if (finished) finished(plan_);
}

std::shared_ptr<outlook::Application> RunRecorder::watch(std::shared_ptr<outlook::Application> app) {
  WatchListener listener;
  listener.saved = [this](const ItemSave& save) {
    RecordPlan* r = current();
    if (!r) return;
    itemSaved_ = true;
    itemCreated_ = itemCreated_ || save.created;
    r->outlookId = save.entryId;
    r->changes.insert(r->changes.end(), save.changes.begin(), save.changes.end());
  };
  listener.opened = [this](const std::string& entryId, const std::string& name) {
    RecordPlan* r = current();
    if (r && r->kind == "outlook-item" && r->key == entryId && r->name.empty()) r->name = name;
  };
  return watchOutlook(std::move(app), preview_, std::move(listener));
}

RecordPlan* RunRecorder::current() {
  return inRecord_ ? &plan_.records.back() : nullptr;
}

void RunRecorder::recordStarted(Kind kind, const std::string& key) {
  if (inRecord_) recordFinished();
  RecordPlan r;
  r.kind = kindName(kind);
  r.key = key;
  if (kind == Kind::OutlookItem) r.outlookId = key;
  plan_.records.push_back(std::move(r));
  inRecord_ = true;
  itemSaved_ = itemCreated_ = madeBefore_ = lookedUp_ = false;
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
  if (r->kind == "outlook-item" || outlookID.empty()) return;
  // One Outlook contact for two host records (two companies of one name): each run writes one
  // record's values over the other's.
  auto [at, first] = pairedItems_.try_emplace(outlookID, ItemPairing{plan_.records.size() - 1, 0});
  if (first) return;
  RecordPlan& earlier = plan_.records[at->second.record];
  const std::string risk = " in this run: both write to one Outlook contact";
  if (at->second.more++ == 0) {
    ++plan_.itemsPairedTwice;
    earlier.warnings.push_back("its Outlook contact is also paired with " + describe(*r) + risk);
  }
  r->warnings.push_back("its Outlook contact is also paired with " + describe(earlier) + risk);
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
  inRecord_ = false;
  if (!r) return;
  if (r->kind == "outlook-item") {
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
    return;
  }
  if (!r->selected) {
    r->action = "pair-only";
    r->notes.push_back(r->pairedWith.empty()
                           ? "not chosen: its pairing is saved all the same, with no item"
                           : "not chosen: its pairing is saved all the same, with the item the "
                             "look-up found");
  } else if (itemSaved_) {
    r->action = itemCreated_ ? "create-item" : (r->changes.empty() ? "nothing" : "update-item");
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

void RunRecorder::errorReported(const RuntimeError& error, const std::string& location) {
  ErrorNote e{error.number(), error.description(), location};
  if (RecordPlan* r = current()) {
    r->errors.push_back(std::move(e));
  } else {
    plan_.errors.push_back(std::move(e));
  }
}

PreviewScope::PreviewScope(RunRecorder& recorder) : recorder_(recorder) {
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
}

PreviewScope::~PreviewScope() {
  recorder_.preview_ = false;
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
