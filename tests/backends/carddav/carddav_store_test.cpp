// The CardDAV store against a real Radicale server: what reaches the server, what a logon
// downloads, and other clients' changes (made straight on the server) kept through our writes.
#include "backends/carddav/carddav_store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "backends/carddav/dav_client.h"
#include "base/error.h"
#include "core/apartment.h"
#include "test_support.h"

namespace dossync::carddav {
namespace {

namespace fs = std::filesystem;
using outlook::ContactItem;

class CardDavStoreTest : public testing::RadicaleSuite {
 protected:
  CardDavSettings settings(bool serverWins = false) const {
    CardDavSettings s;
    s.url = url;
    s.cacheRoot = cache.path();
    s.serverWinsConflicts = serverWins;
    return s;
  }
  std::shared_ptr<outlook::NameSpace> logon(bool serverWins = false) {
    apps.push_back(makeCardDavApplication(settings(serverWins)));
    auto session = apps.back()->GetNamespace("MAPI");
    session->Logon("alice", "secret", false, false);
    return session;
  }
  std::shared_ptr<ContactItem> create(const std::string& fileAs) {
    return testing::saveContact(*apps.back(), fileAs);
  }
  DavClient other() { return DavClient(url, {"alice", "secret"}); }
  // Another client replaces `text` in the card at href with `with`: whether the server took it.
  static bool editOnServer(DavClient& client, const std::string& href, const std::string& text,
                           const std::string& with) {
    auto card = client.get(href);
    std::string changed = card.data;
    changed.replace(changed.find(text), text.size(), with);
    return client.put({href, changed, card.etag, false}).status / 100 == 2;
  }
  fs::path copyOf(const std::string& file) {
    return fs::path(cardDavCopyRoot(settings())) / "alice" / "contacts" / file;
  }
  static std::shared_ptr<ContactItem> byId(const std::shared_ptr<outlook::NameSpace>& s,
                                           const std::string& id) {
    return std::dynamic_pointer_cast<ContactItem>(s->GetItemFromID(id, ""));
  }

  testing::TempDir cache;
  std::vector<std::shared_ptr<outlook::Application>> apps;
};

TEST_F(CardDavStoreTest, SavesReachTheServerAndLogonsFetchOnlyWhatChanged) {
  auto session = logon();
  auto ann = create("Lee, Ann");
  std::string id = ann->EntryID();
  auto client = other();
  auto members = client.listMembers();
  ASSERT_EQ(members.size(), 1u);
  EXPECT_NE(client.get(members[0].href).data.find("Lee\\, Ann"), std::string::npos);
  std::string file = members[0].href.substr(members[0].href.rfind('/') + 1);
  auto stamp = fs::last_write_time(copyOf(file));

  // Nothing changed: a new session finds the card in its copy, which is not fetched again.
  auto again = logon();
  ASSERT_NE(byId(again, id), nullptr);
  EXPECT_EQ(fs::last_write_time(copyOf(file)), stamp);

  // Another client changes the card (its new cards: ContactStoreTest); then deletes it: gone
  // here after the next logon. (Deleted here, gone there: ContactStoreTest.)
  EXPECT_TRUE(editOnServer(client, members[0].href, "END:VCARD",
                           "NICKNAME:annie\r\nTITLE:Partner\r\nEND:VCARD"));
  EXPECT_EQ(byId(logon(), id)->JobTitle(), "Partner");
  client.remove(members[0].href);
  EXPECT_EQ(byId(logon(), id), nullptr);
  EXPECT_FALSE(fs::exists(copyOf(file)));
}

// Between our read and our write another client changes the card: our save meets a 412 and is
// merged into their version, what only they changed (a new nickname) kept whatever the rule.
TEST_F(CardDavStoreTest, APropertyBothChangedKeepsTheValueTheRuleNames) {
  for (bool serverWins : {false, true}) {
    SCOPED_TRACE(serverWins ? "the server's value wins" : "ours wins");
    auto session = logon(serverWins);
    auto ann = create(serverWins ? "Lee, Ann" : "Ray, Bob");
    ann->setJobTitle("Clerk");
    ann->Save();
    auto item = byId(session, ann->EntryID());

    auto client = other();
    std::string href;
    for (const auto& m : client.listMembers())
      if (client.get(m.href).data.find(serverWins ? "Lee" : "Ray") != std::string::npos)
        href = m.href;
    ASSERT_TRUE(editOnServer(client, href, "TITLE:Clerk", "TITLE:Manager\r\nNICKNAME:annie"));

    item->setJobTitle("Partner");
    item->setDepartment("Audit");
    item->Save();
    auto now = byId(logon(), ann->EntryID());
    EXPECT_EQ(now->JobTitle(), serverWins ? "Manager" : "Partner");
    EXPECT_EQ(now->Department(), "Audit");  // changed on one side only: ours reaches the server
    EXPECT_NE(client.get(href).data.find("NICKNAME:annie"), std::string::npos);
  }
}

// Saves made inside a procedure go to the server behind it; the failures are answered as it ends.
std::optional<RuntimeError> inProcedure(const std::function<void()>& body) {
  ++apartment().procedureDepth;
  body();
  std::vector<RuntimeError> failed = apartment().idleDatabases(true);  // the procedure returns
  --apartment().procedureDepth;
  return failed.empty() ? std::nullopt : std::optional(failed.back());
}

TEST_F(CardDavStoreTest, AFailedWriteNamesTheCardAndTheOthersStillReachTheServer) {
  testing::RadicaleServer own({"alice:secret"});
  own.makeBook("alice", "book");
  url = own.url("alice", "book");
  auto session = logon();
  auto ann = create("Lee, Ann");
  std::string annId = ann->EntryID();
  // Another client moves Ann's card to a name of its own: our update of it makes the card
  // again, which the server refuses (409, its UID is taken), while the rest of the batch goes.
  auto client = other();
  auto annCard = client.get(client.listMembers().at(0).href);
  client.remove(annCard.href);
  ASSERT_EQ(
      client.put({client.collectionPath() + "moved.vcf", annCard.data, "", true}).status / 100, 2);
  auto failed = inProcedure([&] {
    ann->setJobTitle("Partner");
    ann->Save();
    for (const char* name : {"Ray, Bob", "Kim, Cy"}) create(name);
  });
  ASSERT_TRUE(failed);
  EXPECT_NE(failed->description().find(url), std::string::npos) << failed->description();
  EXPECT_NE(failed->description().find("409"), std::string::npos) << failed->description();
  EXPECT_EQ(client.listMembers().size(), 3u);

  // The server goes away with cards still to send: the error names it, and the copy does not
  // pretend to hold what never reached it.
  std::vector<std::string> lost;
  auto second = logon();
  failed = inProcedure([&] {
    for (const char* name : {"Orr, Di", "Poe, Ed"}) lost.push_back(create(name)->EntryID());
    own.stop();
  });
  ASSERT_TRUE(failed);
  EXPECT_EQ(failed->number(), kServerUnreachable);
  EXPECT_NE(failed->description().find(own.base()), std::string::npos) << failed->description();
  for (const auto& id : lost) EXPECT_EQ(byId(second, id), nullptr) << id;
}

// An appointment goes into the account's calendar when it has one, and stays in the profile's
// folder when it has none.
TEST_F(CardDavStoreTest, AppointmentsGoToTheAccountsCalendar) {
  auto session = logon();
  auto send = [&](const std::string& subject) {
    auto item = std::dynamic_pointer_cast<outlook::AppointmentItem>(
        apps.back()->CreateItem(outlook::olAppointmentItem));
    item->setSubject(subject);
    item->setStart({2026, 12, 1, 10, 0, 0});
    item->setEnd({2026, 12, 1, 11, 0, 0});
    item->Send();
    return item->EntryID();
  };
  send("no calendar yet");  // nothing on the server to take it

  server->makeBook("alice", book + "-calendar", true);
  auto withCalendar = logon();
  std::string uid = send("Year-end review");
  DavClient calendar(server->url("alice", book + "-calendar"), {"alice", "secret"});
  auto members = calendar.listMembers();
  ASSERT_EQ(members.size(), 1u);
  auto event = calendar.get(members[0].href);
  EXPECT_NE(event.data.find("SUMMARY:Year-end review"), std::string::npos) << event.data;
  EXPECT_NE(event.data.find("UID:" + uid), std::string::npos) << event.data;
}

}  // namespace
}  // namespace dossync::carddav
