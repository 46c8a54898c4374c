// clsOutlookSendMail against the local store, with the logons and created items written down.
#include "mail/send_mail.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "backends/vdir/vdir_mail.h"
#include "backends/vdir/vdir_store.h"
#include "core/apartment.h"
#include "core/platform.h"
#include "test_support.h"

namespace dossync {
namespace {

struct LogonCall {
  std::optional<std::string> profile, password;
  std::optional<bool> dialog, newSession;
};

struct Log {
  std::vector<LogonCall> logons;
  std::vector<std::shared_ptr<outlook::MailItem>> mails;
  int created = 0;
};

class LoggingNameSpace : public outlook::NameSpace {
 public:
  LoggingNameSpace(std::shared_ptr<outlook::NameSpace> real, Log& log) : real_(real), log_(log) {}
  void Logon(std::optional<std::string> p, std::optional<std::string> pw, std::optional<bool> d,
             std::optional<bool> n) override {
    log_.logons.push_back({p, pw, d, n});
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
  Log& log_;
};

class LoggingApplication : public outlook::Application {
 public:
  LoggingApplication(const std::string& root, Log& log)
      : real_(vdir::makeVdirApplication(root)), log_(log) {}
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& t) override {
    return std::make_shared<LoggingNameSpace>(real_->GetNamespace(t), log_);
  }
  outlook::ItemPtr CreateItem(int32_t t) override {
    auto item = real_->CreateItem(t);
    if (auto mail = std::dynamic_pointer_cast<outlook::MailItem>(item)) log_.mails.push_back(mail);
    return item;
  }

 private:
  std::shared_ptr<outlook::Application> real_;
  Log& log_;
};

class SendMailTest : public testing::ApartmentTest {
 protected:
  void SetUp() override {
    testing::ApartmentTest::SetUp();
    Apartment& a = apartment();
    a.errorService = errors;
    a.errorServiceSet = true;
    root = dir.file("outlook");
    platform::registerClass(
        platform::kOutlookApplication,
        [this] {
          ++log.created;
          return std::make_shared<LoggingApplication>(root, log);
        },
        [] { return ObjectPtr(); });
  }
  void TearDown() override {
    platform::unregisterClass(platform::kOutlookApplication);
    testing::ApartmentTest::TearDown();
  }
  // A started session with one new mail; answers that mail.
  std::shared_ptr<outlook::MailItem> newMail() {
    EXPECT_TRUE(sender.StartOutlook());
    EXPECT_TRUE(sender.CreateNewMail());
    return log.mails.empty() ? nullptr : log.mails.back();
  }
  std::string file(const std::string& name, const std::string& bytes) {
    std::ofstream(dir.file(name), std::ios::binary) << bytes;
    return dir.file(name);
  }

  std::shared_ptr<testing::RecordingErrorService> errors =
      std::make_shared<testing::RecordingErrorService>();
  std::string root;
  Log log;
  clsOutlookSendMail sender;
};

TEST_F(SendMailTest, LogonBranchesByProfileAndPassword) {
  struct Row {
    const char* profile;
    const char* password;
    bool result;
    bool loggedOn;
  };
  for (Row r : {Row{"work", "pw", true, true}, Row{"work", "", true, true},
                Row{"", "pw", false, false}, Row{"", "", true, true}}) {
    SCOPED_TRACE(std::string(r.profile) + "/" + r.password);
    log.logons.clear();
    clsOutlookSendMail m;
    EXPECT_EQ(m.StartOutlook(r.profile, r.password, true, false), r.result);
    ASSERT_EQ(log.logons.size(), r.loggedOn ? 1u : 0u);
    if (r.loggedOn) {
      const LogonCall& c = log.logons[0];
      // Empty texts are omitted, not passed as "".
      EXPECT_EQ(c.profile, *r.profile ? std::optional<std::string>(r.profile) : std::nullopt);
      EXPECT_EQ(c.password, *r.password ? std::optional<std::string>(r.password) : std::nullopt);
      EXPECT_EQ(c.dialog, true);
      EXPECT_EQ(c.newSession, false);
    }
  }
  EXPECT_TRUE(errors->errors.empty());
}

TEST_F(SendMailTest, PasswordWithoutProfileStillLeavesOutlookStarted) {
  EXPECT_FALSE(sender.StartOutlook("", "secret"));
  EXPECT_TRUE(log.logons.empty());
  EXPECT_EQ(log.created, 1);
  // The application and namespace are set, so a mail can still be made.
  EXPECT_TRUE(sender.CreateNewMail());
}

TEST_F(SendMailTest, AttachesToARunningOutlookBeforeStartingOne) {
  ASSERT_TRUE(sender.StartOutlook());
  clsOutlookSendMail second;
  ASSERT_TRUE(second.StartOutlook());
  EXPECT_EQ(log.created, 1);
  EXPECT_EQ(log.logons.size(), 2u);
}

TEST_F(SendMailTest, DefaultsLogOnWithoutDialogOrNewSession) {
  EXPECT_TRUE(sender.StartOutlook());
  ASSERT_EQ(log.logons.size(), 1u);
  EXPECT_EQ(log.logons[0].profile, std::nullopt);
  EXPECT_EQ(log.logons[0].dialog, false);
  EXPECT_EQ(log.logons[0].newSession, false);
}

TEST_F(SendMailTest, NoOutlookAtAllAnswersFalseQuietly) {
  platform::unregisterClass(platform::kOutlookApplication);
  EXPECT_FALSE(sender.StartOutlook("work"));
  EXPECT_FALSE(sender.CreateNewMail());
  EXPECT_TRUE(errors->errors.empty());
}

TEST_F(SendMailTest, MembersBeforeTheirPrerequisiteDoNothing) {
  EXPECT_FALSE(sender.CreateNewMail());  // no session
  EXPECT_FALSE(sender.SendMail());
  EXPECT_FALSE(sender.DisplayMail());
  EXPECT_FALSE(sender.Attachment(file("a.txt", "a")));
  sender.setSubject("s");
  sender.setBody("b");
  sender.setRecipient_TO("a@example.org");
  sender.setRecipient_CC("a@example.org");
  sender.setRecipient_BCC("a@example.org");
  EXPECT_TRUE(errors->errors.empty());
  EXPECT_EQ(log.created, 0);

  ASSERT_TRUE(sender.StartOutlook());
  EXPECT_FALSE(sender.SendMail());  // started, but no mail yet
  EXPECT_TRUE(log.mails.empty());
  EXPECT_FALSE(std::filesystem::exists(root + "/default/outbox"));
}

TEST_F(SendMailTest, RecipientsAreNeverSplitAndKeepTheirType) {
  auto mail = newMail();
  ASSERT_TRUE(mail);
  sender.setRecipient_TO("jane@example.org; bob@example.org");
  sender.setRecipient_CC("Carol <carol@example.org>");
  sender.setRecipient_BCC("not an address");
  sender.setRecipient_TO("jane@example.org");
  auto r = mail->Recipients();
  ASSERT_EQ(r->Count(), 4);
  EXPECT_EQ(r->Item(1)->Name(), "jane@example.org; bob@example.org");
  EXPECT_EQ(r->Item(1)->Type(), outlook::olTo);
  EXPECT_EQ(r->Item(2)->Type(), outlook::olCC);
  EXPECT_EQ(r->Item(3)->Name(), "not an address");
  EXPECT_EQ(r->Item(3)->Type(), outlook::olBCC);
  EXPECT_EQ(r->Item(4)->Type(), outlook::olTo);
  // Resolve was called; its False answers are not errors.
  auto* joined = dynamic_cast<vdir::VdirRecipient*>(r->Item(1).get());
  ASSERT_TRUE(joined);
  EXPECT_FALSE(joined->Resolved());
  EXPECT_TRUE(dynamic_cast<vdir::VdirRecipient&>(*r->Item(2)).Resolved());
  EXPECT_TRUE(errors->errors.empty());
}

TEST_F(SendMailTest, EachBodyAssignmentReplacesTheBody) {
  auto mail = newMail();
  sender.setBody("First");
  EXPECT_EQ(mail->Body(), "First\r\n\r\n");
  sender.setBody("Second\nline");
  EXPECT_EQ(mail->Body(), "Second\nline\r\n\r\n");
  sender.setBody("");
  EXPECT_EQ(mail->Body(), "\r\n\r\n");
  sender.setSubject("Hello");
  EXPECT_EQ(mail->Subject(), "Hello");
}

TEST_F(SendMailTest, AttachmentDisplayNameKeptOrReplaced) {
  auto mail = newMail();
  std::string path = file("report 2024.pdf", "%PDF");
  EXPECT_TRUE(sender.Attachment(path));
  EXPECT_TRUE(sender.Attachment(path, ""));
  EXPECT_TRUE(sender.Attachment(path, "Annual report.pdf"));
  auto a = mail->Attachments();
  ASSERT_EQ(a->Count(), 3);
  EXPECT_EQ(a->Item(1)->DisplayName(), "report 2024.pdf");
  EXPECT_EQ(a->Item(2)->DisplayName(), "report 2024.pdf");
  EXPECT_EQ(a->Item(3)->DisplayName(), "Annual report.pdf");
  EXPECT_EQ(a->Item(3)->PathName(), path);
}

TEST_F(SendMailTest, FailedOutlookCallsAreReportedWhereTheyHappenAndAnswerFalse) {
  newMail();
  EXPECT_FALSE(sender.Attachment(dir.file("missing.pdf"), "x.pdf"));
  sender.setRecipient_TO("jane@example.org");
  // No mail account in the profile: the send fails and the message is kept.
  EXPECT_FALSE(sender.SendMail());
  ASSERT_EQ(errors->errors.size(), 2u);
  EXPECT_EQ(errors->errors[0].number(), kFileNotFound);
  EXPECT_EQ(errors->errorLocations[0], "kvoutlookdx.dll-clsOutlookSendMail-Attachment");
  EXPECT_EQ(errors->errors[1].number(), kDeliveryFailed);
  EXPECT_EQ(errors->errorLocations[1], "kvoutlookdx.dll-clsOutlookSendMail-SendMail");
  EXPECT_NE(errors->errors[1].description().find("no mail account"), std::string::npos);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(root + "/default/outbox"), {}), 1);
  // Every member left the frame it entered.
  EXPECT_TRUE(errors->stack.empty());
}

TEST_F(SendMailTest, SecondMailReplacesTheCurrentOneAndCloseLetsGo) {
  auto first = newMail();
  sender.setSubject("one");
  ASSERT_TRUE(sender.CreateNewMail());
  sender.setSubject("two");
  ASSERT_EQ(log.mails.size(), 2u);
  EXPECT_EQ(first->Subject(), "one");
  EXPECT_EQ(log.mails[1]->Subject(), "two");

  sender.CloseOutlook();
  EXPECT_FALSE(sender.SendMail());
  EXPECT_FALSE(sender.CreateNewMail());
  EXPECT_TRUE(errors->errors.empty());
}

TEST_F(SendMailTest, DisplayWritesADraftOfTheCurrentMail) {
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  auto mail = newMail();
  sender.setSubject("Draft subject");
  sender.setRecipient_BCC("hidden@example.org");
  ::testing::internal::CaptureStdout();
  EXPECT_TRUE(sender.DisplayMail());
  std::string said = ::testing::internal::GetCapturedStdout();
  auto* item = dynamic_cast<vdir::VdirMailItem*>(mail.get());
  ASSERT_TRUE(item);
  EXPECT_EQ(said, "Draft saved: " + item->draftPath().string() + "\n");
  std::ifstream in(item->draftPath(), std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), {});
  EXPECT_NE(text.find("Subject: Draft subject\r\n"), std::string::npos);
  EXPECT_NE(text.find("Bcc: hidden@example.org\r\n"), std::string::npos);
}

}  // namespace
}  // namespace dossync
