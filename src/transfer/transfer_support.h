// Shared pieces of the record transfers: opening the paired Outlook contact or a new one, and
// the value conversions between host columns and contact properties.
#pragma once

#include <memory>
#include <string>

#include "core/host_database.h"
#include "core/recordset.h"
#include "interfaces/data_access.h"
#include "interfaces/object_model.h"
#include "transfer/transfer.h"

namespace dossync::transfer {

struct OpenedItem {
  outlook::ContactItemPtr item;
  bool existing = false;  // the paired item was found; otherwise a new unsaved one
};

// The item with that entry id in the default contacts folder, else a new contact item. One
// step for the caller: a paired item that could not be looked up is not replaced by a new one.
OpenedItem openOrCreateContact(clsOutlookSynchronization& c, const std::string& outlookEntryID);

// Host "Gender" text -> Outlook gender: "MALE" 2, "FEMALE" 1, anything else 0 (any case).
int32_t genderFromHost(const std::string& text);
// A host date text through "mmm d, yyyy" to a date (RuntimeError 13 when it is no date).
value::Date dateFromHost(const std::string& text);

// Gender, Birthday and Anniversary of a host contact row, each a step of the caller's frame:
// a blank date leaves the item's as it was.
void copyGenderAndDates(ErrorFrame& f, outlook::ContactItem& item, hostdb::Recordset& contact);

// Saves the item, counts it as created or updated and answers its EntryID.
std::string saveItem(clsOutlookSynchronization& c, OpenedItem& opened);

}  // namespace dossync::transfer
