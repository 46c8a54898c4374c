#include "hostdb/lookups.h"

#include <gtest/gtest.h>

#include "core/apartment.h"
#include "hostdb/default_contacts.h"
#include "hostdb/new_records.h"
#include "test_support.h"

namespace dossync::hostdb {
namespace {

class LookupsTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // Categories: 1 Clients > 2 Corporations > 3 Holding; 4 Suppliers (top level).
    sql("INSERT INTO Categories (CategoryID, CategoryName, CategoryNum) VALUES "
        "(1, 'Clients', NULL), (2, 'Corporations', 1), (3, 'Holding', 2), "
        "(4, 'Suppliers', NULL);"
        "INSERT INTO Companies (CompanyID, CompanyName, CategoryNum, CompanyNum) VALUES "
        "(10, 'Acme', 3, NULL), (11, 'Acme East', NULL, 10), (12, 'Loose', NULL, NULL),"
        "(13, 'Supplier Co', 4, 10);"
        "INSERT INTO ClientData (ClientDataID, CompanyIDNum) VALUES (100, 10), (101, 11);"
        "INSERT INTO Contacts (ContactID, CompanyNum, CategoryNum, DisplayName, "
        "DefaultContact) VALUES (20, 10, NULL, 'Ann', 0), (21, 10, NULL, 'Bob', 1),"
        "(22, 11, NULL, 'Cy', 0), (23, NULL, 4, 'Dee', 0), (24, 10, 4, 'Eve', 1),"
        "(25, NULL, NULL, 'Fay', 0);");
  }
};

TEST_F(LookupsTest, KeyLookUpsExistenceTestsAndBlankKeys) {
  EXPECT_EQ(getCompanyIDFromContactID(22), 11);
  EXPECT_EQ(getCompanyIDFromContactID(99), -1);
  EXPECT_EQ(getCompanyIDFromClientDataID(101), 11);
  EXPECT_EQ(getClientDataIDFromContactID(20), 100);
  EXPECT_EQ(getDefaultContactIDFromCompanyID(10), 21);  // the first default in table order
  EXPECT_EQ(getDefaultContactIDFromCompanyID(11), -1);
  EXPECT_EQ(getCompanyNameFromCompanyID(13), "Supplier Co");
  EXPECT_EQ(getCompanyNameFromCompanyID(99), "");
  // Contact names are looked for in the companies table, which has no ContactID column.
  EXPECT_EQ(getContactNameFromContactID(20), "");
  EXPECT_TRUE(validCompanyID(10) && validContactID(25) && validCategoryID(4));
  EXPECT_FALSE(validCompanyID(99) || validCompanyID(0) || validCompanyID(-1) || validCategoryID(5));
  EXPECT_TRUE(errors().errors.empty());
  // A blank key is a type mismatch, and the look-up answers its initial result.
  sql("INSERT INTO ClientData (ClientDataID, CompanyIDNum) VALUES (102, NULL);");
  EXPECT_EQ(getCompanyIDFromContactID(23), -1);  // a contact of no company
  EXPECT_EQ(getCompanyIDFromClientDataID(102), -1);
  ASSERT_EQ(errors().errors.size(), 2u);
  for (const auto& e : errors().errors) EXPECT_EQ(e.number(), kTypeMismatch);
}

TEST_F(LookupsTest, CategoryMembershipAndACycle) {
  int32_t clients = 1, corporations = 2, suppliers = 4, missing = 77;
  EXPECT_TRUE(doesThisCategoryBelongToCategory(3, clients));
  EXPECT_FALSE(doesThisCategoryBelongToCategory(1, corporations));
  EXPECT_TRUE(doesThisCategoryBelongToCategory(77, missing));  // itself, even when absent
  EXPECT_FALSE(doesThisCategoryBelongToCategory(4, clients));
  // A company without category belongs where the company it is an associate of belongs; one
  // with its own category is judged by that alone.
  EXPECT_TRUE(doesThisCompanyBelongToCategory(11, clients));
  EXPECT_FALSE(doesThisCompanyBelongToCategory(13, clients));
  EXPECT_FALSE(doesThisCompanyBelongToCategory(12, clients));
  // Contacts likewise, through their own category or their company.
  EXPECT_TRUE(doesThisContactBelongToCategory(22, clients));
  EXPECT_TRUE(doesThisContactBelongToCategory(23, suppliers));
  EXPECT_FALSE(doesThisContactBelongToCategory(24, clients));
  // A cycle in the category tree is reported, not followed for ever.
  sql("UPDATE Categories SET CategoryNum = 3 WHERE CategoryID = 1;");
  EXPECT_TRUE(errors().errors.empty());
  EXPECT_FALSE(doesThisCategoryBelongToCategory(3, suppliers));
  EXPECT_FALSE(errors().errors.empty());
}

TEST_F(LookupsTest, CategoryNameWithAnEmptyHostCategoryReusesAnExistingCategory) {
  sql("INSERT INTO Categories (CategoryID, CategoryName) VALUES (9, 'Dossiera clients');");
  EXPECT_EQ(getAddressBookCategoryName(), "Dossiera clients");
  EXPECT_EQ(rows("SELECT CategoryNum FROM HostCategory;")[0], "9");
  EXPECT_EQ(createNewHostCategory("Imported"), 0);
  EXPECT_EQ(rows("SELECT CategoryName FROM HostCategory;"), (std::vector<std::string>{"Imported"}));
}

// With the database closed, the look-ups, new records and default contacts answer their initial
// results, report nothing and leave the file as it was.
TEST_F(LookupsTest, AClosedDatabaseAnswersTheInitialResults) {
  apartment().hostDb->closeDatabase();
  auto file = [&] {
    return testing::readFile(host->hostPath) + testing::readFile(host->hostPath + "-wal");
  };
  const std::string before = file();
  EXPECT_EQ(getCompanyIDFromContactID(22), -1);
  EXPECT_EQ(getCompanyNameFromCompanyID(10), "");
  EXPECT_FALSE(validCompanyID(10));
  EXPECT_EQ(getAddressBookDossieraCategory(), 0);
  int32_t clients = 1;
  EXPECT_FALSE(doesThisCategoryBelongToCategory(1, clients));
  EXPECT_EQ(addNewEntry(), 0);
  EXPECT_EQ(addPersonnel("Jane Smith", 4, 10), 0);
  EXPECT_EQ(addPersonnel("", 4, 10), 0);  // the closed database is seen before the blank name
  EXPECT_EQ(checkForDefault(10, false), -1);
  checkForDefault(12, true);
  setContactAsDefault(20);
  setNoContactAsDefault(10);
  updateDefaultContactInfo(10);
  changeDefaultContactChangeLookupFieldValue(20);
  EXPECT_TRUE(errors().errors.empty());
  EXPECT_TRUE(file() == before);
}

}  // namespace
}  // namespace dossync::hostdb
