#include <gtest/gtest.h>

#include "core/apartment.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

class TransferTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    sql("INSERT INTO Companies (CompanyID, CompanyName, Address, City, Province, PostalCode, "
        "Country, OfficeNumber, FaxNumber, Email, WebSite) VALUES "
        "(1, 'Acme Inc.', '1 Main St', 'Ottawa', 'ON', 'K1A 0B1', 'Canada', '613-555-0100', "
        "'613-555-0199', 'info@acme.ca', 'acme.ca'),"
        "(2, 'Bare Co.', '', '', '', '', '', '', '', '', '');"
        "INSERT INTO Contacts (ContactID, CompanyNum, DefaultContact, InheritCompanyInfo, "
        "NamePrefix, FirstName, LastName, DisplayName, Gender, Birthday, PersonalEmail, "
        "BusinessEmail, BusinessName, BusinessPhone_Main, BusinessPhone_Fax, BusinessPhone_Cell, "
        "BusinessWebSite, BusinessAddress, BusinessCity, HomePhone_Cell) VALUES "
        "(10, 1, 0, 1, 'Mr.', 'Al', 'Smith', 'Al Smith', 'male', '1970-03-05', 'al@home', "
        "'al@acme', 'Acme Inc.', '', '', '555-CELL', 'al.example', 'Own St', 'Own City', 'hc'),"
        "(11, 1, 1, 0, 'Dr.', 'Bea', 'Jones', 'Bea Jones', 'FEMALE', NULL, 'bea@home', "
        "'bea@acme', 'Acme Inc.', '555-BEA', '', '', 'bea.example', '9 Side St', 'Kanata', ''),"
        "(12, 1, 1, 0, '', 'Cy', 'Second', 'Cy Second', 'M', NULL, '', '', 'Acme Inc.', '', '', "
        "'', '', '', '', ''),"
        "(13, 2, 1, 0, '', 'Di', 'Bare', 'Di Bare', '', NULL, '', '', 'Bare Co.', "
        "'555-DI', '', '', 'di.example', '', '', '');");
    c().setShowProgress(false);
    c().StartOutlook();
  }
  outlook::ContactItemPtr item(const std::string& entryID) {
    return std::dynamic_pointer_cast<outlook::ContactItem>(
        c().outlookNameSpace()->GetItemFromID(entryID, c().contactsFolder()->StoreID()));
  }
  std::string existing(const std::function<void(outlook::ContactItem&)>& fill) {
    return testing::saveContact(*c().outlookApplication(), "", fill)->EntryID();
  }
};

std::string join(std::initializer_list<std::string> parts) {
  std::string out;
  for (const std::string& p : parts) out += (out.empty() ? "" : "|") + p;
  return out;
}

TEST_F(TransferTest, CompanyWithDefaultContact) {
  auto i = item(c().createNewDossieraCompanyWithDefaultContactInOutlook(1, ""));
  ASSERT_NE(i, nullptr);
  // The first contact marked default; the company's number, site and address win.
  EXPECT_EQ(join({i->FileAs(), i->Categories(), i->FullName(), i->Title(),
                  i->BusinessTelephoneNumber(), i->WebPage(), i->Email1Address(),
                  i->Email2Address(), i->Email3Address(), i->BusinessAddressCity()}),
            "Acme Inc.|Business|Bea Jones|Dr.|613-555-0100|acme.ca|info@acme.ca|bea@acme|"
            "bea@home|Ottawa");
  EXPECT_EQ(i->Gender(), outlook::olFemale);
  // A company without its own number takes the default contact's.
  auto bare = item(c().createNewDossieraCompanyWithDefaultContactInOutlook(2, ""));
  EXPECT_EQ(bare->BusinessTelephoneNumber() + "|" + bare->WebPage(), "555-DI|di.example");
  EXPECT_TRUE(errors().errors.empty());
  // A birthday that is no date is reported; with the leave action nothing is saved.
  sql("UPDATE Contacts SET Birthday = 'not a date' WHERE ContactID = 13;");
  int before = c().contactsFolder()->Items()->Count();
  EXPECT_EQ(c().createNewDossieraCompanyWithDefaultContactInOutlook(2, ""), "-1");
  EXPECT_EQ(c().contactsFolder()->Items()->Count(), before);
  ASSERT_EQ(errors().errors.size(), 1u);
  EXPECT_EQ(errors().errors[0].number(), kTypeMismatch);
}

TEST_F(TransferTest, UpdatingInPlaceReplacesCategoriesAndKeepsWhatItDoesNotWrite) {
  std::string id = existing([](outlook::ContactItem& i) {
    i.setCategories("VIP, Golf");
    i.setBody("notes");
    i.setMobileTelephoneNumber("555-MOBILE");
    i.setFirstName("Person");
    i.setEmail1Address("old@x");
  });
  c().setOutlookCategory("Clients");
  EXPECT_EQ(c().createNewDossieraCompanyInOutlook(2, id), id);
  auto i = item(id);
  // Names are not the company transfer's; an empty host value clears the property.
  EXPECT_EQ(join({i->Categories(), i->Body(), i->MobileTelephoneNumber(), i->FirstName(),
                  i->FileAs(), i->Email1Address()}),
            "Clients|notes|555-MOBILE|Person|Bare Co.|");
}

TEST_F(TransferTest, NothingIsSavedForAnUnknownRecordOrAClosedDatabase) {
  int before = c().contactsFolder()->Items()->Count();
  EXPECT_EQ(c().createNewDossieraCompanyInOutlook(99, ""), "-1");
  EXPECT_EQ(c().createNewDossieraCompanyWithDefaultContactInOutlook(-1, ""), "-1");
  EXPECT_EQ(c().createNewDossieraContactInOutlook(99, ""), "-1");
  EXPECT_EQ(c().contactsFolder()->Items()->Count(), before);
  // An entry id that no longer resolves gets a new item.
  auto id = c().createNewDossieraCompanyInOutlook(1, "gone");
  EXPECT_NE(id, "gone");
  EXPECT_NE(item(id), nullptr);
}

TEST_F(TransferTest, ContactWithInheritedCompanyAddressAndFallBackNumbers) {
  std::string id = existing([](outlook::ContactItem& i) {
    i.setBirthday(value::Date{1960, 1, 1});
    i.setBusinessAddressStreet("old street");
  });
  EXPECT_EQ(c().createNewDossieraContactInOutlook(10, id), id);
  auto i = item(id);
  // The address is inherited from Acme, and so are the numbers the contact leaves blank.
  EXPECT_EQ(
      join({i->BusinessAddressStreet(), i->BusinessAddressCountry(), i->BusinessTelephoneNumber(),
            i->BusinessFaxNumber(), i->Business2TelephoneNumber(), i->Home2TelephoneNumber(),
            i->Email1Address(), i->Email2Address(), i->Categories()}),
      "1 Main St|Canada|613-555-0100|613-555-0199|555-CELL|hc|al@acme|al@home|Business");
  EXPECT_EQ(i->Gender(), outlook::olMale);  // "male" in any case
  EXPECT_EQ(i->Birthday(), (value::Date{1970, 3, 5}));

  // Not inherited: the contact's own address, and empty numbers clear Outlook's.
  std::string dated = existing([](outlook::ContactItem& i) {
    i.setBirthday(value::Date{1960, 1, 1});
    i.setAnniversary(value::Date{1990, 6, 2});
    i.setBusinessFaxNumber("old fax");
    i.setGender(outlook::olFemale);
  });
  auto own = item(c().createNewDossieraContactInOutlook(11, dated));
  EXPECT_EQ(join({own->BusinessAddressStreet(), own->BusinessTelephoneNumber(),
                  own->BusinessFaxNumber()}),
            "9 Side St|555-BEA|");
  EXPECT_EQ(own->Birthday(), (value::Date{1960, 1, 1}));  // blank dates leave Outlook's
  EXPECT_EQ(own->Anniversary(), (value::Date{1990, 6, 2}));
  // "M" is no gender: it is written as unspecified over Outlook's.
  EXPECT_EQ(item(c().createNewDossieraContactInOutlook(12, dated))->Gender(),
            outlook::olUnspecified);
}

TEST_F(TransferTest, ResumingAfterAFailedReadGoesOnWithTheNextStatement) {
  errors().action = kActionResume;
  auto db = testing::installFaulty(apartment().hostDb, host->hostPath);
  // An inherited address stays inherited around the company field that failed.
  db->fails = [](const std::string& call) { return call == "readField Province"; };
  std::string id = existing([](outlook::ContactItem& i) { i.setBusinessAddressStreet("old"); });
  EXPECT_EQ(c().createNewDossieraContactInOutlook(10, id), id);
  auto i = item(id);
  EXPECT_EQ(join({i->BusinessAddressStreet(), i->BusinessAddressCity(), i->BusinessAddressCountry(),
                  i->BusinessFaxNumber()}),
            "1 Main St|Ottawa|Canada|613-555-0199");
  // The search for the default contact passes over a mark it cannot read.
  int reads = 0;
  db->fails = [&](const std::string& call) {
    return call == "readField DefaultContact" && ++reads == 1;
  };
  auto company = item(c().createNewDossieraCompanyWithDefaultContactInOutlook(1, ""));
  ASSERT_NE(company, nullptr);
  EXPECT_EQ(company->FullName(), "Bea Jones");
  EXPECT_EQ(errors().errors.size(), 2u);
}

TEST_F(TransferTest, FileAsFollowsTheContactOnlyTypesAndBlankInheritedNumbersKeepOutlooks) {
  c().setSyncInformationType(contactOnlyShowContactName);
  EXPECT_EQ(item(c().createNewDossieraContactInOutlook(11, ""))->FileAs(), "Bea Jones");
  c().setSyncInformationType(contactOnlyShowCompanyName);
  EXPECT_EQ(item(c().createNewDossieraContactInOutlook(11, ""))->FileAs(), "Acme Inc.");
  c().setSyncInformationType(7);  // the driver's value: Outlook's own file-as name
  EXPECT_EQ(item(c().createNewDossieraContactInOutlook(11, ""))->FileAs(), "Jones, Bea");
  // A blank number inherited from the company leaves Outlook's value.
  sql("UPDATE Companies SET OfficeNumber = '' WHERE CompanyID = 1;");
  std::string id = existing([](outlook::ContactItem& i) { i.setBusinessTelephoneNumber("keep"); });
  c().createNewDossieraContactInOutlook(10, id);
  EXPECT_EQ(item(id)->BusinessTelephoneNumber(), "keep");
}

// Outlook -> host: one item becomes a company with a contact of that company.
class OutlookToHostTest : public TransferTest {
 protected:
  void SetUp() override {
    TransferTest::SetUp();
    jane = existing([](outlook::ContactItem& i) {
      i.setFullName("Jane Jones");
      i.setFirstName("Jane");
      i.setCompanyName("Jones Ltd");
    });
  }
  // Runs the transfer with RefreshData cleared first; it must be set again whatever happens.
  int32_t transfer(const std::string& entryID, int32_t companyID) {
    c().setRefreshData(false);
    int32_t result = c().createNewOutlookCompanyWithDefaultContactInDossiera(entryID, companyID);
    EXPECT_TRUE(c().RefreshData());
    return result;
  }
  std::string jane;  // an Outlook contact of "Jones Ltd"
};

TEST_F(OutlookToHostTest, NothingToTransferAnswersZeroAndWritesNothing) {
  std::string before = one("SELECT group_concat(CompanyName) FROM Companies;") +
                       one("SELECT count(*) FROM Contacts;");
  EXPECT_EQ(transfer("", 1), 0);
  EXPECT_EQ(transfer("no such item", 1), 0);
  auto hostDb = apartment().hostDb;
  apartment().hostDb = nullptr;  // the host database is not open
  EXPECT_EQ(transfer(jane, 1), 0);
  apartment().hostDb = hostDb;
  EXPECT_EQ(one("SELECT group_concat(CompanyName) FROM Companies;") +
                one("SELECT count(*) FROM Contacts;"),
            before);
  EXPECT_TRUE(errors().errors.empty());
}

// The result is the company that now holds the item: the one given, or a new client record
// when that company no longer exists, even beside a company of the same name. (A company given
// as -1: sync_cli_test's Outlook to host.)
TEST_F(OutlookToHostTest, TheResultIsTheCompanyThatNowHoldsTheItem) {
  EXPECT_EQ(transfer(jane, 1), 1);
  const std::string made = std::to_string(transfer(jane, 99));
  EXPECT_EQ(made, one("SELECT max(CompanyID) FROM Companies;"));
  EXPECT_EQ(rows("SELECT CompanyIDNum FROM ClientData;"), std::vector<std::string>{made});
  EXPECT_EQ(rows("SELECT CompanyID || '|' || CompanyName FROM Companies WHERE CompanyName = "
                 "'Jones Ltd' ORDER BY CompanyID;"),
            (std::vector<std::string>{"1|Jones Ltd", made + "|Jones Ltd"}));
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(OutlookToHostTest, GenderAndDatesOutlookDoesNotHaveLeaveTheHostsValue) {
  c().saveOutlookContactID(jane, 10);  // paired: contact 10 is updated in place
  struct Row {
    int32_t gender;
    value::Date date;  // birthday and anniversary
    const char* wantGender;
    const char* wantDate;
  } rows[] = {
      {outlook::olUnspecified, outlook::kNoDate, "male", "1970-03-05"},
      {outlook::olFemale, value::Date{1981, 2, 3}, "Female", "1981-02-03"},
      {outlook::olMale, outlook::kNoDate, "Male", "1970-03-05"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.wantGender);
    sql("UPDATE Contacts SET Gender = 'male', Birthday = '1970-03-05', "
        "Anniversary = '1970-03-05', FirstName = '' WHERE ContactID = 10;");
    auto i = item(jane);
    i->setGender(row.gender);
    i->setBirthday(row.date);
    i->setAnniversary(row.date);
    i->Save();
    transfer(jane, 1);
    EXPECT_EQ(one("SELECT FirstName || '|' || Gender || '|' || Birthday || '|' || Anniversary "
                  "FROM Contacts WHERE ContactID = 10;"),
              std::string("Jane|") + row.wantGender + "|" + row.wantDate + "|" + row.wantDate);
  }
  EXPECT_EQ(one("SELECT count(*) FROM Contacts;"), "4");
  EXPECT_TRUE(errors().errors.empty());
}

}  // namespace
}  // namespace dossync
