// What a synchronisation run does (a preview) or did (a report), record by record, and its two
// renderings: JSON (the stable shape documented in docs/preview-and-report.md) and readable text.
//
// Each record of the run's walk (a host company or contact going to Outlook, or an Outlook item
// coming to the host) gets one RecordPlan with its action:
//   create-item     a new Outlook contact is saved for the record
//   update-item     the paired Outlook contact is saved with changed properties
//   pair-only       the record was not chosen: only its pairing is saved (with what the look-up
//                   found, which may be no item)
//   nothing         the record was chosen but nothing changes (or an error stopped it)
//   create-company  a host company (with its client record) and contact are made from the item
//   update-company  the host company and contact paired with the item change
// A two-way run (kind "pair": a host record with its item) says its action itself: create-item,
// update-item, create-company, create-contact (host records made for a new item), update-company,
// update-contact (the host side changes), update-both, delete-item (its host record is gone),
// item-deleted (its item is gone; the record is kept) or nothing. A field changed on both sides
// to different values is a conflict, with the value the run's rule kept.
// Each record also says how its counterpart was found (foundBy): by the pairing saved for it,
// by a name match (an Outlook contact filed under the record's name, or the first host company
// named like the item), or not at all; pairings made by name are counted, and warned about
// when one Outlook contact ends up paired with two records of the run, or when a contact found
// by name is at another company than its Outlook contact says.
// Thread use: plain values.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace dossync::report {

struct Change {
  std::string target;  // "item" (the Outlook contact) or the host table
  std::string field, before, after;
  // false: the run never read the old value (Outlook guards the property), so only the new
  // one is known.
  bool beforeKnown = true;
};

struct Conflict {
  std::string field, base, host, outlook;
  std::string kept;  // "host" or "outlook"
};

struct AddedRow {
  std::string table;
  std::vector<std::pair<std::string, std::string>> fields;  // as the run set them
};

struct ErrorNote {
  int32_t number = 0;
  std::string description, location;
};

struct RecordPlan {
  std::string kind;  // "company", "contact", "outlook-item" or "pair"
  std::string key;   // the host number, or the Outlook entry id
  std::string name;
  bool selected = true;
  std::string action = "nothing";
  std::string outlookId;         // the Outlook item involved ("" none)
  std::string pairedWith;        // what the pairing saved: an entry id, or a host company number
  std::string foundBy = "none";  // the record's look-up: "mapping", "name" or "none"
  std::string contactFoundBy;    // from Outlook, its contact's look-up ("" none made)
  std::vector<Change> changes;
  std::vector<AddedRow> added;
  std::vector<Conflict> conflicts;
  std::vector<std::string> notes;
  std::vector<std::string> warnings;
  std::vector<ErrorNote> errors;
};

// What a run counts of its records, listed or not.
struct RunCounts {
  static constexpr size_t kActions = 11;
  static const char* const kActionNames[kActions];
  int32_t records = 0;
  int32_t actions[kActions] = {};
  int32_t errors = 0;  // in records and outside them
  int32_t conflicts = 0;
  // Records undone: an error stopped them, or their group could not be committed. They are
  // not counted under their action, which did not last.
  int32_t failed = 0;
  void add(const RecordPlan& record);
};

struct RunPlan {
  std::string kind = "report";    // or "preview"
  std::string id;                 // the report's name in its folder ("" for a preview)
  std::string started, finished;  // local time, ISO 8601
  double seconds = 0;
  bool interrupted = false;  // the run was stopped (SIGINT, SIGTERM) before its end
  std::vector<std::pair<std::string, std::string>> settings;
  // The records worth listing: those that changed nothing are only counted (see `counts`),
  // unless the plan was asked for all of them.
  std::vector<RecordPlan> records;
  std::vector<ErrorNote> errors;  // reported outside any record
  // The run's own counts; a plan without them (made record by record) counts its records.
  std::optional<RunCounts> counts;
  // Runs from Outlook without the pairing of created companies: companies this run makes for
  // items an earlier run already made one for (and paired with -1), and items this run leaves
  // paired with -1 after making their company (the next run makes those again).
  int32_t companiesCreatedAgain = 0;
  int32_t companiesToCreateAgain = 0;
  // Pairings made by a name match; Outlook contacts paired with more than one record of the
  // run; contacts found by name at another company than their Outlook contact's.
  int32_t nameMatches = 0;
  int32_t itemsPairedTwice = 0;
  int32_t contactsAtAnotherCompany = 0;

  int32_t count(const std::string& action) const;
  int32_t errorCount() const;
  int32_t recordCount() const;
  int32_t failedCount() const;
  int32_t conflictCount() const;
};

// Whether a record is worth listing: it changed something, or has something to say. A record
// that was not chosen and keeps the pairing its own mapping found changed nothing either.
bool worthListing(const RecordPlan& record);

// The run's tallies (companiesCreatedAgain to contactsAtAnotherCompany) as members of `j`, and
// back; reports written before pairings by name were told apart lack the last three (read 0).
void putTallies(nlohmann::ordered_json& j, const RunPlan& plan);
void takeTallies(const nlohmann::ordered_json& j, RunPlan& plan);

// Conflicts as JSON ([{"field", "base", "host", "outlook", "kept"}]) and back.
nlohmann::ordered_json conflictsJson(const std::vector<Conflict>& conflicts);
std::vector<Conflict> conflictsFrom(const nlohmann::ordered_json& j);
// A list of errors as JSON ([{"number", "description", "location"}]) and back.
nlohmann::ordered_json errorsJson(const std::vector<ErrorNote>& errors);
std::vector<ErrorNote> errorsFrom(const nlohmann::ordered_json& j);
// Rows added, the same way ([{"table", "fields": {...}}]).
nlohmann::ordered_json addedJson(const std::vector<AddedRow>& rows);
std::vector<AddedRow> addedFrom(const nlohmann::ordered_json& j);

// The whole plan as one document (`--json`): the records listed, and the counts of all.
nlohmann::ordered_json toJson(const RunPlan& plan);
// Takes that document, and the whole-file reports of earlier versions (which listed every
// record). Throws nlohmann::json::exception on a document of another shape.
RunPlan planFromJson(const nlohmann::ordered_json& json);
std::string toText(const RunPlan& plan);
// One line: how many records take each action, and the errors.
std::string summaryLine(const RunPlan& plan);
// One line on the pairings made by name and what they put at risk; "" when there were none.
std::string nameMatchLine(const RunPlan& plan);

}  // namespace dossync::report
