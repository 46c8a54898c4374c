// The observer of synchronisation runs (core/run_observer.h) that writes down what each run
// does as a RunPlan: for a real run, its report; for a preview, its plan. Give it to the
// component (setRunObserver); each run (SynchronizeContacts) starts a new plan, and when the
// run ends `finished` is called with it.
//
// A preview is a run inside a PreviewScope: the recorder's Outlook stands in front of the real
// one and saves nothing, and both databases roll back all the run wrote.
// Thread use: the apartment's one thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/run_observer.h"
#include "report/run_plan.h"

namespace dossync::report {

class RunRecorder : public IRunObserver {
 public:
  // Settings the component does not know (the store, the selection), shown with its own.
  void setSetting(const std::string& key, const std::string& value);
  std::function<void(const RunPlan&)> finished;
  const RunPlan& plan() const { return plan_; }

  void runStarted(clsOutlookSynchronization& component) override;
  void runFinished(clsOutlookSynchronization& component) override;
  std::shared_ptr<outlook::Application> watch(std::shared_ptr<outlook::Application> app) override;
  void recordStarted(Kind kind, const std::string& key) override;
  void recordNamed(const std::string& name) override;
  void recordSelected(bool selected) override;
  void lookedUp(const std::string& counterpart) override;
  void paired(const std::string& hostNumber, const std::string& outlookID) override;
  void lookupAnswered(Kind kind, FoundBy how, const std::string& hostNumber,
                      const std::string& itemCompany) override;
  void recordFinished() override;
  void hostRowAdded(const std::string& table,
                    const std::vector<std::pair<std::string, std::string>>& fields) override;
  void hostColumnChanged(const std::string& table, const std::string& column,
                         const std::string& before, const std::string& after) override;
  void errorReported(const RuntimeError& error, const std::string& location) override;

 private:
  friend class PreviewScope;
  RecordPlan* current();

  std::vector<std::pair<std::string, std::string>> extraSettings_;
  RunPlan plan_;
  bool preview_ = false;
  bool inRecord_ = false;
  bool itemSaved_ = false, itemCreated_ = false;
  bool madeBefore_ = false;  // the item's pairing says -1: an earlier run made its company
  bool lookedUp_ = false;    // the record's own look-up was answered (the next is its contact's)
  // The Outlook contacts paired in this run: the first record paired with each, and how many
  // more were paired with it after.
  struct ItemPairing {
    size_t record;
    int32_t more;
  };
  std::map<std::string, ItemPairing> pairedItems_;
  clsOutlookSynchronization* component_ = nullptr;
  double startedAt_ = 0;
};

// While it lives, runs of the component are previews: the host database and the
// synchronisation database each hold everything in one transaction that is rolled back when
// the scope ends, and the recorder's Outlook saves nothing. Throws RuntimeError (naming the
// database) when a database that is open cannot preview; nothing is begun then.
class PreviewScope {
 public:
  explicit PreviewScope(RunRecorder& recorder);
  ~PreviewScope();
  PreviewScope(const PreviewScope&) = delete;
  PreviewScope& operator=(const PreviewScope&) = delete;

 private:
  RunRecorder& recorder_;
};

// Local time as ISO 8601 ("2026-11-25T17:15:02"), or compact ("20261125-171502").
std::string localTimestamp(bool compact = false);

}  // namespace dossync::report
