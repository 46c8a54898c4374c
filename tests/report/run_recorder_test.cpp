#include "report/run_recorder.h"

#include <gtest/gtest.h>

#include "core/synchronization.h"

namespace dossync::report {
namespace {

// A two-way run's records: the action the run says stands over what the recorder would see
// from the writes; conflicts are counted and make a record worth listing even when it copies
// nothing.
TEST(RunRecorderTest, TwoWayRecordsKeepTheActionTheRunSays) {
  clsOutlookSynchronization component;
  component.setSyncDirectionType(syncBothsWays);
  RunRecorder recorder;
  RunPlan finished;
  recorder.finished = [&](RunPlan& plan, const std::filesystem::path&, const std::string&) {
    finished = plan;
  };
  recorder.runStarted(component);

  recorder.recordStarted(IRunObserver::Kind::Pair, "4");
  recorder.hostColumnChanged("Companies", "City", "Hull", "Aylmer");
  recorder.recordAction("update-both");  // its item change went unseen here
  recorder.recordFinished();

  recorder.recordStarted(IRunObserver::Kind::Pair, "6");
  recorder.conflict("Companies.City", "Hull", "Aylmer", "Gatineau", "host");
  recorder.recordNote("kept the host's value");
  recorder.recordAction("nothing");
  recorder.recordFinished();

  recorder.runFinished(component);
  EXPECT_EQ(finished.recordCount(), 2);
  EXPECT_EQ(finished.count("update-both"), 1);
  EXPECT_EQ(finished.count("nothing"), 1);
  EXPECT_EQ(finished.conflictCount(), 1);

  RecordPlan quiet;
  quiet.kind = "pair";
  quiet.conflicts.push_back({"Companies.City", "a", "b", "c", "outlook"});
  EXPECT_TRUE(worthListing(quiet));
  quiet.conflicts.clear();
  EXPECT_FALSE(worthListing(quiet));
}

}  // namespace
}  // namespace dossync::report
