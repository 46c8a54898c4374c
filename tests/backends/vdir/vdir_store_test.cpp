// The vCard folder store through the Outlook object model, on real folders.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "backends/vdir/card_writer.h"
#include "backends/vdir/vdir_store.h"
#include "core/apartment.h"
#include "core/error_frame.h"
#include "test_support.h"

namespace dossync::vdir {
namespace {

namespace fs = std::filesystem;
using outlook::ContactItem;
using outlook::ContactProperty;

std::string card(const std::string& body) {
  return "BEGIN:VCARD\r\nVERSION:3.0\r\n" + body + "END:VCARD\r\n";
}

class VdirStoreTest : public ::testing::Test {
 protected:
  using App = std::shared_ptr<outlook::Application>;
  using Item = std::shared_ptr<ContactItem>;
  App open() {
    return makeVdirApplication(root.path(),
                               [this](const std::string& m) { warnings.push_back(m); });
  }
  static std::shared_ptr<outlook::NameSpace> session(const App& a) {
    return a->GetNamespace("MAPI");
  }
  static std::string storeOf(const App& a, int32_t folder = outlook::olFolderContacts) {
    return session(a)->GetDefaultFolder(folder)->StoreID();
  }
  static std::shared_ptr<outlook::Items> contacts(const App& a) {
    return session(a)->GetDefaultFolder(outlook::olFolderContacts)->Items();
  }
  static Item byId(const App& a, const std::string& id) {
    return std::dynamic_pointer_cast<ContactItem>(session(a)->GetItemFromID(id, ""));
  }
  static Item saved(const App& a, const std::string& fileAs) {
    return testing::saveContact(*a, fileAs);
  }
  static std::string pathOf(const outlook::ItemPtr& c) {
    return dynamic_cast<VdirItem&>(*c).FilePath();
  }
  fs::path contactsDir(const std::string& profile = "default") const {
    return fs::path(root.path()) / profile / "contacts";
  }
  // Another program's file in the default profile's contacts folder.
  void put(const std::string& name, const std::string& text) {
    fs::create_directories(contactsDir());
    std::ofstream(contactsDir() / name, std::ios::binary) << text;
  }
  static Item find(const std::shared_ptr<outlook::Items>& items, const std::string& fileAs) {
    return std::dynamic_pointer_cast<ContactItem>(items->Find("[FileAs] = \"" + fileAs + "\""));
  }
  static std::string idOf(const Item& item) { return item ? item->EntryID() : "(Nothing)"; }

  testing::TempDir root;
  std::vector<std::string> warnings;
};

// Store ids stay across sessions, and an item is found only in its own store.
TEST_F(VdirStoreTest, LogonTakesTheDefaultProfileAndCreatesMissingOnes) {
  auto app = open();
  storeOf(app);  // no Logon: the default profile
  EXPECT_TRUE(fs::is_directory(contactsDir("default")));
  EXPECT_TRUE(fs::is_directory(fs::path(root.path()) / "default" / "calendar"));

  session(app)->Logon("Practice 2", "secret", true, true);
  auto practiceStore = storeOf(app);
  EXPECT_TRUE(fs::is_directory(contactsDir("Practice 2")));
  std::string id = saved(app, "Smith, Ann")->EntryID();

  std::ofstream(fs::path(root.path()) / "default-profile") << "Practice 2\n";
  auto other = open();
  session(other)->Logon(std::nullopt, std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(storeOf(other), practiceStore);
  EXPECT_NE(session(other)->GetItemFromID(id, practiceStore), nullptr);
  session(other)->Logon("", std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(storeOf(other, outlook::olFolderCalendar), practiceStore);
  EXPECT_NE(session(other)->GetItemFromID(id, ""), nullptr);

  session(other)->Logon("b", {}, {}, {});
  std::string storeB = storeOf(other);
  EXPECT_NE(practiceStore, storeB);
  EXPECT_EQ(session(app)->GetItemFromID(id, storeB), nullptr);  // app is still on Practice 2
  EXPECT_EQ(session(other)->GetItemFromID(id, practiceStore), nullptr);
  EXPECT_EQ(session(other)->GetItemFromID(id, storeB), nullptr);

  EXPECT_THROW(session(app)->Logon("../escape", {}, {}, {}), RuntimeError);
  EXPECT_THROW(app->GetNamespace("IMAP"), RuntimeError);
  EXPECT_THROW(session(app)->GetDefaultFolder(6), RuntimeError);
  EXPECT_THROW(app->CreateItem(99), RuntimeError);  // no such item type
  EXPECT_EQ(session(app)->GetDefaultFolder(outlook::olFolderCalendar)->Items()->Count(), 0);
}

// An unnamed contact is filed as Outlook files it; every card has a display name.
TEST_F(VdirStoreTest, SavesFileUnnamedContactsAndGiveEveryCardADisplayName) {
  const std::string derived = "FN;X-DOSSYNC-DERIVED=TRUE:";
  struct Case {
    std::string last, first, company, full, email, fileAs, filed, fnLine;
    bool showsAsCompany;
  } cases[] = {
      {"Smith", "Ann", "Acme", "", "", "", "Smith, Ann", derived + "Smith\\, Ann", false},
      {"Smith", "", "Acme", "Ann Smith", "", "", "Smith", "FN:Ann Smith", false},
      {"", "Ann", "Acme Ltd", "", "", "", "Ann", derived + "Ann", false},
      {"", "", "Acme Ltd", "", "", "", "Acme Ltd", derived + "Acme Ltd", true},
      {"", "", "Acme Ltd", "Ann Lee", "", "", "Acme Ltd", "FN:Ann Lee", false},
      {"", "", "", "Ann Lee", "", "", "Ann Lee", "FN:Ann Lee", false},
      {"", "", "Acme; Sons", "", "", "Acme (London)", "Acme (London)", derived + "Acme (London)",
       true},
      {"", "", "", "", "info@acme.example", "", "", derived + "info@acme.example", false},
      {"", "", "", "", "", "", "", derived + "(no name)", false},
  };
  auto app = open();
  auto lines = [&](const Item& c) {  // unfolded, as written
    std::set<std::string> out;
    for (const auto& p : parseVcard(testing::readFile(pathOf(c))).properties) out.insert(p.line());
    return out;
  };
  auto reopened = [&](const Item& c) {  // FileAs|FullName, as another session reads them
    auto back = byId(open(), c->EntryID());
    return back ? back->FileAs() + "|" + back->FullName() : "(not found)";
  };
  for (const auto& k : cases) {
    SCOPED_TRACE(k.fnLine);
    auto c = testing::saveContact(*app, k.fileAs, [&](ContactItem& c) {
      c.setLastName(k.last);
      c.setFirstName(k.first);
      c.setFullName(k.full);
      c.setCompanyName(k.company);
      c.setEmail1Address(k.email);
    });
    EXPECT_EQ(c->FileAs(), k.filed);
    EXPECT_EQ(reopened(c), k.filed + "|" + k.full);  // a derived display name is none
    auto written = lines(c);
    EXPECT_TRUE(written.count(k.fnLine));
    EXPECT_EQ(written.count("X-ABShowAs:COMPANY"), k.showsAsCompany ? 1u : 0u);
  }

  // A company card follows its filing name; a person name makes it a person's until it goes.
  auto c = testing::saveContact(*app, "", [](ContactItem& c) { c.setCompanyName("Acme Ltd"); });
  c->setFileAs("Acme Holdings");
  c->Save();
  EXPECT_TRUE(lines(c).count("FN;X-DOSSYNC-DERIVED=TRUE:Acme Holdings"));
  for (const char* full : {"Ann Lee", ""}) {
    auto back = byId(open(), c->EntryID());
    back->setFullName(full);
    back->Save();
    EXPECT_EQ(reopened(c), "Acme Holdings|" + std::string(full));
    EXPECT_TRUE(lines(c).count(*full ? "FN:Ann Lee" : "FN;X-DOSSYNC-DERIVED=TRUE:Acme Holdings"));
    EXPECT_EQ(lines(c).count("X-ABShowAs:COMPANY"), *full ? 0u : 1u);
  }
}

// Read by two threads. Files that are not cards are skipped, each reported once (file and line),
// not again when the folder is read anew; files not named as cards are not read.
TEST_F(VdirStoreTest, ALargeFolderIsIndexedWholeWithItsBadFilesReported) {
  for (int i = 0; i < 600; ++i) {
    std::string n = std::to_string(i);
    put("c" + n + ".vcf",
        card("UID:u" + n + "\r\nFN:N " + n + "\r\nX-DOSSYNC-FILEAS:File " + n + "\r\n"));
  }
  put("c300x.vcf", "BEGIN:VCARD\r\nno colon\r\nEND:VCARD\r\n");
  put("c599x.vcf", "");
  put("notes.txt", "not a card at all");
  auto app = open();
  auto items = contacts(app);
  EXPECT_EQ(items->Count(), 600);
  for (int i : {0, 299, 300, 599})
    EXPECT_EQ(idOf(find(items, "File " + std::to_string(i))), "u" + std::to_string(i));
  put("new.vcf", card("UID:new\r\nFN:New\r\n"));
  EXPECT_EQ(contacts(app)->Count(), 601);
  ASSERT_EQ(warnings.size(), 2u);
  std::sort(warnings.begin(), warnings.end());
  EXPECT_NE(warnings[0].find((contactsDir() / "c300x.vcf").string()), std::string::npos);
  EXPECT_NE(warnings[0].find("line 2"), std::string::npos) << warnings[0];
  EXPECT_NE(warnings[1].find("c599x.vcf"), std::string::npos);
}

// Case folds as the text rule does (an accent still makes another letter); file order is also
// the order Item walks. The CardDAV store finds through this same index.
TEST_F(VdirStoreTest, FindTakesTheNameLiterallyAndAnswersTheFirstMatchInFileOrder) {
  auto app = open();
  const std::vector<std::string> names = {
      "O'Brien, \"Bob\"", "[Acme] = \"x\"", "  padded  ", "Smith, John", "=", "\"",
      "Ünïcode; ok",      "ÉCOLE DUPONT",   "ΟΔΥΣΣΕΥΣ",
  };
  std::map<std::string, std::string> ids;
  for (const auto& n : names) ids[n] = saved(app, n)->EntryID();
  std::vector<std::string> twins, all;
  for (int i = 0; i < 5; ++i) twins.push_back(saved(app, i % 2 ? "TWIN" : "Twin")->EntryID());
  std::sort(twins.begin(), twins.end());  // ids name the files: file order
  for (const auto& items : {contacts(app), contacts(open())}) {
    for (const auto& n : names) EXPECT_EQ(idOf(find(items, n)), ids[n]) << n;
    EXPECT_EQ(idOf(find(items, "tWiN")), twins.front());
    EXPECT_EQ(idOf(find(items, "école dupont")), ids["ÉCOLE DUPONT"]);
    EXPECT_EQ(idOf(find(items, "οδυσσευς")), ids["ΟΔΥΣΣΕΥΣ"]);
    EXPECT_EQ(find(items, "Ecole Dupont"), nullptr);
    EXPECT_EQ(find(items, "padded"), nullptr);
    EXPECT_NE(items->Find("  [FileAs]=\"Smith, John\"  "), nullptr);
    EXPECT_THROW(items->Find("[LastName] = \"Smith\""), RuntimeError);
    EXPECT_THROW(items->Find("[FileAs] = Smith"), RuntimeError);
    EXPECT_THROW(items->Find("[FileAs] = \"Smith"), RuntimeError);
    all.clear();
    for (int i = 1; i <= items->Count(); ++i) all.push_back(items->Item(i)->EntryID());
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    EXPECT_EQ(all.size(), names.size() + twins.size());
    EXPECT_THROW(items->Item(0), RuntimeError);
    EXPECT_THROW(items->Item(items->Count() + 1), RuntimeError);
  }
}

TEST_F(VdirStoreTest, LookUpsUseTheIndexAndSeeOtherProgramsThroughIdsAndFolderChanges) {
  auto app = open();
  auto items = contacts(app);
  saved(app, "Mine");
  EXPECT_EQ(items->Count(), 1);  // index built

  put("theirs.vcf", card("UID:theirs\r\nFN:T\r\nX-DOSSYNC-FILEAS:Theirs\r\n"));
  put("broken.vcf", "garbage");
  auto theirs2 = saved(open(), "Other session");

  for (int i = 0; i < 100; ++i) {
    EXPECT_NE(find(items, "Mine"), nullptr);
    EXPECT_EQ(session(app)->GetItemFromID("nope", ""), nullptr);
  }
  EXPECT_TRUE(warnings.empty()) << "a look-up reread the folder";
  // An id names its file: found without a rescan; handing out the folder again rescans it.
  EXPECT_NE(session(app)->GetItemFromID("theirs", ""), nullptr);
  EXPECT_NE(session(app)->GetItemFromID(theirs2->EntryID(), ""), nullptr);
  auto refreshed = contacts(app);
  EXPECT_EQ(warnings.size(), 1u);
  EXPECT_EQ(refreshed->Count(), 3);
  EXPECT_NE(find(refreshed, "Theirs"), nullptr);
  EXPECT_NE(find(refreshed, "Other session"), nullptr);

  put("theirs.vcf", card("UID:theirs\r\nFN:T\r\nX-DOSSYNC-FILEAS:Renamed\r\n"));
  EXPECT_EQ(find(refreshed, "Theirs"), nullptr);
  EXPECT_NE(find(refreshed, "Renamed"), nullptr);
}

// The writer thread and the draining owner write at once: neither may take the other's change of
// the folder for another program's (which would reread it whole at every commit point).
TEST(CardWriterTest, ItsOwnWritesFromBothThreadsAreNotTakenForAnotherProgramsChange) {
  testing::TempDir dir;
  CardWriter writer(dir.path());
  writer.setKnownDirTime(writer.dirTime());
  for (int round = 0; round < 10; ++round) {
    for (int i = 0; i < 150; ++i)
      writer.submit(std::to_string(round) + "-" + std::to_string(i) + ".vcf", card("FN:x\r\n"),
                    true);
    writer.drain();
    for (const auto& result : writer.collect()) ASSERT_FALSE(result.error) << result.file;
    ASSERT_EQ(writer.dirTime(), writer.knownDirTime()) << "round " << round;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // past the clock's tick
  std::ofstream(fs::path(dir.path()) / "theirs.vcf", std::ios::binary) << card("FN:t\r\n");
  EXPECT_NE(writer.dirTime(), writer.knownDirTime());
  // A new file never replaces one of its name that appeared meanwhile: the write fails, naming it.
  CardWriter::Result ours = writer.writeNow("theirs.vcf", card("FN:ours\r\n"), true);
  ASSERT_TRUE(ours.error);
  EXPECT_NE(ours.error->description().find("theirs.vcf"), std::string::npos);
  EXPECT_EQ(testing::readFile((fs::path(dir.path()) / "theirs.vcf").string()), card("FN:t\r\n"));
}

// The index reads only a card's keys; whatever another program wrote, it must agree with the
// card read whole.
TEST_F(VdirStoreTest, TheIndexFindsCardsOfOtherProgramsByTheirFileAsAndKnowsGroups) {
  struct Case {
    const char* file;
    std::string text;
    std::string fileAs;  // what the whole card is filed under
    bool group = false;
  };
  const Case cases[] = {
      {"evolution.vcf",
       "BEGIN:VCARD\nVERSION:3.0\nUID:evo-1\nFN:Ann Lee\nN:Lee;Ann;;;\n"
       "X-EVOLUTION-FILE-AS:Lee\\, Ann\nEND:VCARD\n",
       "Lee, Ann"},
      {"both.vcf", card("UID:both\r\nX-EVOLUTION-FILE-AS:Theirs\r\nx-dossync-fileas:Ours\r\n"),
       "Ours"},
      // Apple's groups, a byte order mark, and a name folded inside a UTF-8 sequence.
      {"apple.vcf",
       "\xEF\xBB\xBF" + card("item1.X-DOSSYNC-FILEAS:Bäckerei M\xC3\r\n \xBCller & "
                             "Söhne\r\n\tGmbH\r\nUID:apple\r\n"),
       "Bäckerei Müller & SöhneGmbH"},
      {"crlf.vcf", card("UID:crlf\r\nX-DOSSYNC-FILEAS;X-DOSSYNC-EOL=CRLF:Two\\nLines\r\n"),
       "Two\r\nLines"},
      // khard and vdirsyncer write no FileAs: such a card is filed as Outlook files it.
      {"khard.vcf", card("UID:khard-1\r\nFN:Jane Roe\r\nN:Roe;Jane;;;\r\nORG:Roe Consulting\r\n"),
       "Roe, Jane"},
      {"company.vcf", card("UID:co-1\r\nFN:Roe Consulting\r\nN:;;;;\r\nORG:Roe Consulting\r\n"),
       "Roe Consulting"},
      {"escaped-uid.vcf", card("UID:urn:uuid:a\\,b c\r\nX-DOSSYNC-FILEAS:Escaped Uid\r\n"),
       "Escaped Uid"},
      {"lower.vcf", "begin:vcard\nuid:lower\nx-evolution-file-as:lower case\nend:vcard\n",
       "lower case"},
      // UIDs that cannot name a file, or none: the ids are short, and stay once the card is saved.
      {"long.vcf", card("UID:" + std::string(300, 'x') + "\r\nFN:Long\r\n"), "Long"},
      {"odd.vcf", card("UID:urn:uuid:1234 5678/9\r\nFN:Odd\r\n"), "Odd"},
      {"dot.vcf", card("UID:..\r\nFN:Dots\r\n"), "Dots"},
      {"none.vcf", card("FN:None\r\n"), "None"},
      // Look-alikes of a FileAs line that are not one.
      {"decoy.vcf",
       card("UID:decoy\r\nNOTE:X-DOSSYNC-FILEAS:Fake\r\nX-DOSSYNC-FILEAS;X-Q=\"a:b\":Real\r\n"
            "X-DOSSYNC-FILEASX:Other\r\n"),
       "Real"},
      {"group4.vcf",
       "BEGIN:VCARD\r\nVERSION:4.0\r\nKIND;VALUE=text:group\r\nUID:grp\r\nFN:Team\r\n"
       "X-DOSSYNC-FILEAS:Team\r\nEND:VCARD\r\n",
       "Team", true},
      {"group3.vcf",
       card("UID:grp3\r\nx-addressbookserver-kind: Group \r\nX-DOSSYNC-FILEAS:Crew\r\n"), "Crew",
       true},
      // A person filed as the group before it in file order is: Find answers contacts only.
      {"zteam.vcf", card("UID:zteam\r\nFN:P\r\nX-DOSSYNC-FILEAS:Team\r\n"), "Team"},
  };
  for (const auto& c : cases) {
    Vcard whole = parseVcard(c.text);
    ASSERT_EQ(isGroupCard(whole), c.group) << c.file;
    if (!c.group) {
      ASSERT_EQ(filedAs(whole), c.fileAs) << c.file;
    }
    put(c.file, c.text);
  }
  auto fresh = open();
  auto items = contacts(fresh);
  EXPECT_EQ(items->Count(), static_cast<int32_t>(std::size(cases)));
  std::map<std::string, std::string> ids;  // file: entry id
  for (const auto& c : cases) {
    if (c.group) continue;
    auto hit = find(items, c.fileAs);
    ASSERT_NE(hit, nullptr) << c.file;
    EXPECT_EQ(pathOf(hit), (contactsDir() / c.file).string());
    EXPECT_LE(hit->EntryID().size(), 100u);
    ids[c.file] = hit->EntryID();
    hit->setJobTitle("saved once");
    hit->Save();
  }
  for (int i = 1; i <= items->Count(); ++i) {  // groups are walked as distribution lists
    std::string id = items->Item(i)->EntryID();
    EXPECT_EQ(items->Item(i)->Class(),
              id == "grp" || id == "grp3" ? outlook::olDistributionList : outlook::olContact)
        << id;
  }
  EXPECT_EQ(find(items, "Crew"), nullptr);
  EXPECT_EQ(find(items, "Theirs"), nullptr);
  EXPECT_EQ(find(items, "Fake"), nullptr);
  EXPECT_TRUE(warnings.empty());
  auto later = open();  // each id still leads to its card
  for (const auto& [file, id] : ids) {
    auto again = byId(later, id);
    EXPECT_EQ(again ? pathOf(again) : "(Nothing)", (contactsDir() / file).string());
  }
}

TEST_F(VdirStoreTest, DeletingRemovesTheFileAndTheIndexEntry) {
  auto app = open();
  auto items = contacts(app);
  auto a = saved(app, "A"), b = saved(app, "B");
  EXPECT_EQ(items->Count(), 2);
  std::string path = pathOf(a);
  EXPECT_TRUE(deleteVdirItem(*session(app), a->EntryID()));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(items->Count(), 1);
  EXPECT_EQ(find(items, "A"), nullptr);
  EXPECT_EQ(session(app)->GetItemFromID(a->EntryID(), ""), nullptr);
  EXPECT_FALSE(deleteVdirItem(*session(app), a->EntryID()));

  dynamic_cast<VdirItem&>(*b).Delete();
  EXPECT_EQ(items->Count(), 0);
  EXPECT_THROW(b->Save(), RuntimeError);
}

// Not written again, no new file for other tools to sync; unless another program changed the
// card since it was read, or we did.
TEST_F(VdirStoreTest, ASaveWithoutAChangeLeavesTheFileAsItIs) {
  auto app = open();
  auto made = saved(app, "Same");
  std::string id = made->EntryID();
  fs::path file = pathOf(made);
  auto inode = [&] {
    struct stat st {};
    EXPECT_EQ(::stat(file.c_str(), &st), 0);
    return st.st_ino;
  };
  const auto before = inode();
  const std::string ours = testing::readFile(file);

  // Found by FileAs, opened by its id and saved with what it holds, as a synchronisation does.
  auto fresh = open();
  ASSERT_NE(find(contacts(fresh), "Same"), nullptr);
  auto item = byId(fresh, id);
  ASSERT_NE(item, nullptr);
  item->setFileAs("Same");
  item->Save();
  EXPECT_EQ(inode(), before);

  auto stale = byId(fresh, id);
  std::ofstream(file, std::ios::binary)
      << card("UID:" + id + "\r\nFN:Edited elsewhere\r\nX-DOSSYNC-FILEAS:Other\r\n");
  stale->Save();
  EXPECT_EQ(testing::readFile(file), ours);
  stale->setJobTitle("Changed");
  stale->Save();
  EXPECT_NE(testing::readFile(file).find("\r\nTITLE:Changed\r\n"), std::string::npos);
}

// Left by a run killed between writing and renaming a card; removed once old enough that no
// writer can still be about to rename them.
TEST_F(VdirStoreTest, OpeningAFolderRemovesOurOldTemporaryFilesOnly) {
  auto make = [&](const std::string& name, std::chrono::minutes age) {
    fs::path p = contactsDir() / name;
    put(name, card("UID:x\r\nFN:x\r\n"));
    fs::last_write_time(p, fs::file_time_type::clock::now() - age);
    return p;
  };
  using std::chrono::minutes;
  std::vector<fs::path> gone = {
      make(".0123456789abcdef0123456789abcdef.vcf.0a1b2c3d.tmp", minutes(61)),
      make(".chidi-okafor.VCF.ffffffff.tmp", minutes(60 * 24 * 30)),
  };
  std::vector<fs::path> kept = {
      make(".0123456789abcdef0123456789abcdef.vcf.12345678.tmp", minutes(0)),  // being written
      make(".fresh.vcf.0a1b2c3d.tmp", minutes(50)),
  };
  // Other programs' files, however old.
  for (const char* name : {"notes.tmp", ".a.vcf.tmp", ".a.vcf.0A1B2C3D.tmp", ".a.vcf.0a1b2c3.tmp",
                           ".a.vcf.0a1b2c3d4.tmp", ".a.txt.0a1b2c3d.tmp", "..vcf.0a1b2c3d.tmp",
                           "a.vcf.0a1b2c3d.tmp", ".a.vcf.0a1b2c3d.tmp.swp", "kept.vcf"})
    kept.push_back(make(name, minutes(600)));
  fs::create_directory(contactsDir() / ".dir.vcf.0a1b2c3d.tmp");
  kept.push_back(contactsDir() / ".dir.vcf.0a1b2c3d.tmp");

  auto app = open();
  session(app)->Logon("default", {}, {}, {});
  for (const auto& p : gone) EXPECT_FALSE(fs::exists(p)) << p;
  for (const auto& p : kept) EXPECT_TRUE(fs::exists(p)) << p;
  EXPECT_EQ(contacts(app)->Count(), 1);  // kept.vcf
  EXPECT_TRUE(warnings.empty());
}

// Inside a procedure a save is written behind the caller's back.
TEST_F(VdirStoreTest, SavesInAProcedureAreOnDiskWhenItReturnsAndFailuresAreItsErrors) {
  resetApartment();
  auto errors = std::make_shared<testing::RecordingErrorService>();
  apartment().errorService = errors;
  apartment().errorServiceSet = true;
  auto app = open();
  std::vector<std::string> ids;
  {
    ErrorFrame outer("Test.outer");
    outer.step([&] {
      for (int i = 0; i < 40; ++i) {
        auto c = saved(app, "Name " + std::to_string(i));
        c->setBody(std::string(5000, 'b'));  // a second, larger write of the same card
        c->Save();
        ids.push_back(c->EntryID());
      }
      // The same session reads its own saves at once, written or not.
      auto again = byId(app, ids[7]);
      ASSERT_NE(again, nullptr);
      EXPECT_EQ(again->FileAs(), "Name 7");
      again->setFileAs("Name 7b");
      again->Save();
    });
  }
  EXPECT_TRUE(errors->errors.empty());
  auto other = open();
  for (const auto& id : ids) EXPECT_NE(byId(other, id), nullptr) << id;
  EXPECT_EQ(byId(other, ids[7])->FileAs(), "Name 7b");

  // A file that cannot be replaced (a folder took its name): the procedure reports it as it
  // returns, naming the file, and the next save fails on its own.
  auto c = saved(app, "Blocked");
  fs::path file = contactsDir() / (c->EntryID() + ".vcf");
  fs::remove(file);
  fs::create_directory(file);
  {
    ErrorFrame outer("Test.blocked");
    EXPECT_TRUE(outer.step([&] {
      c->setFileAs("Blocked 2");
      c->Save();
    }));
  }
  ASSERT_EQ(errors->errors.size(), 1u);
  EXPECT_EQ(errors->errorLocations[0], "Test.blocked");
  EXPECT_NE(errors->errors[0].description().find(file.string()), std::string::npos)
      << errors->errors[0].description();
  {
    ErrorFrame outer("Test.again");
    EXPECT_FALSE(outer.step([&] { c->Save(); }));
  }
  ASSERT_EQ(errors->errors.size(), 2u);
  EXPECT_EQ(errors->errorLocations[1], "Test.again");
  // Saves in and out of a procedure, written or failed, leave no temporary file behind.
  for (const auto& e : fs::directory_iterator(contactsDir())) {
    EXPECT_EQ(e.path().extension(), ".vcf") << e.path();
    EXPECT_NE(e.path().filename().string()[0], '.') << e.path();
  }
  resetApartment();
}

}  // namespace
}  // namespace dossync::vdir
