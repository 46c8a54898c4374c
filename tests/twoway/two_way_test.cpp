#include "twoway/two_way.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "core/apartment.h"
#include "core/synchronization.h"
#include "report/run_recorder.h"
#include "test_support.h"

namespace dossync {
namespace {

using outlook::ContactItemPtr;
using twoway::Settings;

class TwoWayTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    c().setShowProgress(false);
    c().setDataFileUniqueID("DF");
    c().setSchemeID(1);
    c().setOutlookCategory("Practice");
    c().setSyncDirectionType(syncBothsWays);
    errors().action = kActionResume;
    recorder->recordDone = [this](const report::RecordPlan& r) { actions.push_back(r.action); };
    c().setRunObserver(recorder);
  }
  // Runs both ways; every error the run reports fails the test.
  void run(Settings settings = {}, int32_t info = 1) {
    actions.clear();
    c().setSyncInformationType(info);
    twoway::enableBothWays(c(), settings);
    c().Synchronize();
    for (auto& e : errors().errors) ADD_FAILURE() << e.number() << " " << e.description();
    errors().errors.clear();
  }
  std::vector<ContactItemPtr> items() {
    c().StartOutlook();
    auto all = c().contactsFolder()->Items();
    std::vector<ContactItemPtr> out;
    for (int i = 1; i <= all->Count(); ++i)
      out.push_back(std::dynamic_pointer_cast<outlook::ContactItem>(all->Item(i)));
    return out;
  }
  ContactItemPtr item(const std::string& fileAs) {
    ContactItemPtr found;
    for (auto& i : items())
      if (i->FileAs() == fileAs) {
        EXPECT_EQ(found, nullptr) << "two items filed as " << fileAs;
        found = i;
      }
    EXPECT_NE(found, nullptr) << "no item filed as " << fileAs;
    return found;
  }
  ContactItemPtr put(const std::string& fileAs, const std::string& company,
                     const std::string& fullName) {
    c().StartOutlook();
    return testing::saveContact(*c().outlookApplication(), fileAs, [&](outlook::ContactItem& i) {
      i.setCompanyName(company);
      i.setFullName(fullName);
    });
  }
  int count(const std::string& table) {
    return std::stoi(one("SELECT COUNT(*) FROM " + table + ";"));
  }
  // A company with its default contact.
  void addAcme() {
    sql("INSERT INTO Companies (CompanyID, CompanyName, City, OfficeNumber) "
        "VALUES (1, 'Acme', 'Paris', '111');"
        "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, FirstName, LastName, "
        "DefaultContact, Gender, Birthday, HomePhone_Main) "
        "VALUES (10, 1, 'Ann Lee', 'Ann', 'Lee', 1, 'female', '1970-03-05', '555');");
  }
  std::shared_ptr<report::RunRecorder> recorder = std::make_shared<report::RunRecorder>();
  std::vector<std::string> actions;
};

TEST_F(TwoWayTest, ChangesOnEachSideMeetInOneRunAndAQuietRunWritesNothing) {
  addAcme();
  run();
  auto acme = item("Acme");
  ASSERT_NE(acme, nullptr);
  EXPECT_EQ(acme->BusinessAddressCity() + "|" + acme->FullName() + "|" +
                acme->HomeTelephoneNumber() + "|" + acme->Categories() + "|" +
                std::to_string(acme->Gender()),
            "Paris|Ann Lee|555|Practice|1");
  EXPECT_EQ(value::toText(acme->Birthday()), value::toText(value::Date{1970, 3, 5}));
  // State rows as earlier versions wrote them (the hashes in the base's text as well) are read.
  auto asEarlierVersions = [&] {
    testing::execSql(host->syncPath,
                     "UPDATE TwoWayPairs SET Base = substr(Base, 1, length(Base) - 1) || "
                     "',\"h\":\"' || substr(Hashes, 1, 16) || '\",\"i\":\"' || "
                     "substr(Hashes, 18, 16) || '\"}';");
  };
  asEarlierVersions();

  // The practice moves the company; the phone changes the contact's home number, her e-mail
  // and (by letter case alone) her last name.
  sql("UPDATE Companies SET City = 'Lyon' WHERE CompanyID = 1;");
  acme->setHomeTelephoneNumber("666");
  acme->setEmail2Address("ann@acme.test");
  acme->setLastName("LEE");
  acme->Save();
  run();
  acme = item("Acme");
  EXPECT_EQ(acme->BusinessAddressCity() + "|" + acme->HomeTelephoneNumber(), "Lyon|666");
  EXPECT_EQ(one("SELECT HomePhone_Main || '|' || BusinessEmail || '|' || LastName || '|' || "
                "Gender FROM Contacts WHERE ContactID = 10;"),
            "666|ann@acme.test|LEE|female");
  EXPECT_EQ(one("SELECT DefaultContactEmail FROM Companies WHERE CompanyID = 1;"), "ann@acme.test");
  EXPECT_EQ(actions, std::vector<std::string>{"update-both"});

  // Nothing changed: no host row or state row is written, and no card (which would be an
  // action other than nothing; no byte at all changes: twoway_cli_test's quiet run).
  asEarlierVersions();
  std::vector<std::string> writes;
  auto watch = [&](const std::string& call) {
    for (const char* w : {"writeField", "addNew", "saveNew", "deleteCurrent"})
      if (call.rfind(w, 0) == 0) writes.push_back(call);
    return false;
  };
  testing::installFaulty(apartment().hostDb, host->hostPath)->fails = watch;
  testing::installFaulty(apartment().syncDb, host->syncPath)->fails = watch;
  run();
  EXPECT_EQ(writes, std::vector<std::string>{});
  EXPECT_EQ(actions, std::vector<std::string>{"nothing"});
  EXPECT_EQ(items().size(), 1u);
  EXPECT_EQ(count("Companies") * 100 + count("Contacts"), 101);
}

TEST_F(TwoWayTest, TwoPeopleOfOneNameAtTwoCompaniesStayTwo) {
  sql("INSERT INTO Companies (CompanyID, CompanyName) VALUES (1, 'North'), (2, 'South');"
      "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, BusinessName, DefaultContact) "
      "VALUES (10, 1, 'John Smith', 'North', 1), (20, 2, 'John Smith', 'South', 1);");
  run({}, 7);
  ASSERT_EQ(items().size(), 2u);
  auto south = items()[0]->CompanyName() == "South" ? items()[0] : items()[1];
  south->setHomeTelephoneNumber("999");
  south->Save();
  for (int i = 0; i < 2; ++i) run({}, 7);
  EXPECT_EQ(items().size(), 2u);
  EXPECT_EQ(count("Contacts"), 2);
  EXPECT_EQ(one("SELECT GROUP_CONCAT(ContactID || ':' || IFNULL(HomePhone_Main, '')) FROM "
                "(SELECT * FROM Contacts ORDER BY ContactID);"),
            "10:,20:999");

  // A contact made on the phone joins the company named exactly as its CompanyName.
  put("Mary Major", "North", "Mary Major");
  put("Tom Tiny", "Nowhere Inc", "Tom Tiny");
  run({}, 7);
  run({}, 7);
  EXPECT_EQ(one("SELECT GROUP_CONCAT(DisplayName || '@' || CompanyNum) FROM "
                "(SELECT * FROM Contacts WHERE ContactID > 20 ORDER BY DisplayName);"),
            "Mary Major@1,Tom Tiny@3");
  EXPECT_EQ(one("SELECT CompanyName FROM Companies WHERE CompanyID = 3;"), "Nowhere Inc");
  EXPECT_EQ(items().size(), 4u);
}

TEST_F(TwoWayTest, AFailedRecordLeavesTheOthersAndIsMergedAgainByTheNextRun) {
  errors().action = kActionLeave;
  sql("INSERT INTO Companies (CompanyID, CompanyName, City) VALUES (1, 'One', 'a'), (2, 'Two', "
      "'b');");
  run();
  for (const char* name : {"One", "Two"}) {
    auto i = item(name);
    i->setBusinessAddressCity(std::string(name) + " city");
    i->Save();
  }
  // The first write of a city fails: that record is undone, the other one is merged.
  int calls = 0;
  apartment().hostDb = std::make_shared<testing::FaultyDataAccess>(
      apartment().hostDb,
      [&](const auto& what) { return what == "writeField City" && ++calls == 1; });
  c().Synchronize();
  EXPECT_EQ(errors().errors.size(), 1u);
  errors().errors.clear();
  EXPECT_EQ(c().counters().recordsFailed, 1);
  auto cities = [&] {
    return one("SELECT GROUP_CONCAT(City) FROM (SELECT City FROM Companies ORDER BY CompanyID);");
  };
  EXPECT_EQ(cities(), "a,Two city");
  run();
  EXPECT_EQ(cities(), "One city,Two city");
}

TEST_F(TwoWayTest, AGoneContactHalfTakesTheCompanysNewDefaultContact) {
  addAcme();
  run();
  sql("DELETE FROM Contacts WHERE ContactID = 10;"
      "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, DefaultContact, HomePhone_Main) "
      "VALUES (11, 1, 'Bo Chan', 1, '123');");
  run();
  auto acme = item("Acme");
  EXPECT_EQ(acme->FullName() + "|" + acme->HomeTelephoneNumber(), "Bo Chan|123");
  EXPECT_EQ(count("Contacts"), 1);
  run();
  EXPECT_EQ(actions, std::vector<std::string>{"nothing"});
  EXPECT_EQ(count("Contacts"), 1);
}

TEST_F(TwoWayTest, TheFirstRunAdoptsTheOneWayPairings) {
  addAcme();
  // Beta has no numbers of its own: the one-way run shows its default contact's.
  sql("INSERT INTO Companies (CompanyID, CompanyName) VALUES (2, 'Beta');"
      "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, DefaultContact, "
      "BusinessPhone_Main, BusinessWebSite) VALUES (20, 2, 'Bo Ek', 1, '222', 'bo.test');"
      "INSERT INTO Companies (CompanyID, CompanyName) VALUES (3, 'Gamma');");
  c().setSyncDirectionType(syncFromDossieraToOutlook);
  c().setSyncInformationType(1);
  for (const char* id : {"1", "2", "3"}) c().companyCollection()->add(id, "", "");
  c().Synchronize();
  ASSERT_EQ(items().size(), 3u);
  // A second pairing of Gamma, with a copy of its item: the copy is not adopted.
  auto copy = put("Gamma copy", "Gamma", "");
  testing::execSql(host->syncPath,
                   "INSERT INTO OutlookSync (SchemeNum, DataFileID, CompanyNum, OutlookID) "
                   "VALUES (1, 'DF', 3, '" +
                       copy->EntryID() + "');");
  // The item was renamed in the address book: no name finds it, its pairing does.
  auto acme = item("Acme");
  acme->setFileAs("ACME Ltd");
  acme->setBusinessAddressCity("");
  acme->setHomeAddressCity("Rome");
  acme->Save();
  c().setSyncDirectionType(syncBothsWays);
  run();
  EXPECT_EQ(items().size(), 4u);
  // Without a base, an empty side takes the other's value.
  EXPECT_EQ(item("ACME Ltd")->BusinessAddressCity(), "Paris");
  EXPECT_EQ(one("SELECT HomeCity FROM Contacts WHERE ContactID = 10;"), "Rome");
  // ... but the contact's numbers shown in the company's place stay where they are.
  EXPECT_EQ(one("SELECT coalesce(OfficeNumber, '') || '|' || coalesce(WebSite, '') "
                "FROM Companies WHERE CompanyID = 2;"),
            "|");
  EXPECT_EQ(item("Beta")->BusinessTelephoneNumber() + "|" + item("Beta")->WebPage(), "222|bo.test");
  EXPECT_EQ(std::count(actions.begin(), actions.end(), "update-company"), 0);
  // The copy, an item of no pair, is made a company of its own.
  EXPECT_EQ(one("SELECT COUNT(*) FROM Companies WHERE CompanyName = 'Gamma';"), "2");
  sql("UPDATE Companies SET OfficeNumber = '333' WHERE CompanyID = 2;");
  run();
  EXPECT_EQ(item("Beta")->BusinessTelephoneNumber(), "333");
}

// (State lost by a run killed before it was committed: crash_test's two-way rounds.)
TEST_F(TwoWayTest, ANewItemBecomesACompanyWithThePersonAsItsDefaultContact) {
  auto zed = put("Park, Zoe", "Zed Corp", "Zoe Park");
  zed->setHomeAddressCity("Bern");
  zed->setGender(outlook::olFemale);
  zed->Save();
  run();
  EXPECT_EQ(one("SELECT c.DisplayName || '|' || c.HomeCity || '|' || c.Gender || '|' || "
                "co.DefaultContactName FROM Contacts c JOIN Companies co "
                "ON co.CompanyID = c.CompanyNum WHERE co.CompanyName = 'Zed Corp';"),
            "Zoe Park|Bern|Female|Zoe Park");
}

}  // namespace
}  // namespace dossync
