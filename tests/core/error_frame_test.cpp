#include "core/error_frame.h"

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

#include "backends/sqlite/sqlite_data_access.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

class ErrorFrameTest : public testing::ApartmentTest {
 protected:
  void SetUp() override {
    ApartmentTest::SetUp();
    c = std::make_unique<clsOutlookSynchronization>();
    c->setErrorClass(service);
  }
  // A procedure of three steps whose second fails; answers the steps that ran to the end.
  std::vector<int> runProcedure() {
    std::vector<int> done;
    ErrorFrame f("test.dll-object-procedure");
    f.step([&] { done.push_back(1); });
    f.step([] { throw RuntimeError(kTypeMismatch, "bad value"); });
    f.step([&] { done.push_back(3); });
    return done;
  }
  std::shared_ptr<testing::RecordingErrorService> service =
      std::make_shared<testing::RecordingErrorService>();
  std::unique_ptr<clsOutlookSynchronization> c;
};

TEST_F(ErrorFrameTest, TheServicesActionDecidesWhetherTheProcedureGoesOn) {
  int raised = 0;
  c->subscribeExitProgram([&] { ++raised; });
  // Resume goes on with the next step; Leave, Exit Program and unknown actions stop.
  for (auto [action, steps] : std::vector<std::pair<int32_t, std::vector<int>>>{
           {kActionResume, {1, 3}}, {kActionLeave, {1}}, {7, {1}}, {kActionExitProgram, {1}}}) {
    service->action = action;
    EXPECT_EQ(runProcedure(), steps) << action;
  }
  ASSERT_EQ(service->errors.size(), 4u);
  EXPECT_EQ(service->errors[0].number(), kTypeMismatch);
  EXPECT_EQ(service->errorLocations[0], "test.dll-object-procedure");
  EXPECT_EQ(service->reports, 4);
  // Exit Program raises the event on the current component, then leaves.
  EXPECT_EQ(raised, 1);
  EXPECT_TRUE(service->stack.empty());

  // Without a service nothing is recorded and an error leaves silently.
  resetApartment();
  ErrorFrame f("a");
  EXPECT_FALSE(f.step([] { throw RuntimeError(kOverflow, "x"); }));
  EXPECT_TRUE(f.leaving());
  EXPECT_EQ(service->errors.size(), 4u);
}

TEST_F(ErrorFrameTest, ForeignExceptionsBecomeRuntimeErrors) {
  ErrorFrame f("p");
  f.step([] { throw std::out_of_range("index 9"); });
  ASSERT_EQ(service->errors.size(), 1u);
  EXPECT_EQ(service->errors[0].number(), kInvalidProcedureCall);
  EXPECT_EQ(service->errors[0].description(), "index 9");
}

// The background work is cards being written; when it or the host's commit fails, the pairings'
// group is dropped instead.
TEST_F(ErrorFrameTest, ACommitPointFinishesBackgroundWorkThenCommitsTheHostThenThePairings) {
  std::vector<std::string> order;
  struct Work : IdleTask {
    std::vector<std::string>* order;
    bool fail = false;
    void finish() override { order->push_back("finish"); }
    bool takeFailure() override { return std::exchange(fail, false); }
  };
  struct Grouped : testing::ForwardingDataAccess {
    using ForwardingDataAccess::ForwardingDataAccess;
    std::vector<std::string>* order;
    std::string name;
    bool due = false, fail = false;
    bool commitDue() override { return due; }
    void idle() override {
      order->push_back(name + " commit");
      if (fail) throw RuntimeError(kDiskIO, "The last 3 changes could not be committed");
    }
    void dropGroup() override { order->push_back(name + " drop"); }
  };
  auto work = std::make_shared<Work>();
  work->order = &order;
  auto grouped = [&](const char* name) {
    auto db = std::make_shared<Grouped>(std::make_shared<sqlite::SqliteDataAccess>());
    db->order = &order;
    db->name = name;
    return db;
  };
  auto host = grouped("host"), sync = grouped("sync");
  apartment().hostDb = host;
  apartment().syncDb = sync;
  apartment().finishWhenIdle(work);
  EXPECT_TRUE(apartment().commitPoint().empty());
  EXPECT_TRUE(order.empty());  // nothing before it was due
  sync->due = true;
  EXPECT_TRUE(apartment().commitPoint().empty());
  EXPECT_EQ(order, (std::vector<std::string>{"finish", "host commit", "sync commit"}));
  // Commit points are paced by what the last commit cost: the next one commits a little later.
  auto commitWhenPaced = [&] {
    std::vector<RuntimeError> failed;
    auto end = std::chrono::steady_clock::now() + 2 * Apartment::kCommitSpacing;
    while (order.empty() && std::chrono::steady_clock::now() < end)
      failed = apartment().commitPoint();
    return failed;
  };
  order.clear();
  host->fail = true;
  auto failed = commitWhenPaced();
  ASSERT_EQ(failed.size(), 1u);
  EXPECT_EQ(failed[0].number(), kDiskIO);
  EXPECT_EQ(order, (std::vector<std::string>{"finish", "host commit", "sync drop"}));
  order.clear();
  host->fail = false;
  work->fail = true;  // a card that could not be written, reported already
  EXPECT_TRUE(commitWhenPaced().empty());
  EXPECT_EQ(order, (std::vector<std::string>{"finish", "host commit", "sync drop"}));
}

}  // namespace
}  // namespace dossync
