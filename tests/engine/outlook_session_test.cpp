#include <gtest/gtest.h>

#include "backends/vdir/vdir_store.h"
#include "core/platform.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

// The real vCard store, with each logon written down as "profile|password|dialog|new session"
// ("-" for an omitted text). The password "refused" makes the logon fail.
class RecordingNameSpace : public outlook::NameSpace {
 public:
  RecordingNameSpace(std::shared_ptr<outlook::NameSpace> real, std::vector<std::string>& log)
      : real_(std::move(real)), log_(log) {}
  void Logon(std::optional<std::string> p, std::optional<std::string> pw, std::optional<bool> d,
             std::optional<bool> n) override {
    log_.push_back(p.value_or("-") + "|" + pw.value_or("-") + "|" + std::to_string(d.value_or(-1)) +
                   "|" + std::to_string(n.value_or(-1)));
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
  std::vector<std::string>& log_;
};

class RecordingApplication : public outlook::Application {
 public:
  RecordingApplication(const std::string& root, std::vector<std::string>& log)
      : real_(vdir::makeVdirApplication(root)), log_(log) {}
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& t) override {
    return std::make_shared<RecordingNameSpace>(real_->GetNamespace(t), log_);
  }
  outlook::ItemPtr CreateItem(int32_t t) override { return real_->CreateItem(t); }

 private:
  std::shared_ptr<outlook::Application> real_;
  std::vector<std::string>& log_;
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
  std::vector<std::string> logons;
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
    logons.clear();
    EXPECT_EQ(s.StartOutlook(), r.result) << r.profile << "/" << r.password;
    EXPECT_EQ(logons, std::vector<std::string>{r.logon});
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
