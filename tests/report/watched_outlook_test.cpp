// The watch in front of Outlook: what a save changed, without reading what Outlook guards; and
// in a preview, look-ups that find what the run kept instead of saving.
#include "report/watched_outlook.h"

#include <gtest/gtest.h>

#include "backends/vdir/vdir_store.h"
#include "engine/recording_outlook.h"
#include "test_support.h"

namespace dossync::report {
namespace {

using P = outlook::ContactProperty;

// Outlook's object model guard over the vCard folder: every read of an address or notes logged.
using GuardLog = std::vector<std::string>;

class GuardedContact : public outlook::ContactItemProxy {
 public:
  GuardedContact(outlook::ContactItemPtr inner, GuardLog& log)
      : ContactItemProxy(std::move(inner)), log_(log) {}
  bool guarded(P p) const override {
    return p == P::Email1Address || p == P::Email2Address || p == P::Email3Address || p == P::Body;
  }
  std::string get(P p) const override {
    if (guarded(p)) log_.push_back(outlook::propertyName(p));
    return inner_->get(p);
  }

 private:
  GuardLog& log_;
};

outlook::ContactItemPtr create(const std::shared_ptr<outlook::Application>& app) {
  return std::dynamic_pointer_cast<outlook::ContactItem>(app->CreateItem(outlook::olContactItem));
}

class WatchedOutlookTest : public ::testing::Test {
 protected:
  // Saved straight into the store: its entry id.
  std::string stored(const std::string& fileAs,
                     const std::vector<std::pair<P, std::string>>& values) {
    auto app = vdir::makeVdirApplication(root.path());
    auto c = create(app);
    c->setFileAs(fileAs);
    for (const auto& [p, v] : values) c->set(p, v);
    c->Save();
    return c->EntryID();
  }
  std::shared_ptr<outlook::Application> watched(bool preview, bool guarded) {
    std::shared_ptr<outlook::Application> app = vdir::makeVdirApplication(root.path());
    auto guard = [this](outlook::ItemPtr item) -> outlook::ItemPtr {
      auto c = std::dynamic_pointer_cast<outlook::ContactItem>(item);
      return c ? std::make_shared<GuardedContact>(c, log) : item;
    };
    if (guarded)
      app = std::make_shared<testing::HookedApplication>(app,
                                                         testing::OutlookHooks{{}, guard, guard});
    return watchOutlook(app, preview, {[this](const ItemSave& s) { saves.push_back(s); }, {}});
  }
  static outlook::ContactItemPtr open(const std::shared_ptr<outlook::Application>& app,
                                      const std::string& entryId) {
    auto ns = app->GetNamespace("MAPI");
    auto folder = ns->GetDefaultFolder(outlook::olFolderContacts);
    return std::dynamic_pointer_cast<outlook::ContactItem>(
        ns->GetItemFromID(entryId, folder->StoreID()));
  }
  static outlook::ContactItemPtr find(const std::shared_ptr<outlook::Application>& app,
                                      const std::string& fileAs) {
    auto items = app->GetNamespace("MAPI")->GetDefaultFolder(outlook::olFolderContacts)->Items();
    return std::dynamic_pointer_cast<outlook::ContactItem>(
        items->Find("[FileAs] = \"" + fileAs + "\""));
  }
  // A save's changes as "field: old -> new", "field: ? -> new" when the old value is not known.
  static std::vector<std::string> changes(const ItemSave& s) {
    std::vector<std::string> out;
    for (const auto& c : s.changes)
      out.push_back(c.field + ": " + (c.beforeKnown ? c.before : "?") + " -> " + c.after);
    return out;
  }

  testing::TempDir root;
  GuardLog log;
  std::vector<ItemSave> saves;
};

// The run reads one guarded address and sets it, sets another and the notes without reading
// them: Outlook is asked for the one the run read, once, and nothing else guarded; the changes
// say so. Once saved, what the run set is known. A new item's guarded values were empty. On the
// vCard folder nothing is guarded: every old value is known.
TEST_F(WatchedOutlookTest, GuardedPropertiesAreReadOnlyByTheRun) {
  for (bool guarded : {true, false}) {
    SCOPED_TRACE(guarded ? "guarded" : "vCard folder");
    std::string id = stored("Acme", {{P::Email1Address, "old@acme.test"},
                                     {P::Email2Address, "two@acme.test"},
                                     {P::Body, "Notes"},
                                     {P::BusinessAddressCity, "Kingston"}});
    log.clear();
    saves.clear();
    auto app = watched(false, guarded);
    auto item = open(app, id);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->Email2Address(), "two@acme.test");
    item->setEmail1Address("new@acme.test");
    item->setEmail2Address("two@acme.example");
    item->setBody("Notes");
    item->setBusinessAddressCity("Gatineau");
    item->Save();
    item->setEmail1Address("new@acme.test");
    item->setBody("Other notes");
    item->Save();
    auto made = create(app);
    made->setFileAs("Made");
    made->setEmail3Address("three@made.test");
    made->Save();

    EXPECT_EQ(log, guarded ? GuardLog{"Email2Address"} : GuardLog{});
    ASSERT_EQ(saves.size(), 3u);
    using V = std::vector<std::string>;
    EXPECT_EQ(changes(saves[0]),
              (guarded ? V{"Email1Address: ? -> new@acme.test",
                           "Email2Address: two@acme.test -> two@acme.example",
                           "BusinessAddressCity: Kingston -> Gatineau", "Body: ? -> Notes"}
                       : V{"Email1Address: old@acme.test -> new@acme.test",
                           "Email2Address: two@acme.test -> two@acme.example",
                           "BusinessAddressCity: Kingston -> Gatineau"}));
    EXPECT_EQ(changes(saves[1]), V{"Body: Notes -> Other notes"});
    EXPECT_TRUE(saves[2].created);
    EXPECT_EQ(changes(saves[2]), (V{"FileAs:  -> Made", "Email3Address:  -> three@made.test"}));
  }
}

// A preview keeps what the run saved: a look-up by file-as name (without regard to case) finds
// the store's item as the run left it, then the first item kept under that name; an item renamed
// is found by its new name only; by entry id, the kept item.
TEST_F(WatchedOutlookTest, PreviewFindsWhatTheRunKept) {
  std::string delta = stored("Delta", {});
  auto app = watched(true, false);
  auto make = [&](const std::string& fileAs) {
    auto c = create(app);
    c->setFileAs(fileAs);
    c->Save();
    return c;
  };
  auto first = make("Beta"), second = make("beta"), third = make("Gamma");
  EXPECT_EQ(first->EntryID(), "preview-1");
  EXPECT_EQ(find(app, "BETA"), first);
  first->setFileAs("Gamma");
  first->Save();
  EXPECT_EQ(find(app, "Beta"), second);
  EXPECT_EQ(find(app, "gamma"), first);  // kept before the other "Gamma"

  auto renamed = find(app, "Delta");
  ASSERT_NE(renamed, nullptr);
  EXPECT_EQ(renamed->EntryID(), delta);
  renamed->setFileAs("Epsilon");
  renamed->Save();
  EXPECT_EQ(find(app, "Delta"), nullptr);
  EXPECT_EQ(find(app, "epsilon"), renamed);
  EXPECT_EQ(open(app, delta), renamed);
  EXPECT_EQ(open(app, "preview-3"), third);
}

}  // namespace
}  // namespace dossync::report
