// The synchronisation contract. The driver's procedures are members of
// clsOutlookSynchronization (core/synchronization.h): Synchronize, SynchronizeContacts,
// getRecordCount, outlookDialog_StartProgress.
//
// What a run is:
//   Every run is full in the chosen direction; nothing is incremental. DateLastSync is written
//   on each pairing, never compared: the chosen direction always wins, there is no conflict
//   resolution and nothing is merged.
//   Host to Outlook (direction 2) walks every row of Companies (information types 1 and 2) or
//   Contacts (7 only; 3 and 4 start nothing). For every row it looks up the paired Outlook item
//   (the mapping row of this scheme and data file, else a contact filed under the record's
//   name), transfers the row when it is selected, and saves the pairing whether selected or
//   not, so unselected rows are paired with whatever the look-up found (possibly nothing).
//   Outlook to host (direction 3) walks the selection (Outlook entry ids): each becomes or
//   updates a host company with its default contact; the pairing saved for the company is the
//   number found before the transfer (-1 for a new company), so a later run makes another.
//   Direction 1 (both ways) synchronises nothing.
//
// What a failure does to the pairings:
//   A run that fails never spoils a good pairing. A transfer that saved nothing ("-1", or no
//   identifier) leaves the row with the identifier the look-up gave. A look-up that reported an
//   error (the mapping could not be read, Outlook could not be searched) answered a fallback,
//   not "no counterpart": that record is neither transferred nor paired in this run, so no
//   item or host company is made for it and its row stays as it was. The walk goes on with
//   the next record (on the resume and leave actions alike: the callee handled its error).
//
// Who assigns ids:
//   Outlook assigns EntryIDs (on Save); the host database assigns CompanyID, ContactID and
//   ClientDataID (auto-numbers); the synchronisation database assigns SyncID. The mapping
//   table OutlookSync pairs them per (SchemeNum, DataFileID).
//
// Crash safety: host rows and pairings are committed a record at a time, at commit points
// between records at most about 100 ms apart (and before the run returns or an error or
// message is shown), so a group never holds half a record; Outlook items are saved whole. A
// back end may finish saves behind the run (the vCard folder does): a commit point first waits
// for them, so no pairing is committed before the item it names exists. A run that is killed
// leaves complete items and rows: a new run finds items saved before the kill whose pairing was
// lost by their file-as name and updates them rather than adding duplicates.
//
// The Outlook session started by a run stays open; StopOutlook is the caller's.
#pragma once

#include "core/synchronization.h"
