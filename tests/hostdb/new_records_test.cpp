#include "hostdb/new_records.h"

#include <gtest/gtest.h>

#include "core/apartment.h"
#include "hostdb/lookups.h"
#include "test_support.h"

namespace dossync::hostdb {
namespace {

using Row = std::vector<std::string>;

// The detail tables each new entry gets a row in, keyed by "<table>ID".
const char* const kDetailTables[] = {"AccountingServices", "ClientOptions", "ClientNotes",
                                     "CorpTaxInfo",        "LawInfo",       "OtherInfo",
                                     "SoftwareInfo",       "WSIB_EHTInfo"};

class NewRecordsTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // Keys of the companies and of the clients far apart, so that one is not taken for the other.
    sql("INSERT INTO Categories (CategoryID, CategoryName) VALUES (7, 'Clients');"
        "INSERT INTO Companies (CompanyID, CompanyName) VALUES (40, 'Acme'),"
        "(41, 'Held');"
        "INSERT INTO ClientData (ClientDataID, CompanyIDNum) VALUES (500, 40);"
        "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, DefaultContact) "
        "VALUES (60, 41, 'Dee', 1);");
  }
  // Prefix|First|Middle|Last|Display|Category|Company|BusinessName|Inherit|Default
  std::string person(int32_t id) {
    return one(
        "SELECT ifnull(NamePrefix, '') || '|' || ifnull(FirstName, '') || '|' || "
        "ifnull(MiddleName, '') || '|' || ifnull(LastName, '') || '|' || DisplayName || '|' || "
        "ifnull(CategoryNum, '') || '|' || ifnull(CompanyNum, '') || '|' || "
        "ifnull(BusinessName, '') || '|' || InheritCompanyInfo || '|' || DefaultContact "
        "FROM Contacts WHERE ContactID = " +
        std::to_string(id) + ";");
  }
};

TEST_F(NewRecordsTest, NewEntryIsACompanyInTheHostCategoryWithItsClientAndDetailRows) {
  sql("INSERT INTO HostCategory (CategoryNum, CategoryName) VALUES (7, 'C');");
  int32_t clientID = addNewEntry();
  EXPECT_EQ(clientID, 501);
  EXPECT_EQ(getCompanyIDFromClientDataID(clientID), 42);
  EXPECT_EQ(one("SELECT '[' || CompanyName || ']' || CategoryNum FROM Companies "
                "WHERE CompanyID = 42;"),
            "[]7");
  for (std::string table : kDetailTables)
    EXPECT_EQ(rows("SELECT " + table + "ID FROM " + table + ";"), (Row{"501"})) << table;

  EXPECT_EQ(addNewEntry(), 502);  // each entry gets its own rows
  EXPECT_EQ(rows("SELECT WSIB_EHTInfoID FROM WSIB_EHTInfo ORDER BY 1;"), (Row{"501", "502"}));
  EXPECT_TRUE(errors().errors.empty());
}

// The call that makes the host's category answers 0; later ones answer the category, made once.
TEST_F(NewRecordsTest, NewEntryCreatingTheHostCategoryFilesTheCompanyUnderZero) {
  addNewEntry();
  EXPECT_EQ(one("SELECT CategoryNum FROM Companies WHERE CompanyID = 42;"), "0");
  EXPECT_EQ(rows("SELECT CategoryNum || '|' || CategoryName FROM HostCategory;"),
            (Row{"8|Dossiera clients"}));
  EXPECT_EQ(getAddressBookDossieraCategory(), 8);
  EXPECT_EQ(getAddressBookCategoryName(), "Dossiera clients");
  EXPECT_EQ(one("SELECT group_concat(CategoryID) FROM Categories "
                "WHERE CategoryName = 'Dossiera clients';"),
            "8");
}

TEST_F(NewRecordsTest, PersonInACompanyInheritsItAndBecomesItsFirstDefault) {
  int32_t id = addPersonnel("Dr. Jane Smith", 7, 40);
  EXPECT_EQ(id, 61);
  EXPECT_EQ(person(id), "Dr.|Jane||Smith|Dr. Jane Smith|7|40|Acme|1|1");
  EXPECT_EQ(one("SELECT DefaultContactName FROM Companies WHERE CompanyID = 40;"),
            "Dr. Jane Smith");
  EXPECT_NE(one("SELECT BusinessNotes FROM Contacts WHERE ContactID = 61;")
                .find("Name:\\b0  Dr. Jane Smith"),
            std::string::npos);

  // Later people of a company with a default do not take it over.
  EXPECT_EQ(person(addPersonnel("Ed", std::nullopt, 41)), "|Ed|||Ed||41|Held|1|0");
  EXPECT_EQ(person(60), "||||Dee||41||0|1");
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(NewRecordsTest, PersonOfNoKnownCompanyOrOfNoName) {
  // An unknown company still lands in CompanyNum, without name or inheritance; being the only
  // contact of that number, the person is still made its default. A blank name adds no one.
  EXPECT_EQ(person(addPersonnel("Fay", std::nullopt, 99)), "|Fay|||Fay||99||0|1");
  EXPECT_EQ(addPersonnel("", 7, 40), -1);
  EXPECT_EQ(one("SELECT count(*) FROM Companies;"), "2");
  EXPECT_EQ(person(addPersonnel("Gus")), "|Gus|||Gus||||0|0");
  EXPECT_TRUE(errors().errors.empty());
}

TEST(NameSplitting, TitlesFirstMiddleAndTheRestAsTheLastName) {
  // "prefix|first|middle|last"; the display name is always the whole name.
  for (auto [name, want] : std::vector<std::pair<std::string, std::string>>{
           {"", "|||"},
           {"Cher", "|Cher||"},
           {"Jane Smith", "|Jane||Smith"},
           {"John Paul van Dyke", "|John|Paul|van Dyke"},
           // Titles in any case, with or without a full stop; the stored words keep theirs
           // ("Dr. Jane Smith": PersonInACompanyInheritsItAndBecomesItsFirstDefault).
           {"mrs Ann", "mrs|||Ann"},
           {"MLLE. Anne Marie Roy", "MLLE.|Anne|Marie|Roy"},
           {"Sir", "Sir|||"},
           // SIR has no full-stop form, and a title needs the exact word.
           {"Sir. Ian", "|Sir.||Ian"},
           {"Drew Barry", "|Drew||Barry"},
           // Only single blanks cut: an empty word between two blanks counts as a word.
           {"Jane  Smith", "|Jane||Smith"}}) {
    PersonName got = splitPersonName(name);
    EXPECT_EQ(got.namePrefix + "|" + got.firstName + "|" + got.middleName + "|" + got.lastName,
              want)
        << name;
    EXPECT_EQ(got.displayName, name);
  }
}

}  // namespace
}  // namespace dossync::hostdb
