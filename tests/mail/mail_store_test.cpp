// The local store's mail side: reading recipients, writing messages, the account file, and
// what a failed delivery leaves behind.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "backends/vdir/mail_account.h"
#include "backends/vdir/mime_message.h"
#include "backends/vdir/smtp_client.h"
#include "backends/vdir/vdir_mail.h"
#include "core/error.h"
#include "test_support.h"

namespace dossync::vdir {
namespace {

namespace fs = std::filesystem;

std::string slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), {});
}

std::vector<std::string> headerLines(const std::string& message) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    size_t end = message.find("\r\n", start);
    if (end == std::string::npos || end == start) break;
    lines.push_back(message.substr(start, end - start));
    start = end + 2;
  }
  return lines;
}

bool hasHeader(const std::string& message, const std::string& name) {
  for (const auto& l : headerLines(message)) {
    if (l.size() > name.size() &&
        strncasecmp(l.c_str(), (name + ":").c_str(), name.size() + 1) == 0)
      return true;
  }
  return false;
}

// A port on 127.0.0.1 that nothing listens on.
int closedPort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t n = sizeof a;
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &n);
  close(fd);
  return ntohs(a.sin_port);
}

TEST(Mailbox, OneMailboxResolvesAnythingElseDoesNot) {
  struct Case {
    const char* text;
    const char* name;
    const char* address;
  };
  for (Case c : {Case{"jane@example.org", "", "jane@example.org"},
                 Case{"  Jane Doe <jane@example.org> ", "Jane Doe", "jane@example.org"},
                 Case{"\"Doe, Jane\" <jane@example.org>", "Doe, Jane", "jane@example.org"},
                 Case{"\"Say \\\"hi\\\"\" <j@example.org>", "Say \"hi\"", "j@example.org"},
                 Case{"<jane@example.org>", "", "jane@example.org"},
                 Case{"Zoë <zoe@example.org>", "Zoë", "zoe@example.org"}}) {
    auto box = parseMailbox(c.text);
    ASSERT_TRUE(box) << c.text;
    EXPECT_EQ(box->name, c.name);
    EXPECT_EQ(box->address, c.address);
  }
  for (const char* text :
       {"jane@example.org; bob@example.org", "jane@example.org, bob@example.org",
        "Doe, Jane <jane@example.org>", "Jane", "jane@", "@example.org", "a@b@example.org",
        "Jane <jane@example.org", "Jane jane@example.org>", "ja ne@example.org",
        "jane@example..org", ".jane@example.org", "jane@example.org\r\nBcc: x@example.org", "",
        "\"Unclosed <jane@example.org>"}) {
    EXPECT_FALSE(parseMailbox(text)) << text;
  }
}

TEST(Mailbox, DraftsShowEveryAddressOfAJoinedText) {
  auto list = parseAddressList("jane@example.org; Bob <bob@example.org>");
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].address, "jane@example.org");
  EXPECT_EQ(list[1], (MailAddress{"Bob", "bob@example.org"}));
}

class MimeTest : public ::testing::Test {
 protected:
  MimeMail mail() {
    MimeMail m;
    m.from = {"Bürö", "office@example.org"};
    m.to = {{"Jane", "jane@example.org"}};
    m.cc = {{"", "cc@example.org"}};
    m.bcc = {{"", "hidden@example.org"}};
    m.subject = "Grüße";
    m.body = "one\ntwo\r\nthree\rfour\r\n\r\n";
    return m;
  }
};

TEST_F(MimeTest, WireFormatIsSevenBitWithCrLfLines) {
  MimeMail m = mail();
  m.attachments.push_back({"Résumé.pdf", std::string("\0\1\2\xff", 4), ""});
  std::string text = writeMime(m);
  for (size_t i = 0; i < text.size(); ++i) {
    unsigned char c = text[i];
    ASSERT_LT(c, 0x80) << "at " << i;
    if (c == '\n') {
      ASSERT_TRUE(i > 0 && text[i - 1] == '\r') << "bare LF at " << i;
    }
    if (c == '\r') {
      ASSERT_TRUE(i + 1 < text.size() && text[i + 1] == '\n') << "bare CR at " << i;
    }
  }
  EXPECT_TRUE(hasHeader(text, "Date"));
  EXPECT_TRUE(hasHeader(text, "Message-Id"));
  EXPECT_NE(text.find("Subject: =?UTF-8?"), std::string::npos);
  EXPECT_NE(text.find("\r\n\r\none\r\ntwo\r\nthree\r\nfour\r\n\r\n"), std::string::npos);
  EXPECT_NE(text.find("Content-Type: multipart/mixed"), std::string::npos);
  EXPECT_NE(text.find("filename*=UTF-8''R%C3%A9sum%C3%A9.pdf"), std::string::npos);
  EXPECT_NE(text.find("application/pdf"), std::string::npos);
  EXPECT_NE(text.find("\r\n\r\nAAEC/w==\r\n"), std::string::npos);
}

TEST_F(MimeTest, BccOnlyWhenAskedFor) {
  MimeMail m = mail();
  std::string wire = writeMime(m);
  EXPECT_TRUE(hasHeader(wire, "To"));
  EXPECT_TRUE(hasHeader(wire, "Cc"));
  EXPECT_FALSE(hasHeader(wire, "Bcc"));
  EXPECT_EQ(wire.find("hidden@example.org"), std::string::npos);
  m.bccHeader = true;
  m.unsent = true;
  std::string kept = writeMime(m);
  EXPECT_NE(kept.find("Bcc: hidden@example.org\r\n"), std::string::npos);
  EXPECT_NE(kept.find("X-Unsent: 1\r\n"), std::string::npos);
}

TEST_F(MimeTest, LineBreaksInTheSubjectMakeNoHeaders) {
  MimeMail m = mail();
  m.subject = "Hi\r\nBcc: evil@example.org\nX-Evil: 1";
  std::string text = writeMime(m);
  EXPECT_FALSE(hasHeader(text, "Bcc"));
  EXPECT_FALSE(hasHeader(text, "X-Evil"));
}

TEST_F(MimeTest, PlainMailWithoutAttachmentsIsOnePart) {
  MimeMail m = mail();
  m.subject = "Plain";
  std::string text = writeMime(m);
  EXPECT_NE(text.find("Subject: Plain\r\n"), std::string::npos);
  EXPECT_NE(text.find("Content-Type: text/plain; charset=utf-8"), std::string::npos);
  EXPECT_EQ(text.find("multipart"), std::string::npos);
}

class AccountTest : public ::testing::Test {
 protected:
  testing::TempDir dir;
  fs::path profile() const { return dir.path(); }
  void write(const std::string& json) { std::ofstream(accountFile(profile())) << json; }
};

TEST_F(AccountTest, RoundTripKeepsEverySettingInAPrivateFile) {
  EXPECT_FALSE(readMailAccount(profile()));
  MailAccount a;
  a.server = {"smtps://mail.example.org:465", "office", "s3cret", false, 20};
  a.from = "office@example.org";
  a.name = "The Office";
  writeMailAccount(profile(), a);
  struct stat st {};
  ASSERT_EQ(stat(accountFile(profile()).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  auto b = readMailAccount(profile());
  ASSERT_TRUE(b);
  EXPECT_EQ(b->server.url, a.server.url);
  EXPECT_EQ(b->server.user, "office");
  EXPECT_EQ(b->server.password, "s3cret");
  EXPECT_EQ(b->server.starttls, std::optional<bool>(false));
  EXPECT_EQ(b->server.timeoutSeconds, 20);
  EXPECT_EQ(b->from, a.from);
  EXPECT_EQ(b->name, a.name);
}

TEST_F(AccountTest, BadSettingsAreRefused) {
  MailAccount a;
  a.server.url = "http://mail.example.org";
  a.from = "office@example.org";
  EXPECT_THROW(writeMailAccount(profile(), a), RuntimeError);
  a.server.url = "smtp://mail.example.org";
  a.from = "office";
  EXPECT_THROW(writeMailAccount(profile(), a), RuntimeError);
  a.from = "office@example.org";
  a.server.password = "pw";  // without a user
  EXPECT_THROW(writeMailAccount(profile(), a), RuntimeError);
  EXPECT_FALSE(fs::exists(accountFile(profile())));

  for (const char* json :
       {"not json", "[]", R"({"from": "a@example.org"})", R"({"smtp": "smtp://x", "from": 5})",
        R"({"smtp": "smtp://x", "from": "a@example.org", "starttls": "yes"})"}) {
    write(json);
    try {
      readMailAccount(profile());
      ADD_FAILURE() << json;
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), kTypeMismatch);
      EXPECT_NE(e.description().find(accountFile(profile()).string()), std::string::npos);
    }
  }
}

class DeliveryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    MailAccount a;
    a.server.url = "smtp://127.0.0.1:" + std::to_string(port);
    a.server.timeoutSeconds = 5;
    a.from = "office@example.org";
    writeMailAccount(dir.path(), a);
  }
  std::shared_ptr<VdirMailItem> mail() {
    auto m = std::make_shared<VdirMailItem>(dir.path(),
                                            [this](const std::string& s) { said.push_back(s); });
    m->setSubject("Quarterly figures");
    m->setBody("See attached.\r\n\r\n");
    m->Recipients()->Add("jane@example.org")->setType(outlook::olTo);
    m->Recipients()->Add("hidden@example.org")->setType(outlook::olBCC);
    return m;
  }
  RuntimeError sendFails(VdirMailItem& m) {
    try {
      m.Send();
    } catch (const RuntimeError& e) {
      return e;
    }
    ADD_FAILURE() << "Send did not fail";
    return RuntimeError(0, "");
  }

  testing::TempDir dir;
  int port = closedPort();
  std::vector<std::string> said;
};

TEST_F(DeliveryTest, RefusedConnectionKeepsTheMessageInTheOutbox) {
  auto m = mail();
  RuntimeError e = sendFails(*m);
  EXPECT_EQ(e.number(), kDeliveryFailed);
  EXPECT_NE(e.description().find("smtp://127.0.0.1:" + std::to_string(port)), std::string::npos)
      << e.description();
  EXPECT_NE(e.description().find(m->outboxPath().string()), std::string::npos);
  std::string kept = slurp(m->outboxPath());
  EXPECT_NE(kept.find("Subject: Quarterly figures\r\n"), std::string::npos);
  EXPECT_NE(kept.find("Bcc: hidden@example.org\r\n"), std::string::npos);
  // Still unsent: the same mail may be tried again, and is kept under the same name.
  sendFails(*m);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path() + "/outbox"), {}), 1);
}

TEST_F(DeliveryTest, AttachmentGoneBeforeSendingFailsWithoutConnecting) {
  std::string path = dir.file("figures.csv");
  std::ofstream(path) << "1,2,3\n";
  auto m = mail();
  m->Attachments()->Add(path, std::nullopt, std::nullopt, std::nullopt);
  fs::remove(path);
  RuntimeError e = sendFails(*m);
  EXPECT_NE(e.description().find("cannot read the attachment '" + path + "'"), std::string::npos)
      << e.description();
  EXPECT_EQ(e.description().find("connect"), std::string::npos) << e.description();
  EXPECT_TRUE(fs::exists(m->outboxPath()));
  // A draft never silently loses an attachment.
  try {
    m->Display();
    ADD_FAILURE() << "Display saved a draft without its attachment";
  } catch (const RuntimeError& e2) {
    EXPECT_EQ(e2.number(), kFileNotFound);
  }
  EXPECT_FALSE(fs::exists(m->draftPath()));
}

TEST_F(DeliveryTest, EveryReasonIsTold) {
  fs::remove(accountFile(dir.path()));
  auto m = mail();
  m->Recipients()->Add("a@example.org; b@example.org");
  RuntimeError e = sendFails(*m);
  EXPECT_NE(e.description().find("no mail account"), std::string::npos) << e.description();
  EXPECT_NE(e.description().find("'a@example.org; b@example.org'"), std::string::npos);

  auto empty = std::make_shared<VdirMailItem>(dir.path(), [](const std::string&) {});
  EXPECT_NE(sendFails(*empty).description().find("no recipients"), std::string::npos);
}

TEST_F(DeliveryTest, SaveMakesADraftWithAnEntryId) {
  auto m = mail();
  EXPECT_EQ(m->EntryID(), "");
  m->Save();
  EXPECT_FALSE(m->EntryID().empty());
  EXPECT_EQ(m->FilePath(), m->draftPath().string());
  std::string draft = slurp(m->draftPath());
  EXPECT_NE(draft.find("X-Unsent: 1\r\n"), std::string::npos);
  m->Delete();
  EXPECT_FALSE(fs::exists(m->draftPath()));
  EXPECT_THROW(m->setSubject("again"), RuntimeError);
  EXPECT_THROW(m->Send(), RuntimeError);
}

TEST(Attachments, ByValueOnlyAndTheFileMustExist) {
  testing::TempDir dir;
  VdirAttachments a;
  EXPECT_THROW(a.Add(dir.file("none.txt"), std::nullopt, std::nullopt, std::nullopt), RuntimeError);
  EXPECT_THROW(a.Add(dir.path(), std::nullopt, std::nullopt, std::nullopt), RuntimeError);
  std::ofstream(dir.file("x.txt")) << "x";
  EXPECT_THROW(a.Add(dir.file("x.txt"), 5, std::nullopt, std::nullopt), RuntimeError);
  EXPECT_EQ(a.Add(dir.file("x.txt"), 1, std::nullopt, "Named.txt")->DisplayName(), "Named.txt");
  EXPECT_EQ(a.Count(), 1);
  EXPECT_THROW(a.Item(2), RuntimeError);
}

}  // namespace
}  // namespace dossync::vdir
