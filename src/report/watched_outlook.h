// An Outlook application standing in front of the real one for a watched run: every contact
// item the run opens or creates tells, when it is saved, what the run set in it to another value
// since it was opened or last saved, and the differences go to the listener. The watch reads
// nothing the run leaves alone: an old value is the one the run read before setting it, else
// read just before the set (never for a property the back end guards: then it is not known);
// a new item held nothing. In a preview nothing is saved: a save keeps
// the item here instead, under an entry id of its own ("preview-N" for a new item), and later
// look-ups of the run (by entry id, or by file-as name) find it as they would find the saved
// item. Everything else is passed through.
// Thread use: the apartment's one thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "interfaces/object_model.h"
#include "report/run_plan.h"

namespace dossync::report {

struct ItemSave {
  std::string entryId;
  bool created = false;
  std::vector<Change> changes;  // target "item"
};

struct WatchListener {
  std::function<void(ItemSave&&)> saved;  // the save's changes may be taken
  // An item the run opened by its entry id, and the name it is known by.
  std::function<void(const std::string& entryId, const std::string& name)> opened;
};

// preview: whether saves are kept here instead of being made. The listener outlives the answer.
std::shared_ptr<outlook::Application> watchOutlook(std::shared_ptr<outlook::Application> real,
                                                   bool preview, WatchListener listener);

}  // namespace dossync::report
