#include <gtest/gtest.h>

#include "backends/vdir/vdir_store.h"
#include "core/platform.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

// The real vCard store, with its logons written down.
struct LogonCall {
  std::optional<std::string> profile, password;
  std::optional<bool> dialog, newSession;
};

class RecordingNameSpace : public outlook::NameSpace {
 public:
  RecordingNameSpace(std::shared_ptr<outlook::NameSpace> real, std::vector<LogonCall>& log)
      : real_(std::move(real)), log_(log) {}
  void Logon(std::optional<std::string> p, std::optional<std::string> pw, std::optional<bool> d,
             std::optional<bool> n) override {
    log_.push_back({p, pw, d, n});
    if (pw == "refused") throw RuntimeError(kOutlookOperationFailed, "Logon refused");
    real_->Logon(p, pw, d, n);
  }
  std::shared_ptr<outlook::MAPIFolder> GetDefaultFolder(int32_t f) override {
    return real_->GetDefaultFolder(f);
  }
  outlook::ItemPtr GetItemFromID(const std::string& e, const std::string& s) override {
    return real_->GetItemFromID(e, s);
  }

 private:
  std::shared_ptr<outlook::NameSpace> real_;
  std::vector<LogonCall>& log_;
};

class RecordingApplication : public outlook::Application {
 public:
  RecordingApplication(const std::string& root, std::vector<LogonCall>& log)
      : real_(vdir::makeVdirApplication(root)), log_(log) {}
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& t) override {
    return std::make_shared<RecordingNameSpace>(real_->GetNamespace(t), log_);
  }
  outlook::ItemPtr CreateItem(int32_t t) override { return real_->CreateItem(t); }

 private:
  std::shared_ptr<outlook::Application> real_;
  std::vector<LogonCall>& log_;
};

class OutlookSessionTest : public testing::ApartmentTest {
 protected:
  void registerOutlook(bool running) {
    std::string root = dir.file("outlook");
    platform::registerClass(
        platform::kOutlookApplication,
        [this, root] { return std::make_shared<RecordingApplication>(root, logons); },
        running ? platform::Factory([this, root] {
          if (!runningApp) runningApp = std::make_shared<RecordingApplication>(root, logons);
          return runningApp;
        })
                : platform::Factory([]() -> ObjectPtr { return nullptr; }));
  }
  std::vector<LogonCall> logons;
  ObjectPtr runningApp;
};

TEST_F(OutlookSessionTest, TheLogonTable) {
  registerOutlook(true);
  struct Row {
    const char* profile;
    const char* password;
    bool result;
    bool profilePassed, passwordPassed;
  };
  for (Row r : {Row{"work", "pw", true, true, true}, Row{"work", "", true, true, false},
                Row{"", "pw", false, false, true}, Row{"", "", true, false, false}}) {
    clsOutlookSynchronization c;
    c.setProfile(r.profile);
    c.setPassword(r.password);
    c.setDisplayLoginDialog(false);
    logons.clear();
    EXPECT_EQ(c.StartOutlook(), r.result) << r.profile << "/" << r.password;
    ASSERT_EQ(logons.size(), 1u);
    EXPECT_EQ(logons[0].profile.has_value(), r.profilePassed);
    EXPECT_EQ(logons[0].password.has_value(), r.passwordPassed);
    EXPECT_EQ(logons[0].dialog, std::optional<bool>(false));
    EXPECT_EQ(logons[0].newSession, std::optional<bool>(true));
    EXPECT_NE(c.outlookNameSpace(), nullptr);  // logged on all the same
  }
}

TEST_F(OutlookSessionTest, AttachingToARunningOutlookLeavesTheCloseFlagAlone) {
  registerOutlook(true);
  clsOutlookSynchronization c;
  EXPECT_TRUE(c.StartOutlook());
  EXPECT_FALSE(c.closeOutlookWhenFinished());
  EXPECT_EQ(c.outlookApplication(), runningApp);
}

TEST_F(OutlookSessionTest, StartingOutlookSetsTheCloseFlagAndStopOnlyLetsGo) {
  registerOutlook(false);
  clsOutlookSynchronization c;
  EXPECT_TRUE(c.StartOutlook());
  EXPECT_TRUE(c.closeOutlookWhenFinished());
  auto app = c.outlookApplication();
  EXPECT_FALSE(c.StopOutlook());
  EXPECT_EQ(c.outlookApplication(), nullptr);
  EXPECT_EQ(c.outlookNameSpace(), nullptr);
  EXPECT_TRUE(c.closeOutlookWhenFinished());
  EXPECT_NE(app->GetNamespace("MAPI"), nullptr);  // still running for whoever holds it
}

TEST_F(OutlookSessionTest, NoOutlookAtAllAnswersFalseQuietly) {
  auto errors = std::make_shared<testing::RecordingErrorService>();
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

TEST_F(OutlookSessionTest, AFailedLogonIsReportedAndAPasswordAloneStillAnswersFalse) {
  registerOutlook(true);
  auto errors = std::make_shared<testing::RecordingErrorService>();
  errors->action = kActionResume;
  clsOutlookSynchronization c;
  c.setErrorClass(errors);
  c.setPassword("refused");
  EXPECT_FALSE(c.StartOutlook());
  c.setProfile("work");
  EXPECT_TRUE(c.StartOutlook());
  ASSERT_EQ(errors->errors.size(), 2u);
  EXPECT_EQ(errors->errors[0].description(), "Logon refused");
}

}  // namespace
}  // namespace dossync
