// dossync's two-way mode: one run keeps the practice's companies (with their default contacts)
// or contacts and the address book in step, field by field, pairing records by identity only.
// It is not the component's own behaviour: the component's direction 1 synchronises nothing
// unless a host hands it this mode (enableBothWays), as the command line (`sync --two-way`) and
// the Qt wizard ("Both ways") do; its tables OutlookScheme/OutlookSync and its one-way runs are
// left as they are.
//
// The contract of a run (information type 1, a company with its default contact, or 7, contacts):
//
// State. The synchronisation database holds a table of its own, "TwoWayPairs" (made when
//   missing), one row per pair and per (scheme, data file): the host company and contact keys,
//   the item's EntryID, whether the item was deleted from the store, and the base: for each
//   paired field the host's and the item's value as they were after the last run that wrote
//   them (both, so a change of either side is seen in that side's own form), and in a column of
//   its own a hash of each side's values: a pair whose sides still hash as its base says is
//   passed over without its base being read. The table is read once per run; a row is written
//   only when it changes.
// Pairing. A pair is found by its keys only. The first run adopts the scheme's OutlookSync
//   pairings whose item exists and is not already paired. Then an unpaired host record is
//   paired with an existing item only when exactly one item is filed under its name and that
//   item is unpaired; otherwise it gets a new item. An unpaired item gets new host records
//   (type 1: a company with its client record and a default contact; type 7: a contact, at the
//   one company named exactly as the item's CompanyName, or else at a new company of that name)
//   and is paired at once. A pair without a base (adopted, or matched by name) is merged as if
//   every field had changed on both sides, except that a value never replaces a filled one with
//   nothing: an empty side takes the other's value; and an item's business telephone, fax or web
//   page that holds what the one-way run shows in place of the company's empty one (its default
//   contact's) is left as it is, the company's field empty.
// Fields. fieldPairs(info): the columns and properties both one-way transfers of the type use,
//   with their conversions (gender, dates); where the two transfers use different properties
//   (type 7's e-mail addresses), those the transfer to Outlook writes. docs/two-way.md has the
//   table.
// Merge. Per field: changed since the base on one side only: copied to the other; on both to
//   the same value: nothing; on both to different values: a conflict, settled by the rule
//   (the host's value by default) and reported with base, host and Outlook values. A change of
//   letter case is a change. A pair whose fields changed on neither side writes nothing
//   anywhere (no card, no request that writes, no host row, no state row).
// Deletions. An item gone from the store never deletes a host record: the pair is kept, marked
//   deleted, the record left alone and not made again (unless restoreDeleted). A paired host
//   record that is gone deletes its item; but when the run would delete more than a fifth of
//   the paired items and more than five of them, the whole run is refused before anything is
//   written (RuntimeError kTooManyDeletions naming the number and --force) unless `force`.
// Safety. Each pair is one record of the run (Apartment::beginRecord/endRecord): its host
//   writes and state row are undone together when it fails, and the state row (the base) is
//   committed only after the item and the host rows it describes (Apartment's commit order).
//   A run killed anywhere and run again loses no change and makes nothing twice: an item made
//   for a host record whose pair was lost is found again under the record's name; host records
//   made for an item whose pair was lost are found again as the unpaired record whose fields
//   are all the item's. Errors of one pair do not stop the others.
// Observation. Each pair is a record for the run's observer (Kind::Pair, key = the host
//   number, or the entry id of an item not paired yet) with its action (kActions of
//   report/run_plan.h: create-item, update-item, create-company, create-contact,
//   update-company, update-contact, update-both, delete-item, item-deleted, nothing), the
//   conflicts and notes; copies show as the item's saved changes and the host's changed
//   columns. A preview is the same run inside a PreviewScope.
// Thread use: the apartment's one thread, inside the component's run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dossync {
class clsOutlookSynchronization;
}

namespace dossync::twoway {

enum class ConflictRule { Host, Outlook };

struct Settings {
  ConflictRule conflict = ConflictRule::Host;
  bool force = false;           // run even when it would delete many items
  bool restoreDeleted = false;  // make again the items of pairs kept as deleted
};

// The error of a refused run: too many items would be deleted.
inline constexpr int32_t kTooManyDeletions = 32760;

// One field of the merge: a host column and the Outlook property it pairs with.
struct FieldPair {
  std::string table;     // "Companies" or "Contacts"
  std::string column;    // the host column
  std::string property;  // the Outlook property (ContactItem's name; Gender, Birthday, Anniversary)
};
// The field pairs of information type 1 or 7 (empty for any other).
const std::vector<FieldPair>& fieldPairs(int32_t info);

// Makes direction 1 (syncBothsWays) of this component run the two-way mode with `settings`.
void enableBothWays(clsOutlookSynchronization& component, const Settings& settings);

// The run itself, inside the component's SynchronizeContacts (Outlook started, the run
// observed); the component's SchemeID, DataFileUniqueID, SyncInformationType and
// OutlookCategory say what it works on. Errors go through the error frames.
void synchronizeBothWays(clsOutlookSynchronization& component, const Settings& settings);

}  // namespace dossync::twoway
