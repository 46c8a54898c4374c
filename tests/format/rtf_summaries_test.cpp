#include "format/rtf_summaries.h"

#include <gtest/gtest.h>

#include "core/apartment.h"
#include "test_support.h"

namespace dossync::format {
namespace {

// A golden summary, byte for byte (a mismatch prints both with their CRs shown as \r).
std::string golden(const std::string& name) {
  std::string text =
      testing::readFile(std::string(DOSSYNC_SOURCE_DIR) + "/tests/format/golden/" + name);
  EXPECT_FALSE(text.empty()) << "golden file " << name << " missing";
  return text;
}

using SummaryTest = testing::HostTest;

TEST_F(SummaryTest, ContactWithEveryGroupAndValuesStoredUnescaped) {
  sql("INSERT INTO CustomAddressFields (ContactLabel1, ContactLabel2, ContactLabel3) VALUES "
      "('Favourite colour', 'Unused', 'Meeting day');"
      "INSERT INTO Contacts (ContactID, DefaultContact, DisplayName, BusinessName, "
      "BusinessJobTitle, BusinessDepartment, BusinessOffice, BusinessPhone_Main, "
      "BusinessPhone_Cell, BusinessPhone_Fax, BusinessPhone_Pager, BusinessEmail, BusinessWebSite, "
      "BusinessAddress, BusinessCity, BusinessProvince, BusinessPostalCode, BusinessCountry, "
      "SocialInsuranceNumber, EmployeeType, Custom1, Custom3, Notes) VALUES (5, 1, 'Jane Q. "
      "Smith', "
      "'Acme Holdings Ltd.', 'Controller', 'Finance', 'Head Office', '613-555-0100', "
      "'613-555-0101', '613-555-0102', '613-555-0103', 'jane@acme.example', 'www.acme.example', "
      "'100 Main Street', 'Ottawa', 'ON', 'K1A 0B1', 'Canada', '046 454 286', 'Full time', 'Blue', "
      "'Tuesday', 'First line' || char(13, 10) || 'Second line' || char(13, 10, 13, 10) || "
      "'After a blank line');");
  // Values are stored unescaped.
  sql("INSERT INTO Contacts (ContactID, DisplayName, Notes) VALUES "
      "(12, 'Brace {Inc} \\ Co', 'C:\\temp\\{draft}');");
  for (auto [id, file] : {std::pair{5, "full_contact.rtf"}, {12, "unescaped_values.rtf"}}) {
    SCOPED_TRACE(file);
    std::string text = saveContactBusinessRTF(id);
    EXPECT_EQ(text, golden(file));
    EXPECT_EQ(one("SELECT BusinessNotes FROM Contacts WHERE ContactID = " + std::to_string(id)),
              text);
  }
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(SummaryTest, InheritedCompanyAddressReplacesTheContactsOwn) {
  sql("INSERT INTO Companies (CompanyID, CompanyName, Address, City, Province, PostalCode, "
      "Country) VALUES (3, 'Wu Trading', '1 Bay Street' || char(13, 10) || 'Suite 200', "
      "'Toronto', 'ON', 'M5J 2N8', 'CANADA');"
      "INSERT INTO Contacts (ContactID, CompanyNum, DefaultContact, InheritCompanyInfo, "
      "DisplayName, BusinessAddress, BusinessCity, BusinessCountry) VALUES (7, 3, 1, 1, 'Sam Wu', "
      "'9 Elm Road', 'Kingston', 'Jamaica');");
  EXPECT_EQ(saveContactBusinessRTF(7), golden("inherited_address.rtf"));
  // Inheriting from a company that is not there falls back to the contact's own address.
  sql("INSERT INTO Contacts (ContactID, CompanyNum, InheritCompanyInfo, DisplayName, "
      "BusinessAddress) VALUES (8, 99, 1, 'Lost', 'Own Street'), (9, NULL, 1, 'Free', 'Own "
      "Lane');");
  EXPECT_EQ(createBusinessContactAddress(8, true), "Lost\\par \r\nOwn Street\\par \r\n");
  EXPECT_EQ(createBusinessContactAddress(9, true), "Free\\par \r\nOwn Lane\\par \r\n");
  EXPECT_EQ(createBusinessContactAddress(404, true), "");
}

TEST_F(SummaryTest, OnlyForeignCountriesGetACountryLine) {
  sql("INSERT INTO Contacts (ContactID, DisplayName, BusinessName, BusinessAddress, BusinessCity, "
      "BusinessPostalCode, BusinessCountry) VALUES (10, 'Hans Muller', 'Muller GmbH', "
      "'Hauptstrasse 5', 'Berlin', '10115', 'Germany');");
  EXPECT_EQ(saveContactBusinessRTF(10), golden("foreign_country.rtf"));
  for (std::string country : {"Canada", "canada", "CANADA", "ca", "Can", "cDa"}) {
    SCOPED_TRACE(country);
    sql("DELETE FROM Contacts; INSERT INTO Contacts (ContactID, DisplayName, BusinessAddress, "
        "BusinessCity, BusinessProvince, BusinessPostalCode, BusinessCountry) VALUES (11, "
        "'Lou Tremblay', '12 Rue Principale', 'Gatineau', 'QC', 'J8X 1A1', '" +
        country + "');");
    EXPECT_EQ(saveContactBusinessRTF(11), golden("domestic_country.rtf"));
  }
  // Words that merely contain a domestic word are foreign.
  AddressParts parts{"", "", "", "Niagara", "", "", "Canadas"};
  EXPECT_EQ(createAddress(parts, true, true), "Niagara\\par \r\nCanadas");
}

TEST_F(SummaryTest, NameOnlyAndNoDefaultSummariesOfACompany) {
  sql("INSERT INTO Companies (CompanyID, CompanyName, ContactNotes) VALUES (1, 'Co', 'old');"
      "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName) VALUES (6, 1, 'Pat Lee');");
  EXPECT_EQ(saveNoDefaultComment(), golden("no_default.rtf"));

  saveCompanyContactRTF(1, 6);  // a contact with only a name
  EXPECT_EQ(one("SELECT ContactNotes FROM Companies;"), golden("name_only.rtf"));
  EXPECT_EQ(one("SELECT BusinessNotes FROM Contacts;"), golden("name_only.rtf"));

  saveCompanyContactRTF(1, -7);  // any negative contact means no default
  EXPECT_EQ(one("SELECT ContactNotes FROM Companies;"), golden("no_default.rtf"));

  // A contact that does not exist leaves an empty summary behind.
  saveCompanyContactRTF(1, 0);
  EXPECT_EQ(one("SELECT ContactNotes FROM Companies;"), "");

  // An unknown company is left alone.
  saveCompanyContactRTF(2, -1);
  EXPECT_EQ(one("SELECT count(*) FROM Companies;"), "1");
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(SummaryTest, AddressBlockLayout) {
  AddressParts full{"Acme", "Jane", "1 Main St", "Ottawa", "ON", "K1A 0B1", "France"};
  EXPECT_EQ(createAddress(full, true, true),
            "Acme\\par \r\n1 Main St\\par \r\nOttawa, ON  K1A 0B1\\par \r\nFrance");
  // The display name stands in only for a missing business name, and only when asked for.
  AddressParts noBusiness{"", "Jane", "1 Main St", "", "", "", ""};
  EXPECT_EQ(createAddress(noBusiness, true, true), "Jane\\par \r\n1 Main St\\par \r\n");
  EXPECT_EQ(createAddress(noBusiness, false, true), "1 Main St\\par \r\n");
  // Separators only between parts that are there; none at all without separators.
  EXPECT_EQ(createAddress({"", "", "", "", "ON", "K1A 0B1", ""}, true, true), "ON  K1A 0B1");
  EXPECT_EQ(createAddress({"", "", "", "Ottawa", "", "K1A 0B1", ""}, true, true),
            "Ottawa  K1A 0B1");
  EXPECT_EQ(createAddress({"", "", "", "Ottawa", "ON", "K1A", ""}, true, false), "OttawaONK1A");
  // Names alone make no address.
  EXPECT_EQ(createAddress({"Acme", "Jane", "", "", "", "", ""}, true, true), "");
  // A foreign country alone still gets its line after the empty locality.
  EXPECT_EQ(createAddress({"", "", "", "", "", "", "Peru"}, true, true), "\\par \r\nPeru");
  // Only CR LF pairs become paragraph ends.
  EXPECT_EQ(convertToRTF("a\r\nlone\nfeed\r"), "a\\par \r\nlone\nfeed\r");
}

TEST_F(SummaryTest, MissingContactOrClosedDatabaseWritesNothing) {
  sql("INSERT INTO Contacts (ContactID, DisplayName, BusinessNotes) VALUES (6, 'Pat Lee', 'keep');"
      "INSERT INTO Companies (CompanyID, ContactNotes) VALUES (1, 'keep');");
  EXPECT_EQ(saveContactBusinessRTF(404), "");
  EXPECT_TRUE(validContactID(6));
  EXPECT_FALSE(validCompanyID(0));

  apartment().hostDb->closeDatabase();
  EXPECT_EQ(saveContactBusinessRTF(6), "");
  saveCompanyContactRTF(1, -1);
  EXPECT_FALSE(validContactID(6));
  EXPECT_EQ(one("SELECT BusinessNotes FROM Contacts;"), "keep");
  EXPECT_EQ(one("SELECT ContactNotes FROM Companies;"), "keep");
  EXPECT_TRUE(errors().errors.empty());
}

}  // namespace
}  // namespace dossync::format
