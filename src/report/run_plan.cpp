#include "report/run_plan.h"

#include <cstdio>
#include <map>
#include <sstream>

namespace dossync::report {

using json = nlohmann::ordered_json;

namespace {

constexpr const char* kFormat = "dossync-run/2";
constexpr const char* kFormatListingAll = "dossync-run/1";  // every record listed, no counts
const auto& kActions = RunCounts::kActionNames;

int32_t actionIndex(const std::string& action) {
  for (size_t i = 0; i < RunCounts::kActions; ++i)
    if (action == kActions[i]) return static_cast<int32_t>(i);
  return -1;
}

// Text between double quotes, with what could break the line shown as escapes.
std::string quote(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

// Long values (the host's RTF summaries) cut short in the text; the JSON has them whole.
std::string shown(const std::string& s) {
  constexpr size_t kShown = 70;
  if (s.size() <= kShown) return quote(s);
  size_t cut = kShown;
  while (cut > 0 && (static_cast<unsigned char>(s[cut]) & 0xC0) == 0x80) --cut;  // whole UTF-8
  return quote(s.substr(0, cut)) + "... (" + std::to_string(s.size()) + " bytes)";
}

}  // namespace

json errorsJson(const std::vector<ErrorNote>& errors) {
  json out = json::array();
  for (const auto& e : errors)
    out.push_back({{"number", e.number}, {"description", e.description}, {"location", e.location}});
  return out;
}

json conflictsJson(const std::vector<Conflict>& conflicts) {
  json out = json::array();
  for (const auto& c : conflicts) {
    json& one = out.emplace_back(json::object());
    one["field"] = c.field;
    one["base"] = c.base;
    one["host"] = c.host;
    one["outlook"] = c.outlook;
    one["kept"] = c.kept;
  }
  return out;
}

std::vector<Conflict> conflictsFrom(const json& j) {
  std::vector<Conflict> out;
  for (const auto& c : j)
    out.push_back({c.at("field").get<std::string>(), c.at("base").get<std::string>(),
                   c.at("host").get<std::string>(), c.at("outlook").get<std::string>(),
                   c.at("kept").get<std::string>()});
  return out;
}

json addedJson(const std::vector<AddedRow>& rows) {
  json out = json::array();
  for (const auto& a : rows) {
    json& row = out.emplace_back(json::object());
    row["table"] = a.table;
    json& fields = row["fields"] = json::object();
    for (const auto& [k, v] : a.fields) fields[k] = v;
  }
  return out;
}

std::vector<AddedRow> addedFrom(const json& j) {
  std::vector<AddedRow> out;
  for (const auto& a : j) {
    AddedRow& row = out.emplace_back(AddedRow{a.at("table").get<std::string>(), {}});
    for (const auto& [k, v] : a.at("fields").items())
      row.fields.emplace_back(k, v.get<std::string>());
  }
  return out;
}

std::vector<ErrorNote> errorsFrom(const json& j) {
  std::vector<ErrorNote> out;
  for (const auto& e : j)
    out.push_back({e.at("number").get<int32_t>(), e.at("description").get<std::string>(),
                   e.at("location").get<std::string>()});
  return out;
}

const char* const RunCounts::kActionNames[RunCounts::kActions] = {
    "create-item",    "update-item",    "pair-only",      "nothing",
    "create-company", "update-company", "create-contact", "update-contact",
    "update-both",    "delete-item",    "item-deleted"};

void RunCounts::add(const RecordPlan& record) {
  ++records;
  if (!record.errors.empty()) {
    ++failed;
  } else if (int32_t i = actionIndex(record.action); i >= 0) {
    ++actions[i];
  }
  errors += static_cast<int32_t>(record.errors.size());
  conflicts += static_cast<int32_t>(record.conflicts.size());
}

int32_t RunPlan::count(const std::string& action) const {
  if (counts) {
    int32_t i = actionIndex(action);
    return i < 0 ? 0 : counts->actions[i];
  }
  int32_t n = 0;
  for (const auto& r : records) n += r.action == action;
  return n;
}

int32_t RunPlan::errorCount() const {
  if (counts) return counts->errors;
  auto n = static_cast<int32_t>(errors.size());
  for (const auto& r : records) n += static_cast<int32_t>(r.errors.size());
  return n;
}

int32_t RunPlan::failedCount() const {
  if (counts) return counts->failed;
  int32_t n = 0;
  for (const auto& r : records) n += !r.errors.empty();
  return n;
}

int32_t RunPlan::conflictCount() const {
  if (counts) return counts->conflicts;
  int32_t n = 0;
  for (const auto& r : records) n += static_cast<int32_t>(r.conflicts.size());
  return n;
}

int32_t RunPlan::recordCount() const {
  return counts ? counts->records : static_cast<int32_t>(records.size());
}

bool worthListing(const RecordPlan& r) {
  if (!r.changes.empty() || !r.added.empty() || !r.conflicts.empty() || !r.warnings.empty() ||
      !r.errors.empty())
    return true;
  if (r.action == "nothing") return !r.notes.empty();
  // Not chosen, and paired again with what its own pairing found: its one note is the
  // "not chosen" one.
  if (r.action == "pair-only") return r.foundBy != "mapping" || r.notes.size() > 1;
  return true;
}

void putTallies(json& j, const RunPlan& plan) {
  j["companiesCreatedAgain"] = plan.companiesCreatedAgain;
  j["companiesToCreateAgain"] = plan.companiesToCreateAgain;
  j["nameMatches"] = plan.nameMatches;
  j["itemsPairedTwice"] = plan.itemsPairedTwice;
  j["contactsAtAnotherCompany"] = plan.contactsAtAnotherCompany;
}

void takeTallies(const json& j, RunPlan& plan) {
  plan.companiesCreatedAgain = j.at("companiesCreatedAgain").get<int32_t>();
  plan.companiesToCreateAgain = j.at("companiesToCreateAgain").get<int32_t>();
  plan.nameMatches = j.value("nameMatches", 0);
  plan.itemsPairedTwice = j.value("itemsPairedTwice", 0);
  plan.contactsAtAnotherCompany = j.value("contactsAtAnotherCompany", 0);
}

// Built member by member, moving each part in: nlohmann's initializer lists copy what they are
// given, which a run of thousands of new items pays for dearly.
json toJson(const RunPlan& plan) {
  json out = json::object();
  out["format"] = kFormat;
  out["kind"] = plan.kind;
  out["id"] = plan.id;
  out["started"] = plan.started;
  out["finished"] = plan.finished;
  out["seconds"] = plan.seconds;
  out["interrupted"] = plan.interrupted;
  json& settings = out["settings"] = json::object();
  for (const auto& [k, v] : plan.settings) settings[k] = v;
  json& summary = out["summary"] = json::object();
  summary["records"] = plan.recordCount();
  summary["listed"] = plan.records.size();
  json& counts = summary["actions"] = json::object();
  for (const char* a : kActions) counts[a] = plan.count(a);
  summary["errors"] = plan.errorCount();
  summary["failed"] = plan.failedCount();
  summary["conflicts"] = plan.conflictCount();
  putTallies(summary, plan);
  json& records = out["records"] = json::array();
  records.get_ref<json::array_t&>().reserve(plan.records.size());
  for (const auto& r : plan.records) {
    json& record = records.emplace_back(json::object());
    record["kind"] = r.kind;
    record["key"] = r.key;
    record["name"] = r.name;
    record["selected"] = r.selected;
    record["action"] = r.action;
    record["outlookId"] = r.outlookId;
    record["pairedWith"] = r.pairedWith;
    record["foundBy"] = r.foundBy;
    record["contactFoundBy"] = r.contactFoundBy;
    json& changes = record["changes"] = json::array();
    changes.get_ref<json::array_t&>().reserve(r.changes.size());
    for (const auto& c : r.changes) {
      json& change = changes.emplace_back(json::object());
      change["target"] = c.target;
      change["field"] = c.field;
      if (c.beforeKnown) change["old"] = c.before;
      change["new"] = c.after;
    }
    record["added"] = addedJson(r.added);
    record["conflicts"] = conflictsJson(r.conflicts);
    record["notes"] = r.notes;
    record["warnings"] = r.warnings;
    record["errors"] = errorsJson(r.errors);
  }
  out["errors"] = errorsJson(plan.errors);
  return out;
}

RunPlan planFromJson(const json& j) {
  const std::string format = j.at("format").get<std::string>();
  if (format != kFormat && format != kFormatListingAll)
    throw json::other_error::create(501, "not a dossync run report", &j);
  RunPlan plan;
  plan.kind = j.at("kind").get<std::string>();
  plan.id = j.at("id").get<std::string>();
  plan.started = j.at("started").get<std::string>();
  plan.finished = j.at("finished").get<std::string>();
  plan.seconds = j.at("seconds").get<double>();
  plan.interrupted = j.value("interrupted", false);
  for (const auto& [k, v] : j.at("settings").items())
    plan.settings.emplace_back(k, v.get<std::string>());
  const json& summary = j.at("summary");
  takeTallies(summary, plan);
  for (const auto& r : j.at("records")) {
    RecordPlan p;
    p.kind = r.at("kind").get<std::string>();
    p.key = r.at("key").get<std::string>();
    p.name = r.at("name").get<std::string>();
    p.selected = r.at("selected").get<bool>();
    p.action = r.at("action").get<std::string>();
    p.outlookId = r.at("outlookId").get<std::string>();
    p.pairedWith = r.at("pairedWith").get<std::string>();
    p.foundBy = r.value("foundBy", "none");
    p.contactFoundBy = r.value("contactFoundBy", "");
    for (const auto& c : r.at("changes"))
      p.changes.push_back({c.at("target").get<std::string>(), c.at("field").get<std::string>(),
                           c.value("old", ""), c.at("new").get<std::string>(), c.contains("old")});
    p.added = addedFrom(r.at("added"));
    p.conflicts = conflictsFrom(r.value("conflicts", json::array()));
    p.notes = r.at("notes").get<std::vector<std::string>>();
    p.warnings = r.value("warnings", std::vector<std::string>{});
    p.errors = errorsFrom(r.at("errors"));
    plan.records.push_back(std::move(p));
  }
  plan.errors = errorsFrom(j.at("errors"));
  if (format == kFormat) {
    RunCounts& counts = plan.counts.emplace();
    counts.records = summary.at("records").get<int32_t>();
    for (size_t i = 0; i < RunCounts::kActions; ++i)
      counts.actions[i] = summary.at("actions").value(kActions[i], 0);
    counts.errors = summary.at("errors").get<int32_t>();
    counts.failed = summary.value("failed", 0);
    counts.conflicts = summary.value("conflicts", 0);
  }
  return plan;
}

std::string summaryLine(const RunPlan& plan) {
  std::ostringstream out;
  out << plan.recordCount() << " records";
  const char* sep = ": ";
  for (const char* a : kActions) {
    if (int32_t n = plan.count(a)) {
      out << sep << n << " " << a;
      sep = ", ";
    }
  }
  if (int32_t n = plan.failedCount()) out << sep << n << " failed";
  if (int32_t n = plan.conflictCount()) out << "; " << n << (n == 1 ? " conflict" : " conflicts");
  out << "; " << plan.errorCount() << (plan.errorCount() == 1 ? " error" : " errors");
  return out.str();
}

std::string nameMatchLine(const RunPlan& plan) {
  if (!plan.nameMatches && !plan.itemsPairedTwice && !plan.contactsAtAnotherCompany) return "";
  std::ostringstream out;
  out << "Pairings made by name: " << plan.nameMatches << "; Outlook contacts paired with two "
      << "records: " << plan.itemsPairedTwice
      << "; contacts found by name at another company: " << plan.contactsAtAnotherCompany;
  return out.str();
}

std::string toText(const RunPlan& plan) {
  std::ostringstream out;
  bool preview = plan.kind == "preview";
  out << (preview ? "Preview" : "Report " + plan.id) << ": "
      << (preview ? "what the run will do (nothing has been changed)" : "what the run did") << "\n";
  out << "Started " << plan.started;
  if (!preview) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.2f", plan.seconds);
    out << ", finished " << plan.finished << " (" << seconds << " s)";
  }
  if (plan.interrupted) out << ", interrupted: stopped before the end of its records";
  out << "\n";
  for (const auto& [k, v] : plan.settings) out << "  " << k << ": " << v << "\n";
  out << summaryLine(plan) << "\n";
  if (plan.companiesCreatedAgain || plan.companiesToCreateAgain) {
    out << "Companies made again because items are paired with -1 (see --pair-created): "
        << plan.companiesCreatedAgain << " by this run, " << plan.companiesToCreateAgain
        << " by the next run from Outlook\n";
  }
  if (std::string line = nameMatchLine(plan); !line.empty()) out << line << "\n";
  if (auto unlisted = plan.recordCount() - static_cast<int32_t>(plan.records.size()); unlisted > 0)
    out << unlisted << (unlisted == 1 ? " record" : " records")
        << " that changed nothing not listed\n";
  for (const auto& r : plan.records) {
    out << "\n" << r.kind << " " << r.key;
    if (!r.name.empty()) out << " " << quote(r.name);
    out << ": " << r.action;
    if (!r.selected) out << " (not chosen)";
    if (!r.outlookId.empty() && r.outlookId != r.key) out << ", item " << r.outlookId;
    // A two-way pair is its record and its item: nothing else to say of its pairing.
    if (r.kind != "pair")
      out << ", paired with " << (r.pairedWith.empty() ? "no item" : r.pairedWith);
    out << "\n";
    for (const auto& a : r.added) {
      out << "    adds a row to " << a.table;
      const char* sep = ": ";
      for (const auto& [k, v] : a.fields) {
        out << sep << k << " " << quote(v);
        sep = ", ";
      }
      out << "\n";
    }
    for (const auto& c : r.changes) {
      out << "    " << c.target << " " << c.field << ": ";
      if (c.beforeKnown) {
        out << shown(c.before) << " -> " << shown(c.after) << "\n";
      } else {
        out << "changed to " << shown(c.after) << "\n";
      }
    }
    for (const auto& c : r.conflicts) {
      out << "    conflict " << c.field << ": base " << shown(c.base) << ", host " << shown(c.host)
          << ", Outlook " << shown(c.outlook) << "; kept the "
          << (c.kept == "host" ? "host's" : "Outlook") << " value\n";
    }
    for (const auto& n : r.notes) out << "    note: " << n << "\n";
    for (const auto& w : r.warnings) out << "    warning: " << w << "\n";
    for (const auto& e : r.errors)
      out << "    error " << e.number << " in " << e.location << ": " << e.description << "\n";
  }
  if (!plan.errors.empty()) out << "\nOutside any record:\n";
  for (const auto& e : plan.errors)
    out << "    error " << e.number << " in " << e.location << ": " << e.description << "\n";
  return out.str();
}

}  // namespace dossync::report
