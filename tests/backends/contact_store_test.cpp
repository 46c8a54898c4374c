// What every contact store does, on a vCard folder and on a Radicale server's address book;
// another program's cards are put where the store keeps them, and read back from there.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "backends/carddav/carddav_store.h"
#include "backends/carddav/dav_client.h"
#include "backends/vcard/card_merge.h"
#include "backends/vdir/vdir_store.h"
#include "test_support.h"

namespace dossync {
namespace {

namespace fs = std::filesystem;
using outlook::ContactItem;
using outlook::ContactProperty;

class ContactStoreTest : public ::testing::TestWithParam<std::string> {
 protected:
  using App = std::shared_ptr<outlook::Application>;
  using Item = std::shared_ptr<ContactItem>;
  static void TearDownTestSuite() { server.reset(); }
  bool dav() const { return GetParam() == "carddav"; }
  void SetUp() override {
    if (!dav()) return;
    if (!server) server.reset(new testing::RadicaleServer({"alice:secret"}));
    book = "b" + std::to_string(++books);
    server->makeBook("alice", book);
  }
  App open() {
    App app;
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
  static std::shared_ptr<outlook::Items> contacts(const App& a) {
    return a->GetNamespace("MAPI")->GetDefaultFolder(outlook::olFolderContacts)->Items();
  }
  static Item byId(const App& a, const std::string& id) {
    return std::dynamic_pointer_cast<ContactItem>(a->GetNamespace("MAPI")->GetItemFromID(id, ""));
  }
  static Item find(const std::shared_ptr<outlook::Items>& items, const std::string& fileAs) {
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

  static inline std::unique_ptr<testing::RadicaleServer> server;
  static inline int books = 0;
  std::string book;
  testing::TempDir root;
};

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

  auto back = byId(open(), id);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(outlook::contactProperties(*back), outlook::contactProperties(*c));

  for (int i = 0; i < outlook::kContactTextPropertyCount; ++i)
    back->set(static_cast<ContactProperty>(i), "");
  back->setGender(outlook::olUnspecified);
  back->setBirthday(outlook::kNoDate);
  back->setAnniversary(outlook::kNoDate);
  back->Save();
  auto empty = byId(open(), id);
  ASSERT_NE(empty, nullptr);
  for (const auto& [name, text] : outlook::contactProperties(*empty))
    EXPECT_TRUE(name == "EntryID" || text == (name == "Gender" ? "0" : "")) << name << ": " << text;
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

  c->setLastName("Okafor-Bello");
  c->setEmail1Address("chidi@bello.example");
  c->setJobTitle("Director");
  c->Save();

  // Compared by meaning: a server writes the card back in a form of its own.
  std::set<std::string> written;
  for (const auto& p : vdir::parseVcard(stored("chidi-okafor.vcf")).properties)
    written.insert(vdir::propertyMeaning(p));
  for (const auto& p : vdir::parseVcard(fixture).properties) {
    if (p.is("N") || p.is("PRODID") || (p.is("EMAIL") && p.group() == "item1"))
      continue;  // the edited ones
    EXPECT_TRUE(written.count(vdir::propertyMeaning(p))) << "lost or changed: " << p.line();
  }
  for (const char* line :
       {"item1.EMAIL;type=INTERNET;type=pref:chidi@bello.example", "N:Okafor-Bello;Chidi;;;",
        "TITLE:Director", "X-DOSSYNC-FILEAS:Okafor-Bello\\, Chidi"})
    EXPECT_TRUE(written.count(vdir::propertyMeaning(vdir::parsePropertyLine(line)))) << line;

  // The card keeps its name; the id still comes from the UID and finds it.
  auto back = byId(open(), "5B0C7E4A-1D2E-4F60-9A8B-C0FFEE000001");
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->LastName(), "Okafor-Bello");
  EXPECT_TRUE(vdir::deleteVdirItem(*open()->GetNamespace("MAPI"), back->EntryID()));
  EXPECT_EQ(contacts(open())->Count(), 0);
}

// Seen by the session's look-ups, though its index was built before them.
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
