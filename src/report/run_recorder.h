// The observer of synchronisation runs (core/run_observer.h) that writes down what each run
// does as it goes: for a real run, its report; for a preview, its plan. Give it to the
// component (setRunObserver). Each run (SynchronizeContacts) starts a new plan; `open` says
// which file its report goes to, and each record is written there (report_file.h) when it is
// done, only the record under way being kept; when the run ends `finished` is called with the
// plan, which then holds the run's counts but no records.
//
// A preview is a run inside a PreviewScope: the recorder's Outlook stands in front of the real
// one and saves nothing, and both databases roll back all the run wrote. Its plan goes through
// the same writer into a temporary file and is read back from it whole: plan() then has its
// records, as `report show` would show them.
// Thread use: the apartment's one thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/run_observer.h"
#include "report/report_file.h"
#include "report/run_plan.h"

namespace dossync::report {

class RunRecorder : public IRunObserver {
 public:
  // Settings the component does not know (the store, the selection), shown with its own.
  void setSetting(const std::string& key, const std::string& value);
  // The file a real run's report is written into, asked when the run starts (the plan has its
  // kind, start and settings); "" writes none, the run being only counted.
  std::function<std::filesystem::path(const RunPlan&)> open;
  // When a real run has ended: its plan (counts, no records), the file written ("" none), and
  // why writing it failed ("" it did not; the file is then left as far as it got).
  std::function<void(RunPlan&, const std::filesystem::path& file, const std::string& error)>
      finished;
  // Each record when it is done, its action known (before it is written), listed or not.
  std::function<void(const RecordPlan&)> recordDone;
  // The last run's plan: a preview's with its records (read back), a real run's counts.
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
  void groupEnded(bool committed) override;
  void recordAction(const std::string& action) override;
  void conflict(const std::string& field, const std::string& base, const std::string& host,
                const std::string& outlook, const std::string& kept) override;
  void recordNote(const std::string& text) override;

 private:
  friend class PreviewScope;
  RecordPlan* current();
  void writeRecord(const RecordPlan& r);
  void writeFailed(const std::exception& e);

  std::vector<std::pair<std::string, std::string>> extraSettings_;
  RunPlan plan_;
  RecordPlan current_;
  std::unique_ptr<ReportWriter> writer_;
  std::filesystem::path file_;
  std::string writeError_;
  int32_t listed_ = 0;  // records written
  // The records finished since the last group ended, by action: undone with their group when
  // it could not be committed.
  int32_t groupActions_[RunCounts::kActions] = {};
  std::vector<LateWarning> late_;
  bool preview_ = false;
  bool previewAll_ = false;  // a preview lists every record
  std::filesystem::path previewFile_;
  bool inRecord_ = false;
  bool itemSaved_ = false, itemCreated_ = false;
  bool actionTold_ = false;  // the run said the record's action (two-way runs): it stands
  bool madeBefore_ = false;  // the item's pairing says -1: an earlier run made its company
  bool lookedUp_ = false;    // the record's own look-up was answered (the next is its contact's)
  // The Outlook contacts paired in this run (by a hash of the entry id): the first record
  // paired with each, as much of it as a warning that comes after it was written needs (its
  // name is read again from the host then), and how many more records were paired with the
  // contact after it. A few bytes a record: a run of 100,000 keeps a few MB.
  struct ItemPairing {
    int32_t key = 0;      // the host number
    int32_t listed = -1;  // its place among the listed records, -1 not listed
    int32_t before = 0;   // records listed before it
    int32_t more = 0;
    bool selected = true;
    uint8_t action = 0, foundBy = 0, contactFoundBy = 0;  // indexes into the texts they are
  };
  std::unordered_map<uint64_t, ItemPairing> pairedItems_;
  ItemPairing* currentPairing_ = nullptr;
  clsOutlookSynchronization* component_ = nullptr;
  double startedAt_ = 0;
};

// While it lives, runs of the component are previews: the host database and the
// synchronisation database each hold everything in one transaction that is rolled back when
// the scope ends, and the recorder's Outlook saves nothing. Throws RuntimeError (naming the
// database) when a database that is open cannot preview; nothing is begun then.
class PreviewScope {
 public:
  // all: the plan lists the records that changed nothing too.
  explicit PreviewScope(RunRecorder& recorder, bool all = false);
  ~PreviewScope();
  PreviewScope(const PreviewScope&) = delete;
  PreviewScope& operator=(const PreviewScope&) = delete;

 private:
  RunRecorder& recorder_;
};

// Local time as ISO 8601 ("2026-11-25T17:15:02"), or compact ("20261125-171502").
std::string localTimestamp(bool compact = false);

}  // namespace dossync::report
