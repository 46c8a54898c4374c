#include <gtest/gtest.h>

#include "base/platform.h"
#include "core/synchronization.h"
#include "engine/recording_outlook.h"
#include "test_support.h"

namespace dossync {
namespace {

class OutlookSessionTest : public testing::ApartmentTest {
 protected:
  void registerOutlook(bool running) {
    std::string root = dir.file("outlook");
    platform::registerClass(
        platform::kOutlookApplication,
        [this, root] { return testing::recordingOutlook(root, log); },
        running ? platform::Factory([this, root] {
          if (!runningApp) runningApp = testing::recordingOutlook(root, log);
          return runningApp;
        })
                : platform::Factory([]() -> ObjectPtr { return nullptr; }));
  }
  testing::OutlookLog log;
  ObjectPtr runningApp;
  std::shared_ptr<testing::RecordingErrorService> errors =
      std::make_shared<testing::RecordingErrorService>();
};

TEST_F(OutlookSessionTest, TheLogonTable) {
  registerOutlook(true);
  struct Row {
    const char *profile, *password;
    bool result;
    const char* logon;  // empty texts are omitted, not passed as ""
  };
  for (Row r : {Row{"work", "pw", true, "work|pw|0|1"}, Row{"work", "", true, "work|-|0|1"},
                Row{"", "pw", false, "-|pw|0|1"}, Row{"", "", true, "-|-|0|1"}}) {
    clsOutlookSynchronization s;
    s.setProfile(r.profile);
    s.setPassword(r.password);
    s.setDisplayLoginDialog(false);
    log.logons.clear();
    EXPECT_EQ(s.StartOutlook(), r.result) << r.profile << "/" << r.password;
    EXPECT_EQ(log.logons, std::vector<std::string>{r.logon});
    EXPECT_NE(s.outlookNameSpace(), nullptr);  // logged on all the same
  }
  // A failed logon is reported; a password alone still answers False.
  clsOutlookSynchronization c;
  c.setErrorClass(errors);
  errors->action = kActionResume;
  c.setPassword("refused");
  EXPECT_FALSE(c.StartOutlook());
  c.setProfile("work");
  EXPECT_TRUE(c.StartOutlook());
  ASSERT_EQ(errors->errors.size(), 2u);
  EXPECT_EQ(errors->errors[0].description(), "Logon refused");
}

TEST_F(OutlookSessionTest, OnlyAStartedOutlookIsMarkedToCloseAndStopOnlyLetsGo) {
  registerOutlook(true);  // attaching to the running one
  clsOutlookSynchronization c;
  EXPECT_TRUE(c.StartOutlook());
  EXPECT_FALSE(c.closeOutlookWhenFinished());
  EXPECT_EQ(c.outlookApplication(), runningApp);

  registerOutlook(false);
  clsOutlookSynchronization s;
  EXPECT_TRUE(s.StartOutlook());
  EXPECT_TRUE(s.closeOutlookWhenFinished());
  auto app = s.outlookApplication();
  EXPECT_FALSE(s.StopOutlook());
  EXPECT_EQ(s.outlookApplication(), nullptr);
  EXPECT_EQ(s.outlookNameSpace(), nullptr);
  EXPECT_TRUE(s.closeOutlookWhenFinished());
  EXPECT_NE(app->GetNamespace("MAPI"), nullptr);  // still running for whoever holds it
}

TEST_F(OutlookSessionTest, NoOutlookAtAllAnswersFalseQuietly) {
  clsOutlookSynchronization c;
  c.setErrorClass(errors);
  platform::unregisterClass(platform::kOutlookApplication);
  EXPECT_FALSE(c.StartOutlook());
  // However attaching and starting fail, they fail in place.
  platform::Factory broken = []() -> ObjectPtr { throw std::runtime_error("no COM here"); };
  platform::registerClass(platform::kOutlookApplication, broken, broken);
  EXPECT_FALSE(c.StartOutlook());
  EXPECT_TRUE(c.closeOutlookWhenFinished());
  EXPECT_TRUE(errors->errors.empty());
}

}  // namespace
}  // namespace dossync
