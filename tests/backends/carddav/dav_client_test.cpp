// The CardDAV client against a real Radicale server: one server for the suite, an address book
// of its own for each test.
#include "backends/carddav/dav_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "test_support.h"

namespace dossync::carddav {
namespace {

std::string vcard(const std::string& uid, const std::string& name) {
  return "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:" + uid + "\r\nFN:" + name + "\r\nN:" + name +
         ";;;;\r\nEND:VCARD\r\n";
}

class DavClientTest : public testing::RadicaleSuite {
 protected:
  void SetUp() override {
    RadicaleSuite::SetUp();
    client = std::make_unique<DavClient>(url, options());
  }
  static DavOptions options(const std::string& password = "secret") {
    DavOptions o;
    o.user = "alice";
    o.password = password;
    o.timeoutSeconds = 10;
    return o;
  }
  std::string href(const std::string& name) const { return "/alice/" + book + "/" + name; }
  DavClient::WriteResult create(const std::string& uid) {
    return client->put({href(uid + ".vcf"), vcard(uid, "Name " + uid), "", true});
  }

  std::unique_ptr<DavClient> client;
};

TEST_F(DavClientTest, ProbeAndAddresses) {
  DavClient::CollectionInfo info = client->probe();
  EXPECT_TRUE(info.isAddressBook);
  EXPECT_TRUE(info.syncCollection);
  EXPECT_FALSE(info.syncToken.empty());
  EXPECT_EQ(info.displayName, "Book");

  // Not an address book: the user's home collection.
  DavClient home(server->base() + "alice", options());
  EXPECT_EQ(home.collectionUrl(), server->base() + "alice/");
  EXPECT_FALSE(home.probe().isAddressBook);

  EXPECT_EQ(client->collectionPath(), "/alice/" + book + "/");
  const std::string origin = server->base().substr(0, server->base().size() - 1);
  const std::pair<std::string, std::string> hrefs[] = {
      {"https://other.example/x.vcf", "https://other.example/x.vcf"},
      {"/alice/other/a.vcf", origin + "/alice/other/a.vcf"},
      {"a b%20c.vcf", client->collectionUrl() + "a%20b%20c.vcf"},
  };
  for (const auto& [h, url] : hrefs) EXPECT_EQ(client->urlOf(h), url) << h;

  // Only members inside the collection are followed; requests never leave its origin.
  const std::string dir = "/alice/" + book + "/";
  for (const std::string& inside :
       {dir + "a.vcf", std::string("a%20b.vcf"), origin + dir + "x.vcf",
        "HTTP://127.0.0.1:" + origin.substr(origin.rfind(':') + 1) + dir + "y.vcf"})
    EXPECT_TRUE(client->contains(inside)) << inside;
  for (const std::string& outside :
       {std::string("https://other.example/x.vcf"), "http://localhost:1" + dir + "a.vcf",
        std::string("/alice/other/a.vcf"), dir, dir + "../other/a.vcf", dir + "%2e%2e/other/a.vcf",
        dir + "a%2F..%2F..%2Fb.vcf", "/alice/" + book + "x/a.vcf"})
    EXPECT_FALSE(client->contains(outside)) << outside;
  EXPECT_TRUE(client->sameOrigin(origin + "/calendars/"));
  RuntimeError e = testing::thrown([&] {
    client->put({"https://other.example/x.vcf", vcard("x", "X"), "", true});
  });
  EXPECT_EQ(e.number(), kServerRejected);
  EXPECT_NE(e.description().find("not on the address book's server"), std::string::npos);
  auto many = client->putMany({{"http://other.example/y.vcf", vcard("y", "Y"), "", true}});
  ASSERT_TRUE(many[0].error.has_value());
  EXPECT_EQ(many[0].error->number(), kServerRejected);

  for (const char* bad : {"", "ftp://host/book/", "http:///book/", "127.0.0.1/book"}) {
    e = testing::thrown([&] { DavClient c(bad, options()); });
    EXPECT_EQ(e.number(), kInvalidProcedureCall) << bad;
  }
}

TEST_F(DavClientTest, FailuresNameTheUrlAndWhatTheServerSaid) {
  const std::string url = client->collectionUrl();
  RuntimeError e = testing::thrown([&] { DavClient(url, options("wrong")).probe(); });
  EXPECT_EQ(e.number(), kLogonFailed);
  EXPECT_EQ(e.remedy(), Remedy::kRefused);
  EXPECT_EQ(e.description(),
            "The server at " + url + " refused the logon of alice (401 Unauthorized)");
  EXPECT_EQ(e.source(), "carddav");

  const std::string nowhere =
      "http://127.0.0.1:" + std::to_string(testing::closedPort()) + "/alice/b/";
  e = testing::thrown([&] { DavClient(nowhere, options()).listMembers(); });
  EXPECT_EQ(e.number(), kServerUnreachable);
  EXPECT_EQ(e.remedy(), Remedy::kRetryLater);
  EXPECT_EQ(e.description(), "Cannot reach " + nowhere + ": Connection refused");

  // A card the server will not store; a collection that is not there.
  e = testing::thrown([&] { client->put({href("bad.vcf"), "not a vCard", "", true}); });
  EXPECT_EQ(e.number(), kServerRejected);
  EXPECT_EQ(e.remedy(), Remedy::kRefused);
  EXPECT_TRUE(e.description().starts_with("The server at " + client->urlOf(href("bad.vcf")) +
                                          " refused PUT (400 Bad Request)"))
      << e.description();
  e = testing::thrown([&] { DavClient(server->url("alice", "missing"), options()).listMembers(); });
  EXPECT_EQ(e.number(), kServerRejected);
  EXPECT_EQ(e.remedy(), Remedy::kNotFound);  // the number alone would say refused
  EXPECT_NE(e.description().find("(404 Not Found)"), std::string::npos) << e.description();
}

TEST_F(DavClientTest, ConditionalWritesAnswerTheirOutcome) {
  DavClient::WriteResult made = create("a");
  EXPECT_EQ(made.status, 201);
  EXPECT_TRUE(made.etag.size() > 2 && made.etag.front() == '"' && made.etag.back() == '"')
      << made.etag;  // quotes kept
  EXPECT_FALSE(made.error);
  EXPECT_EQ(create("a").status, 412);  // a new card under a name already taken

  DavClient::WriteResult changed =
      client->put({href("a.vcf"), vcard("a", "Changed"), made.etag, false});
  EXPECT_LT(changed.status, 300);
  EXPECT_NE(changed.etag, made.etag);
  EXPECT_EQ(client->put({href("a.vcf"), vcard("a", "Stale"), made.etag, false}).status, 412);

  DavClient::Card card = client->get(href("a.vcf"));
  EXPECT_EQ(card.status, 200);
  EXPECT_EQ(card.etag, changed.etag);
  EXPECT_NE(card.data.find("FN:Changed"), std::string::npos) << card.data;

  EXPECT_EQ(client->remove(href("a.vcf"), made.etag).status, 412);
  EXPECT_LT(client->remove(href("a.vcf"), changed.etag).status, 300);
  EXPECT_EQ(client->get(href("a.vcf")).status, 404);
  EXPECT_EQ(client->remove(href("a.vcf")).status, 404);
}

TEST_F(DavClientTest, ManyCardsWrittenListedAndFetched) {
  std::vector<DavClient::Put> puts;
  for (int i = 0; i < 30; ++i) {
    std::string uid = "c" + std::to_string(i);
    puts.push_back({href(uid + ".vcf"), vcard(uid, "Name " + uid), "", true});
  }
  puts[7].body = "not a vCard";
  std::vector<DavClient::WriteResult> written = client->putMany(puts);
  ASSERT_EQ(written.size(), puts.size());
  std::vector<std::string> hrefs;
  std::map<std::string, std::string> etags;  // of the cards written
  for (size_t i = 0; i < written.size(); ++i) {
    if (i == 7) {
      ASSERT_TRUE(written[i].error);
      EXPECT_EQ(written[i].error->number(), kServerRejected);
      EXPECT_NE(written[i].error->description().find(client->urlOf(puts[i].href)),
                std::string::npos);
      EXPECT_EQ(written[i].status, 400);
      continue;
    }
    EXPECT_FALSE(written[i].error) << i << ": " << written[i].error->description();
    EXPECT_EQ(written[i].status, 201) << i;
    hrefs.push_back(puts[i].href);
    etags[puts[i].href] = written[i].etag;
  }

  std::vector<DavClient::Member> members = client->listMembers();
  ASSERT_EQ(members.size(), 29u);
  for (const DavClient::Member& m : members) {
    ASSERT_TRUE(etags.count(m.href)) << m.href;
    EXPECT_EQ(m.etag, etags[m.href]) << m.href;
  }

  // In the order asked, across batches, with one that is not there.
  std::reverse(hrefs.begin(), hrefs.end());
  hrefs.insert(hrefs.begin() + 10, href("missing.vcf"));
  std::vector<DavClient::Card> cards = client->multiget(hrefs, 8);
  ASSERT_EQ(cards.size(), hrefs.size());
  for (size_t i = 0; i < cards.size(); ++i) {
    EXPECT_EQ(cards[i].href, hrefs[i]);
    if (i == 10) {
      EXPECT_EQ(cards[i].status, 404);
      EXPECT_EQ(cards[i].data, "");
      continue;
    }
    EXPECT_EQ(cards[i].status, 200) << hrefs[i];
    std::string uid = hrefs[i].substr(hrefs[i].rfind('/') + 1);
    uid.resize(uid.size() - 4);
    EXPECT_NE(cards[i].data.find("UID:" + uid + "\r"), std::string::npos) << cards[i].data;
    EXPECT_FALSE(cards[i].etag.empty());
  }
}

TEST_F(DavClientTest, SyncCollectionReportsChangesSinceAToken) {
  std::vector<DavClient::WriteResult> made{create("a"), create("b"), create("c")};
  DavClient::SyncResult first = client->syncCollection("");
  EXPECT_FALSE(first.tokenInvalid);
  EXPECT_EQ(first.changed.size(), 3u);
  EXPECT_TRUE(first.removed.empty());
  ASSERT_FALSE(first.token.empty());

  client->put({href("a.vcf"), vcard("a", "Changed"), made[0].etag, false});
  client->remove(href("b.vcf"));
  create("d");
  DavClient::SyncResult next = client->syncCollection(first.token);
  std::vector<std::string> changed;
  for (const DavClient::Member& m : next.changed) changed.push_back(m.href);
  std::sort(changed.begin(), changed.end());
  EXPECT_EQ(changed, (std::vector<std::string>{href("a.vcf"), href("d.vcf")}));
  EXPECT_EQ(next.removed, std::vector<std::string>{href("b.vcf")});
  EXPECT_NE(next.token, first.token);

  DavClient::SyncResult none = client->syncCollection(next.token);
  EXPECT_TRUE(none.changed.empty() && none.removed.empty());

  DavClient::SyncResult refused = client->syncCollection("http://radicale.org/ns/sync/unknown");
  EXPECT_TRUE(refused.tokenInvalid && refused.token.empty());
}

// A busy server: 429 with Retry-After, waited for, then given up on.
TEST(DavClientBusyTest, RetriesAfterTheWaitAskedThenGivesUp) {
  testing::RadicaleServer busy{testing::RadicaleServer::Busy{}};
  DavOptions o;
  o.maxRetries = 2;
  o.timeoutSeconds = 10;
  auto start = std::chrono::steady_clock::now();
  // Two refusals: Retry-After 1 (seconds), then an HTTP date 2 s ahead.
  EXPECT_TRUE(DavClient(busy.base() + "2/", o).probe().isAddressBook);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));

  o.maxRetries = 1;
  o.maxRetryWaitSeconds = 1;
  DavClient client(busy.base() + "0/", o);
  std::vector<DavClient::WriteResult> written = client.putMany(
      {{"/1/a.vcf", "x", "", true}, {"/0/b.vcf", "x", "", true}, {"/9/c.vcf", "x", "", true}});
  ASSERT_EQ(written.size(), 3u);
  EXPECT_EQ(written[0].status, 200);
  EXPECT_EQ(written[1].status, 200);
  ASSERT_TRUE(written[2].error);
  const RuntimeError& gaveUp = *written[2].error;
  EXPECT_EQ(gaveUp.number(), kServerUnreachable);
  EXPECT_EQ(gaveUp.remedy(), Remedy::kRetryLater);
  EXPECT_TRUE(gaveUp.description().starts_with(
      "The server at " + busy.base() +
      "9/c.vcf is too busy to answer (429 Too Many Requests); gave up after 2 attempts"))
      << gaveUp.description();
  RuntimeError e = testing::thrown([&] { DavClient(busy.base() + "9/", o).probe(); });
  EXPECT_EQ(e.number(), kServerUnreachable);
}

}  // namespace
}  // namespace dossync::carddav
