#include "core/error.h"

#include <gtest/gtest.h>

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
    f.step([&] {
      throw RuntimeError(kTypeMismatch, "bad value");
      done.push_back(2);
    });
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
  for (auto [action, steps] :
       std::vector<std::pair<int32_t, std::vector<int>>>{{kActionResume, {1, 3}},
                                                         {kActionLeave, {1}},
                                                         {0, {1}},
                                                         {7, {1}},
                                                         {kActionExitProgram, {1}}}) {
    service->action = action;
    EXPECT_EQ(runProcedure(), steps) << action;
  }
  ASSERT_EQ(service->errors.size(), 5u);
  EXPECT_EQ(service->errors[0].number(), kTypeMismatch);
  EXPECT_EQ(service->errorLocations[0], "test.dll-object-procedure");
  EXPECT_EQ(service->reports, 5);
  // Exit Program raises the event on the current component, then leaves.
  EXPECT_EQ(raised, 1);
  EXPECT_TRUE(service->stack.empty());
}

TEST_F(ErrorFrameTest, ForeignExceptionsBecomeRuntimeErrors) {
  ErrorFrame f("p");
  f.step([] { throw std::out_of_range("index 9"); });
  ASSERT_EQ(service->errors.size(), 1u);
  EXPECT_EQ(service->errors[0].number(), kInvalidProcedureCall);
  EXPECT_EQ(service->errors[0].description(), "index 9");
}

TEST(ErrorFrameWithoutService, NothingIsRecordedAndErrorsLeaveSilently) {
  resetApartment();
  ErrorFrame f("a");
  EXPECT_FALSE(f.step([] { throw RuntimeError(kOverflow, "x"); }));
  EXPECT_TRUE(f.leaving());
}

// Work behind the procedures' back (cards being written) is done before a group of pairings
// naming it is committed, and only then.
TEST_F(ErrorFrameTest, ACommitPointFinishesBackgroundWorkBeforeItCommits) {
  std::vector<std::string> order;
  struct Work : IdleTask {
    std::vector<std::string>* order;
    void finish() override { order->push_back("finish"); }
  };
  struct Grouped : testing::ForwardingDataAccess {
    using ForwardingDataAccess::ForwardingDataAccess;
    std::vector<std::string>* order;
    bool due = false;
    bool commitDue() override { return due; }
    void commitPoint() override { order->push_back("commit"); }
  };
  auto work = std::make_shared<Work>();
  work->order = &order;
  auto db = std::make_shared<Grouped>(std::make_shared<sqlite::SqliteDataAccess>());
  db->order = &order;
  apartment().syncDb = db;
  apartment().finishWhenIdle(work);
  apartment().commitPoint();
  db->due = true;
  apartment().commitPoint();
  EXPECT_EQ(order, (std::vector<std::string>{"finish", "commit"}));  // nothing before it was due
}

}  // namespace
}  // namespace dossync
