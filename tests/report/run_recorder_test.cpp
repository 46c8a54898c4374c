// The recorder between a run and its report file.
#include "report/run_recorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "base/error.h"
#include "core/synchronization.h"
#include "report/report_file.h"
#include "test_support.h"

namespace dossync::report {
namespace {

namespace fs = std::filesystem;
using Kind = IRunObserver::Kind;

struct Finished {
  bool called = false;
  RunPlan plan;
  fs::path file;
  std::string error;
};

// A run of four companies: one updated, one made whose group was then rolled back, one that
// failed, one that changed nothing; and an error outside any record.
void recordARun(RunRecorder& recorder, clsOutlookSynchronization& component) {
  recorder.runStarted(component);
  auto record = [&](const char* key, const char* action) {
    recorder.recordStarted(Kind::Company, key);
    recorder.recordNamed(std::string("Company ") + key);
    if (action) recorder.recordAction(action);
  };
  record("1", "update-item");
  recorder.recordFinished();
  recorder.groupEnded(true);
  record("2", "create-item");
  recorder.recordFinished();
  recorder.groupEnded(false);
  record("3", nullptr);
  recorder.errorReported(RuntimeError(kTypeMismatch, "bad date"), "transfer-3");
  record("4", nullptr);  // the next record ends the one before
  recorder.recordFinished();
  recorder.errorReported(RuntimeError(kItemNotFound, "gone"), "run");
  recorder.runFinished(component);
}

Finished recordARunInto(const fs::path& file) {
  Finished finished;
  RunRecorder recorder;
  recorder.setSetting("select", "1,2,3,4");
  recorder.setSetting("scheme", "9");  // one the component has too: replaced, not added
  recorder.open = [file](const RunPlan& plan) {
    EXPECT_EQ(plan.kind, "report");
    return file;
  };
  recorder.finished = [&finished](RunPlan& plan, const fs::path& written,
                                  const std::string& error) {
    finished = {true, plan, written, error};
  };
  clsOutlookSynchronization component;
  recordARun(recorder, component);
  return finished;
}

TEST(RunRecorderTest, ARunIsListedAndCountedInItsReport) {
  testing::TempDir dir;
  const fs::path file = dir.file("run.dsr");
  Finished finished = recordARunInto(file);

  ASSERT_TRUE(finished.called);
  EXPECT_EQ(finished.file, file);
  EXPECT_EQ(finished.error, "");
  RunPlan back = readReportFile(file);
  // Listed: what changed something or failed; the record that changed nothing is only counted.
  std::vector<std::string> keys;
  for (const auto& r : back.records) keys.push_back(r.key + " " + r.action);
  EXPECT_EQ(keys, (std::vector<std::string>{"1 update-item", "2 create-item", "3 nothing"}));
  ASSERT_EQ(back.errors.size(), 1u);
  EXPECT_EQ(back.errors[0].number, kItemNotFound);
  // Records, updated, created, failed, errors: the rolled-back group's record counts as failed.
  EXPECT_EQ(
      (std::vector<int32_t>{back.recordCount(), back.count("update-item"),
                            back.count("create-item"), back.failedCount(), back.errorCount()}),
      (std::vector<int32_t>{4, 1, 0, 2, 2}));
  EXPECT_EQ(finished.plan.failedCount(), back.failedCount());
  std::vector<std::string> given;
  for (const auto& [key, value] : back.settings)
    if (key == "select" || key == "scheme") given.push_back(key + " " + value);
  std::sort(given.begin(), given.end());
  EXPECT_EQ(given, (std::vector<std::string>{"scheme 9", "select 1,2,3,4"}));
}

TEST(RunRecorderTest, AReportThatCannotBeWrittenLetsTheRunEndAndSaysWhy) {
  testing::TempDir dir;
  const fs::path file = fs::path(dir.path()) / "no such folder" / "run.dsr";
  Finished finished = recordARunInto(file);

  ASSERT_TRUE(finished.called);
  EXPECT_NE(finished.error.find("no such folder"), std::string::npos) << finished.error;
  // The run's counts are whole all the same.
  EXPECT_EQ(finished.plan.recordCount(), 4);
  EXPECT_EQ(finished.plan.errorCount(), 2);
  EXPECT_FALSE(fs::exists(file));
}

}  // namespace
}  // namespace dossync::report
