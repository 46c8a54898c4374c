#include <gtest/gtest.h>

#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

using testing::querySql;

class IdMappingTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    sql("INSERT INTO Companies (CompanyID, CompanyName) VALUES (1, 'Acme Inc.'), "
        "(2, 'Bolt \"Quoted\" [Ltd]'), (3, 'Acme Inc.');"
        "INSERT INTO Contacts (ContactID, DisplayName) VALUES (7, 'Ann Lee');");
    c().setDataFileUniqueID("DF1");
    ASSERT_TRUE(c().StartOutlook());
  }
  std::string putContact(const std::string& fileAs, const std::string& company,
                         const std::string& fullName = "") {
    auto fill = [&](outlook::ContactItem& i) {
      i.setCompanyName(company);
      i.setFullName(fullName);
    };
    return testing::saveContact(*c().outlookApplication(), fileAs, fill)->EntryID();
  }
  std::vector<std::string> mappings() {
    return querySql(host->syncPath,
                    "SELECT SchemeNum || '|' || DataFileID || '|' || ifnull(CompanyNum, '') || '|' "
                    "|| ifnull(ContactNum, '') || '|' || ifnull(OutlookID, '') FROM OutlookSync "
                    "ORDER BY SyncID;");
  }
  std::string undated() {  // how many rows have no date of their last synchronisation
    return querySql(host->syncPath,
                    "SELECT count(*) FROM OutlookSync WHERE DateLastSync IS NULL;")[0];
  }
};

TEST_F(IdMappingTest, HostToOutlookFallsBackToTheItemFiledUnderTheName) {
  EXPECT_EQ(c().getCompanyOutlookID(1), "");  // no row, no item
  std::string acme = putContact("Acme Inc.", "Acme Inc.");
  std::string bolt = putContact("Bolt \"Quoted\" [Ltd]", "Bolt");
  EXPECT_EQ(c().getCompanyOutlookID(1), acme);
  EXPECT_EQ(c().getCompanyOutlookID(2), bolt);  // quotes and brackets in the name
  EXPECT_TRUE(mappings().empty());              // look-ups save nothing
  // The mapping wins, for its own data file only (whose id may hold quotes).
  c().setDataFileUniqueID("O'Brien' OR ''='");
  c().saveCompanyOutlookID(1, "MAPPED");
  EXPECT_EQ(c().getCompanyOutlookID(1), "MAPPED");
  c().setDataFileUniqueID("other");
  EXPECT_EQ(c().getCompanyOutlookID(1), acme);
  // Contact names are looked for among companies, so only the mapping finds contacts.
  putContact("Ann Lee", "", "Ann Lee");
  EXPECT_EQ(c().getContactOutlookID(7), "");
  EXPECT_TRUE(host->errors->errors.empty());
}

TEST_F(IdMappingTest, SavesUpdateOneRowPerSchemeAndDataFile) {
  c().saveCompanyOutlookID(1, "E1");
  c().saveCompanyOutlookID(1, "E2");
  EXPECT_EQ(mappings(), (std::vector<std::string>{"-1|DF1|1||E2"}));
  c().setSchemeID(4);
  c().saveCompanyOutlookID(1, "E3");
  c().saveContactOutlookID(1, "E4");
  EXPECT_EQ(mappings(), (std::vector<std::string>{"-1|DF1|1||E2", "4|DF1|1||E3", "4|DF1||1|E4"}));
  // Saves by entry id find the row by OutlookID and write the host number onto it.
  c().saveOutlookContactID("E3", 9);
  EXPECT_EQ(mappings()[1], "4|DF1|1|9|E3");
  // Empty ids and -1 are stored as given.
  c().saveOutlookCompanyID("", -1);
  EXPECT_EQ(mappings().back(), "4|DF1|-1||");
  EXPECT_EQ(undated(), "0");
}

TEST_F(IdMappingTest, ResumingASaveGoesOnWithTheNextField) {
  host->errors->action = kActionResume;
  std::string tooLong(256, 'x');  // the column holds 255 characters
  c().saveCompanyOutlookID(1, tooLong);
  c().saveCompanyOutlookID(2, "E2");
  c().saveCompanyOutlookID(2, tooLong);
  EXPECT_EQ(mappings(), (std::vector<std::string>{"-1|DF1|1||", "-1|DF1|2||E2"}));
  EXPECT_EQ(undated(), "0");
  ASSERT_EQ(host->errors->errors.size(), 2u);
  EXPECT_EQ(host->errors->errors[0].number(), kFieldTooSmall);
}

TEST_F(IdMappingTest, OutlookToHostUsesTheMappingThenTheCompanyName) {
  std::string unknown = putContact("Zed", "No Such Company");
  EXPECT_EQ(c().getOutlookCompanyID(unknown), -1);
  EXPECT_EQ(c().getOutlookCompanyID("not-an-entry-id"), -1);
  std::string acme = putContact("Acme", "Acme Inc.");
  EXPECT_EQ(c().getOutlookCompanyID(acme), 1);  // the first company of that name
  c().saveOutlookCompanyID(acme, 3);
  EXPECT_EQ(c().getOutlookCompanyID(acme), 3);
  std::string ann = putContact("Lee, Ann", "", "Ann Lee");
  EXPECT_EQ(c().getOutlookContactID(ann), 7);
  EXPECT_TRUE(host->errors->errors.empty());
}

}  // namespace
}  // namespace dossync
