// Watches a synchronisation run record by record, for the preview and the report of the run
// (report/). The component tells the observer it was given when a run starts and ends; while a
// run goes on, the apartment's runObserver is that observer and:
//   the driver says which record it is on, whether it was chosen, what the look-up found and
//   what it paired the record with;
//   the look-ups of the pairings say how they found what they answer (its pairing, or a name);
//   the host database's recordsets report each row they add and each column whose value they
//   change (before and after);
//   error frames report each error with the procedure it happened in;
//   StartOutlook hands the observer the Outlook application, which may answer one of its own
//   standing in front of it (to see every item saved, or, in a preview, to save none).
// An observer never changes what the run does: whatever it throws is dropped.
// Thread use: the apartment's one thread; the observer outlives the runs it watches.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/error.h"

namespace dossync {

class clsOutlookSynchronization;
namespace outlook {
class Application;
}

class IRunObserver {
 public:
  // Pair: a record of a two-way run (twoway/two_way.h), a host record with its item.
  enum class Kind { Company, Contact, OutlookItem, Pair };
  // How a look-up found a record's counterpart: by the pairing saved for the record, by a name
  // match (an Outlook contact filed under the record's name, or the first host record named like
  // the item), or not at all.
  enum class FoundBy { None, Mapping, Name };

  virtual ~IRunObserver() = default;
  virtual void runStarted(clsOutlookSynchronization& component) = 0;
  virtual void runFinished(clsOutlookSynchronization& component) = 0;
  virtual std::shared_ptr<outlook::Application> watch(
      std::shared_ptr<outlook::Application> app) = 0;

  // key: the host number, or the Outlook entry id.
  virtual void recordStarted(Kind kind, const std::string& key) = 0;
  virtual void recordNamed(const std::string& name) = 0;
  virtual void recordSelected(bool selected) = 0;
  // What the look-up found: an entry id ("" none) or a host number ("-1" none).
  virtual void lookedUp(const std::string& counterpart) = 0;
  virtual void paired(const std::string& hostNumber, const std::string& outlookID) = 0;
  // A look-up of the pairing of a host company or contact (kind) with an Outlook contact: how
  // it answered, and the host number it pairs ("-1" none). For a name match, itemCompany is
  // the Outlook contact's CompanyName.
  virtual void lookupAnswered(Kind kind, FoundBy how, const std::string& hostNumber,
                              const std::string& itemCompany) = 0;
  virtual void recordFinished() = 0;
  // The records finished since the last group ended were committed (true), or undone with it.
  virtual void groupEnded(bool /*committed*/) {}
  // Two-way runs say what each record does (one of the actions of report/run_plan.h) rather
  // than leave it to be seen from what was saved; a field changed on both sides to different
  // values, with the value the rule kept ("host" or "outlook"); and anything else worth a line
  // (a deletion, a refusal).
  virtual void recordAction(const std::string& /*action*/) {}
  virtual void conflict(const std::string& /*field*/, const std::string& /*base*/,
                        const std::string& /*host*/, const std::string& /*outlook*/,
                        const std::string& /*kept*/) {}
  virtual void recordNote(const std::string& /*text*/) {}

  virtual void hostRowAdded(const std::string& table,
                            const std::vector<std::pair<std::string, std::string>>& fields) = 0;
  virtual void hostColumnChanged(const std::string& table, const std::string& column,
                                 const std::string& before, const std::string& after) = 0;
  virtual void errorReported(const RuntimeError& error, const std::string& location) = 0;
};

// Calls the apartment's observer, if a run is watched, dropping anything it throws.
template <class Call>
void observeRun(Call&& call);

}  // namespace dossync
