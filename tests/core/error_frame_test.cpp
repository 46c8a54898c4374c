#include "core/error.h"

#include <gtest/gtest.h>

#include "core/apartment.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

using testing::RecordingErrorService;

class ErrorFrameTest : public testing::ApartmentTest {
 protected:
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
  std::shared_ptr<RecordingErrorService> service = std::make_shared<RecordingErrorService>();
};

TEST_F(ErrorFrameTest, ResumeGoesOnWithTheNextStep) {
  clsOutlookSynchronization c;
  c.setErrorClass(service);
  service->action = kActionResume;
  EXPECT_EQ(runProcedure(), (std::vector<int>{1, 3}));
  ASSERT_EQ(service->errors.size(), 1u);
  EXPECT_EQ(service->errors[0].number(), kTypeMismatch);
  EXPECT_EQ(service->errorLocations[0], "test.dll-object-procedure");
  EXPECT_EQ(service->reports, 1);
}

TEST_F(ErrorFrameTest, LeaveAndUnknownActionsStopTheProcedure) {
  clsOutlookSynchronization c;
  c.setErrorClass(service);
  for (int32_t action : {int32_t{kActionLeave}, 0, 7}) {
    service->action = action;
    EXPECT_EQ(runProcedure(), (std::vector<int>{1})) << action;
  }
}

TEST_F(ErrorFrameTest, ExitProgramRaisesTheEventOnTheCurrentComponentThenLeaves) {
  clsOutlookSynchronization c;
  c.setErrorClass(service);
  int raised = 0;
  c.subscribeExitProgram([&] { ++raised; });
  service->action = kActionExitProgram;
  EXPECT_EQ(runProcedure(), (std::vector<int>{1}));
  EXPECT_EQ(raised, 1);
}

TEST_F(ErrorFrameTest, LocationsEnterAndLeaveOnlyWithAService) {
  {
    ErrorFrame f("a");  // no service: nothing recorded, errors leave silently
    EXPECT_FALSE(f.step([] { throw RuntimeError(kOverflow, "x"); }));
    EXPECT_TRUE(f.leaving());
  }
  clsOutlookSynchronization c;
  c.setErrorClass(service);
  { ErrorFrame f("b"); }
  EXPECT_EQ(service->entered.back(), "b");
  EXPECT_TRUE(service->stack.empty());
}

TEST_F(ErrorFrameTest, ForeignExceptionsBecomeRuntimeErrors) {
  clsOutlookSynchronization c;
  c.setErrorClass(service);
  ErrorFrame f("p");
  f.step([] { throw std::out_of_range("index 9"); });
  ASSERT_EQ(service->errors.size(), 1u);
  EXPECT_EQ(service->errors[0].number(), kInvalidProcedureCall);
  EXPECT_EQ(service->errors[0].description(), "index 9");
}

}  // namespace
}  // namespace dossync
