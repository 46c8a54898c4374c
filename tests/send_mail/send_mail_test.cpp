// clsOutlookSendMail against the local store, its logons and mails recorded.
#include "send_mail/send_mail.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "backends/mail/vdir_mail.h"
#include "base/platform.h"
#include "core/apartment.h"
#include "engine/recording_outlook.h"
#include "test_support.h"

namespace dossync {
namespace {

class SendMailTest : public testing::ApartmentTest {
 protected:
  void SetUp() override {
    testing::ApartmentTest::SetUp();
    apartment().errorService = errors;
    apartment().errorServiceSet = true;
    root = dir.file("outlook");
    platform::registerClass(
        platform::kOutlookApplication,
        [this] {
          ++created;
          return testing::recordingOutlook(root, log);
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
  testing::OutlookLog log;
  int created = 0;  // applications started
  clsOutlookSendMail sender;
};

TEST_F(SendMailTest, LogonBranchesByProfileAndPassword) {
  struct Row {
    const char* profile;
    const char* password;
    bool result;
    std::vector<std::string> logons;  // empty texts are omitted, not passed as ""
  };
  EXPECT_TRUE(sender.StartOutlook());  // by default no dialog and no new session
  EXPECT_EQ(log.logons, (std::vector<std::string>{"-|-|0|0"}));
  for (const Row& r :
       {Row{"work", "pw", true, {"work|pw|1|0"}}, Row{"work", "", true, {"work|-|1|0"}},
        Row{"", "pw", false, {}}, Row{"", "", true, {"-|-|1|0"}}}) {
    SCOPED_TRACE(std::string(r.profile) + "/" + r.password);
    log.logons.clear();
    clsOutlookSendMail m;
    EXPECT_EQ(m.StartOutlook(r.profile, r.password, true, false), r.result);
    EXPECT_EQ(log.logons, r.logons);
    // Even without a logon the application and namespace are set: a mail can still be made.
    EXPECT_TRUE(m.CreateNewMail());
  }
  EXPECT_EQ(created, 1);  // each later session attached to the running Outlook
  EXPECT_TRUE(errors->errors.empty());
}

TEST_F(SendMailTest, WithoutOutlookOrBeforeTheirPrerequisiteMembersDoNothing) {
  EXPECT_FALSE(sender.CreateNewMail() || sender.SendMail() || sender.DisplayMail() ||
               sender.Attachment(file("a.txt", "a")));  // no session
  sender.setSubject("s");
  sender.setBody("b");
  sender.setRecipient_TO("a@example.org");
  sender.setRecipient_CC("a@example.org");
  sender.setRecipient_BCC("a@example.org");
  EXPECT_EQ(created, 0);

  ASSERT_TRUE(sender.StartOutlook());
  EXPECT_FALSE(sender.SendMail());  // started, but no mail yet
  EXPECT_TRUE(log.mails.empty());
  EXPECT_FALSE(std::filesystem::exists(root + "/default/outbox"));

  platform::unregisterClass(platform::kOutlookApplication);
  clsOutlookSendMail none;
  EXPECT_FALSE(none.StartOutlook("work") || none.CreateNewMail());
  EXPECT_TRUE(errors->errors.empty());
}

TEST_F(SendMailTest, RecipientsAreNeverSplitAndKeepTheirType) {
  auto mail = newMail();
  ASSERT_TRUE(mail);
  sender.setRecipient_TO("jane@example.org; bob@example.org");
  sender.setRecipient_CC("Carol <carol@example.org>");
  sender.setRecipient_BCC("not an address");
  sender.setRecipient_TO("jane@example.org");
  std::string got;
  for (int32_t i = 1; i <= mail->Recipients()->Count(); ++i) {
    auto& r = dynamic_cast<vdir::VdirRecipient&>(*mail->Recipients()->Item(i));
    got += r.Name() + " " + std::to_string(r.Type()) + (r.Resolved() ? " resolved" : "") + "|";
  }
  // Resolve was called; its False answers are not errors.
  EXPECT_EQ(got,
            "jane@example.org; bob@example.org 1|Carol <carol@example.org> 2 resolved|"
            "not an address 3|jane@example.org 1 resolved|");
  EXPECT_TRUE(errors->errors.empty());
}

// (The body's line ends, and attachments named and not, as a mail reader finds them:
// tests/app/mail_cli_test.sh.)
TEST_F(SendMailTest, EachBodyReplacesTheLastAndAnAttachmentWithoutANameTakesTheFiles) {
  auto mail = newMail();
  sender.setBody("First");
  sender.setBody("Second\nline");
  EXPECT_EQ(mail->Body(), "Second\nline\r\n\r\n");
  std::string path = file("report 2024.pdf", "%PDF");
  EXPECT_TRUE(sender.Attachment(path, ""));
  ASSERT_EQ(mail->Attachments()->Count(), 1);
  EXPECT_EQ(mail->Attachments()->Item(1)->DisplayName(), "report 2024.pdf");
  EXPECT_EQ(mail->Attachments()->Item(1)->PathName(), path);
}

TEST_F(SendMailTest, FailedOutlookCallsAreReportedAndAnswerFalse) {
  newMail();
  EXPECT_FALSE(sender.Attachment(dir.file("missing.pdf"), "x.pdf"));
  sender.setRecipient_TO("jane@example.org");
  // No mail account in the profile: the send fails (the message is kept: DeliveryTest).
  EXPECT_FALSE(sender.SendMail());
  ASSERT_EQ(errors->errors.size(), 2u);
  EXPECT_EQ(errors->errors[0].number(), kFileNotFound);
  EXPECT_EQ(errors->errors[1].number(), kDeliveryFailed);
}

TEST_F(SendMailTest, SecondMailReplacesTheCurrentOneAndCloseLetsGo) {
  newMail();
  sender.setSubject("one");
  ASSERT_TRUE(sender.CreateNewMail());
  sender.setSubject("two");
  ASSERT_EQ(log.mails.size(), 2u);
  EXPECT_EQ(log.mails[0]->Subject() + log.mails[1]->Subject(), "onetwo");

  sender.CloseOutlook();
  EXPECT_FALSE(sender.SendMail());
  EXPECT_FALSE(sender.CreateNewMail());
  EXPECT_TRUE(errors->errors.empty());
}

}  // namespace
}  // namespace dossync
