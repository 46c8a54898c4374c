// What every Outlook contact store does, run against each back end: the vCard folder, and an
// address book on a real Radicale server (CardDAV). Another program's cards are put where that
// store keeps them (a file in the folder; a PUT to the server) and read back from there.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "backends/carddav/carddav_store.h"
#include "backends/carddav/dav_client.h"
#include "backends/vcard/card_merge.h"
#include "backends/vdir/vdir_store.h"
#include "base/error.h"
#include "test_support.h"

namespace dossync {
namespace {

namespace fs = std::filesystem;
using outlook::ContactItem;
using outlook::ContactProperty;

class ContactStoreTest : public ::testing::TestWithParam<std::string> {
 protected:
  static void TearDownTestSuite() {
    delete server;
    server = nullptr;
  }
  bool dav() const { return GetParam() == "carddav"; }
  void SetUp() override {
    if (!dav()) return;
    if (!server) server = new testing::RadicaleServer({"alice:secret"});
    book = "b" + std::to_string(++books);
    server->makeBook("alice", book);
  }
  // A new application of the store, logged on.
  std::shared_ptr<outlook::Application> open() {
    std::shared_ptr<outlook::Application> app;
    if (dav()) {
      carddav::CardDavSettings s;
      s.url = server->url("alice", book);
      s.cacheRoot = root.path();
      app = carddav::makeCardDavApplication(s);
      app->GetNamespace("MAPI")->Logon("alice", "secret", false, false);
    } else {
      app = vdir::makeVdirApplication(root.path());
      app->GetNamespace("MAPI")->Logon(std::nullopt, std::nullopt, false, false);
    }
    return app;
  }
  static std::shared_ptr<outlook::Items> contacts(const std::shared_ptr<outlook::Application>& a) {
    return a->GetNamespace("MAPI")->GetDefaultFolder(outlook::olFolderContacts)->Items();
  }
  static std::shared_ptr<ContactItem> byId(const std::shared_ptr<outlook::Application>& a,
                                           const std::string& id) {
    return std::dynamic_pointer_cast<ContactItem>(a->GetNamespace("MAPI")->GetItemFromID(id, ""));
  }
  static std::shared_ptr<ContactItem> find(const std::shared_ptr<outlook::Items>& items,
                                           const std::string& fileAs) {
    return std::dynamic_pointer_cast<ContactItem>(items->Find("[FileAs] = \"" + fileAs + "\""));
  }
  carddav::DavClient client() const {
    return carddav::DavClient(server->url("alice", book), {"alice", "secret"});
  }
  // Another program's card under that name, and what the store holds under it now.
  void putForeign(const std::string& name, const std::string& text) {
    if (dav()) {
      auto c = client();
      ASSERT_EQ(c.put({c.collectionPath() + name, text, "", true}).status / 100, 2);
      return;
    }
    fs::create_directories(folder());
    std::ofstream(folder() / name, std::ios::binary) << text;
  }
  std::string stored(const std::string& name) {
    if (!dav()) return testing::readFile((folder() / name).string());
    auto c = client();
    return c.get(c.collectionPath() + name).data;
  }
  fs::path folder() const { return fs::path(root.path()) / "default" / "contacts"; }

  static testing::RadicaleServer* server;
  static int books;
  std::string book;
  testing::TempDir root;
};
testing::RadicaleServer* ContactStoreTest::server = nullptr;
int ContactStoreTest::books = 0;

TEST_P(ContactStoreTest, EveryPropertySurvivesSaveAndReopen) {
  auto app = open();
  auto c = std::dynamic_pointer_cast<ContactItem>(app->CreateItem(outlook::olContactItem));
  EXPECT_EQ(c->EntryID(), "");
  for (int i = 0; i < outlook::kContactTextPropertyCount; ++i) {
    auto p = static_cast<ContactProperty>(i);
    c->set(p, std::string(" ") + outlook::propertyName(p) + ", \"x\"; \\ ü\r\nline 2 ");
  }
  c->setGender(outlook::olMale);
  c->setBirthday({1970, 3, 5});
  c->setAnniversary({2000, 1, 2, 3, 4, 5});
  c->Save();
  std::string id = c->EntryID();
  EXPECT_FALSE(id.empty());
  EXPECT_LE(id.size(), 100u);

  auto back = byId(open(), id);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(outlook::contactProperties(*back), outlook::contactProperties(*c));

  // And emptied again.
  for (int i = 0; i < outlook::kContactTextPropertyCount; ++i)
    back->set(static_cast<ContactProperty>(i), "");
  back->setGender(outlook::olUnspecified);
  back->setBirthday(outlook::kNoDate);
  back->setAnniversary(outlook::kNoDate);
  back->Save();
  auto empty = byId(open(), id);
  ASSERT_NE(empty, nullptr);
  for (const auto& [name, text] : outlook::contactProperties(*empty)) {
    if (name == "Gender") {
      EXPECT_EQ(text, "0");
    } else if (name != "EntryID") {
      EXPECT_EQ(text, "") << name;
    }
  }
}

TEST_P(ContactStoreTest, UpdatingAnotherProgramsCardKeepsWhatWeDoNotMap) {
  std::string fixture = testing::readFile(std::string(DOSSYNC_SOURCE_DIR) +
                                          "/tests/backends/fixtures/other_tool.vcf");
  ASSERT_FALSE(fixture.empty());
  putForeign("chidi-okafor.vcf", fixture);

  auto app = open();
  auto items = contacts(app);
  ASSERT_EQ(items->Count(), 1);
  auto c = std::dynamic_pointer_cast<ContactItem>(items->Item(1));
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->EntryID(), "5B0C7E4A-1D2E-4F60-9A8B-C0FFEE000001");
  EXPECT_EQ(c->FullName(), "Chidi Okafor");
  EXPECT_EQ(c->CompanyName(), "Okafor & Daughters");
  EXPECT_EQ(c->Email1Address(), "chidi@okafor.example");
  EXPECT_EQ(c->MobileTelephoneNumber(), "+234 803 555 0101");
  EXPECT_EQ(c->HomeAddressCity(), "Lagos");
  EXPECT_EQ(c->Body(), "Client since 2015.\nSends papers by courier, never e-mail.");

  c->setLastName("Okafor-Bello");
  c->setEmail1Address("chidi@bello.example");
  c->setJobTitle("Director");
  c->Save();

  // Compared by meaning: a server writes the card back in a form of its own.
  std::set<std::string> written;
  for (const auto& p : vdir::parseVcard(stored("chidi-okafor.vcf")).properties)
    written.insert(vdir::propertyMeaning(p));
  auto has = [&](const std::string& line) {
    return written.count(vdir::propertyMeaning(vdir::parsePropertyLine(line))) > 0;
  };
  for (const auto& p : vdir::parseVcard(fixture).properties) {
    if (p.is("N") || p.is("PRODID") || (p.is("EMAIL") && p.group() == "item1"))
      continue;  // the edited ones
    EXPECT_TRUE(written.count(vdir::propertyMeaning(p))) << "lost or changed: " << p.line();
  }
  EXPECT_TRUE(has("item1.EMAIL;type=INTERNET;type=pref:chidi@bello.example"));
  EXPECT_TRUE(has("N:Okafor-Bello;Chidi;;;"));
  EXPECT_TRUE(has("TITLE:Director"));
  EXPECT_TRUE(has("X-DOSSYNC-FILEAS:Okafor-Bello\\, Chidi"));

  // The card keeps its name; the id still comes from the UID and finds it.
  auto back = byId(open(), "5B0C7E4A-1D2E-4F60-9A8B-C0FFEE000001");
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->LastName(), "Okafor-Bello");
  EXPECT_TRUE(vdir::deleteVdirItem(*open()->GetNamespace("MAPI"), back->EntryID()));
  EXPECT_EQ(contacts(open())->Count(), 0);
}

TEST_P(ContactStoreTest, SaveFilesAnUnnamedContactAsOutlookDoes) {
  struct Case {
    std::string last, first, company, full, fileAs, expected;
  } cases[] = {
      {"Smith", "Ann", "Acme", "Ann Smith", "", "Smith, Ann"},
      {"Smith", "", "Acme", "Ann Smith", "", "Smith"},
      {"", "Ann", "Acme", "Ann Smith", "", "Ann"},
      {"", "", "Acme", "Ann Smith", "", "Acme"},
      {"", "", "", "Ann Smith", "", "Ann Smith"},
      {"", "", "", "", "", ""},
      {"Smith", "Ann", "", "", "Chosen", "Chosen"},
  };
  auto app = open();
  for (const auto& k : cases) {
    auto c = testing::saveContact(*app, k.fileAs, [&](ContactItem& c) {
      c.setLastName(k.last);
      c.setFirstName(k.first);
      c.setCompanyName(k.company);
      c.setFullName(k.full);
    });
    EXPECT_EQ(c->FileAs(), k.expected);
    auto back = byId(open(), c->EntryID());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->FileAs(), k.expected);
  }
}

// The session's own saves are seen by its look-ups (the index was built before them), and the
// entry id stays across renames and runs.
TEST_P(ContactStoreTest, OwnSavesAreFoundAndTheEntryIdStaysAcrossRenamesAndRuns) {
  auto app = open();
  auto items = contacts(app);
  EXPECT_EQ(items->Count(), 0);  // index built
  auto c = testing::saveContact(*app, "", [](ContactItem& c) {
    c.setFirstName("Ann");
    c.setLastName("Smith");
  });
  std::string id = c->EntryID();
  EXPECT_EQ(items->Count(), 1);
  EXPECT_NE(find(items, "Smith, Ann"), nullptr);
  EXPECT_NE(byId(app, id), nullptr);
  c->setLastName("Jones");
  c->setFileAs("Jones, Ann");
  c->Save();
  EXPECT_EQ(c->EntryID(), id);
  EXPECT_EQ(items->Count(), 1);
  EXPECT_EQ(find(items, "Smith, Ann"), nullptr);  // the index follows the rename
  ASSERT_NE(find(items, "Jones, Ann"), nullptr);
  EXPECT_EQ(find(items, "Jones, Ann")->EntryID(), id);

  auto later = open();
  auto back = byId(later, id);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->LastName(), "Jones");
  EXPECT_EQ(contacts(later)->Item(1)->EntryID(), id);
}

INSTANTIATE_TEST_SUITE_P(Stores, ContactStoreTest, ::testing::Values("vdir", "carddav"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace dossync
