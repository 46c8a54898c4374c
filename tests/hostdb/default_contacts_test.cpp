#include "hostdb/default_contacts.h"

#include <gtest/gtest.h>

#include "core/apartment.h"
#include "format/rtf_summaries.h"
#include "test_support.h"

namespace dossync::hostdb {
namespace {

struct RecordingUi : IHostUi {
  void doEvents() override { ++pumps; }
  void setMousePointer(int32_t pointer) override { pointers.push_back(pointer); }
  int pumps = 0;
  std::vector<int32_t> pointers;
};

class DefaultContactsTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // Company 10: three contacts, none default, client 100 with two schedule rows.
    // Company 11: no contacts, stale default columns. Company 12: contact 23 is its default.
    // Contact 24 belongs to no company; contact 25 names a company that does not exist.
    // Client 101 (company 12) has a schedule row of its own.
    sql("INSERT INTO Companies (CompanyID, CompanyName, DefaultContactName, "
        "DefaultContactPhoneNumber, DefaultContactFaxNumber, DefaultContactEmail, ContactNotes) "
        "VALUES (10, 'Acme', '', '', '', '', ''), (11, 'Empty', 'Old', '1', '2', 'old@x', 'stale'),"
        "(12, 'Held', 'Dee', '', '', '', '');"
        "INSERT INTO ClientData (ClientDataID, CompanyIDNum) VALUES (100, 10), (101, 12);"
        "INSERT INTO Contacts (ContactID, CompanyNum, DisplayName, BusinessPhone_Main, "
        "BusinessPhone_Fax, BusinessEmail, Birthday, DefaultContact) VALUES "
        "(20, 10, 'Ann', '555-0100', '555-0101', 'ann@acme', '1970-03-05', 0),"
        "(21, 10, 'Bob', '555-0200', '555-0201', 'bob@acme', NULL, 0),"
        "(22, 10, 'Cy', NULL, NULL, NULL, NULL, 0),"
        "(23, 12, 'Dee', NULL, NULL, 'dee@held', NULL, 1),"
        "(24, NULL, 'Eve', NULL, NULL, NULL, NULL, 0),"
        "(25, 99, 'Fay', NULL, NULL, NULL, NULL, 0);"
        "INSERT INTO Schedule (ScheduleID, ClientNum, Custom1, Custom2, Custom3, Custom4, Custom5) "
        "VALUES (1, 100, 'x1', 'x2', 'x3', 'x4', 'x5'), (2, 100, 'y1', 'y2', 'y3', 'y4', 'y5'),"
        "(3, 101, 'z1', 'z2', 'z3', 'z4', 'z5');");
    apartment().hostUi = ui;
  }
  std::vector<std::string> defaults() {
    return rows("SELECT DefaultContact FROM Contacts WHERE CompanyNum = 10 ORDER BY ContactID;");
  }
  // The four default-contact columns of a company, joined by "|".
  std::string companyColumns(int id) {
    return one(
        "SELECT DefaultContactName || '|' || DefaultContactPhoneNumber || '|' || "
        "DefaultContactFaxNumber || '|' || DefaultContactEmail FROM Companies WHERE CompanyID = " +
        std::to_string(id) + ";");
  }
  std::string notesOf(int contactID) {
    return one("SELECT BusinessNotes FROM Contacts WHERE ContactID = " + std::to_string(contactID) +
               ";");
  }
  bool showsDefault(int contactID, const char* yesNo) {
    return notesOf(contactID).find(std::string("\\b Default Contact:\\b0  ") + yesNo) !=
           std::string::npos;
  }
  void lookups(const std::string& values) {
    sql("INSERT INTO CustomFields (RemittanceCustomInfo1, RemittanceCustomInfo2, "
        "RemittanceCustomInfo3, RemittanceCustomInfo4, RemittanceCustomInfo5, "
        "RemittanceCustomType1, RemittanceCustomType2, RemittanceCustomType3, "
        "RemittanceCustomType4, RemittanceCustomType5) VALUES (" +
        values + ");");
  }

  std::shared_ptr<RecordingUi> ui = std::make_shared<RecordingUi>();
};

using Row = std::vector<std::string>;

TEST_F(DefaultContactsTest, CheckForDefaultAnswersTheDefaultOrClearsACompanyWithoutContacts) {
  EXPECT_EQ(checkForDefault(12, true), 23);
  EXPECT_EQ(notesOf(23), "");  // nothing rebuilt
  EXPECT_EQ(checkForDefault(10, false), -1);
  EXPECT_EQ(defaults(), (Row{"0", "0", "0"}));

  EXPECT_EQ(checkForDefault(11, true), -1);
  EXPECT_EQ(companyColumns(11), "|||");
  EXPECT_EQ(one("SELECT ContactNotes FROM Companies WHERE CompanyID = 11;"),
            format::saveNoDefaultComment());
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(DefaultContactsTest, FirstContactBecomesTheDefaultAndEverythingFollows) {
  lookups("'BUSINESSEMAIL', NULL, NULL, NULL, NULL, 3, NULL, NULL, NULL, NULL");
  EXPECT_EQ(checkForDefault(10, true), -1);  // a default chosen now is not answered
  EXPECT_EQ(defaults(), (Row{"1", "0", "0"}));
  EXPECT_EQ(companyColumns(10), "Ann|555-0100|555-0101|ann@acme");
  // Every contact of the company has its summary rebuilt, showing its own flag.
  EXPECT_TRUE(showsDefault(20, "Yes"));
  EXPECT_TRUE(showsDefault(22, "No"));
  EXPECT_EQ(one("SELECT ContactNotes FROM Companies WHERE CompanyID = 10;"), notesOf(20));
  EXPECT_EQ(rows("SELECT Custom1 FROM Schedule ORDER BY ScheduleID;"),
            (Row{"ann@acme", "ann@acme", "z1"}));
  EXPECT_GT(ui->pumps, 0);

  // Moving the default on.
  setContactAsDefault(21);
  EXPECT_EQ(defaults(), (Row{"0", "1", "0"}));
  EXPECT_EQ(companyColumns(10), "Bob|555-0200|555-0201|bob@acme");
  EXPECT_TRUE(showsDefault(20, "No"));
  EXPECT_EQ(one("SELECT DefaultContact FROM Contacts WHERE ContactID = 23;"), "1");
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(DefaultContactsTest, TheOnlyContactsSummaryIsBuiltOnceForItselfAndItsCompany) {
  int summaries = 0;
  auto db = testing::installFaulty(apartment().hostDb, host->hostPath);
  db->fails = [&](const std::string& call) {
    summaries += call == "writeField BusinessNotes";
    return false;
  };
  sql("UPDATE Contacts SET DefaultContact = 0 WHERE ContactID = 23;");
  setContactAsDefault(23);  // company 12 has no other contact
  EXPECT_EQ(summaries, 1);
  EXPECT_TRUE(showsDefault(23, "Yes"));
  EXPECT_EQ(one("SELECT ContactNotes FROM Companies WHERE CompanyID = 12;"), notesOf(23));
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(DefaultContactsTest, ContactWithoutACompanyOnlyGetsItsOwnFlagAndSummary) {
  lookups("'DISPLAYNAME', NULL, NULL, NULL, NULL, 3, NULL, NULL, NULL, NULL");
  for (int id : {24, 25}) {  // no CompanyNum; a CompanyNum naming no company
    setContactAsDefault(id);
    EXPECT_EQ(one("SELECT DefaultContact FROM Contacts WHERE ContactID = " + std::to_string(id)),
              "1");
    EXPECT_TRUE(showsDefault(id, "Yes")) << id;
  }
  setContactAsDefault(404);
  EXPECT_EQ(defaults(), (Row{"0", "0", "0"}));
  EXPECT_EQ(rows("SELECT ContactNotes FROM Companies ORDER BY CompanyID;"), (Row{"", "stale", ""}));
  EXPECT_EQ(rows("SELECT Custom1 FROM Schedule ORDER BY ScheduleID;"), (Row{"x1", "y1", "z1"}));
  EXPECT_EQ(ui->pointers, (std::vector<int32_t>{}));  // no schedule update was attempted
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(DefaultContactsTest, ScheduleColumnsTakeTheContactsValuesOfTypeThreeLookupsOnly) {
  changeDefaultContactChangeLookupFieldValue(20);  // no CustomFields row: nothing to write
  EXPECT_EQ(rows("SELECT Custom1 FROM Schedule ORDER BY ScheduleID;"), (Row{"x1", "y1", "z1"}));
  EXPECT_EQ(ui->pointers, (std::vector<int32_t>{kPointerHourglass, kPointerDefault}));

  lookups(
      "'BUSINESSEMAIL', 'BusinessEmail', 'BIRTHDAY', 'BUSINESSPHONE_MAIN', 'MIDDLENAME', "
      "3, 3, 3, 2, 3");
  changeDefaultContactChangeLookupFieldValue(20);
  auto row = [&](int id) {
    return one(
        "SELECT Custom1 || '|' || Custom2 || '|' || Custom3 || '|' || Custom4 || '|' || "
        "Custom5 FROM Schedule WHERE ScheduleID = " +
        std::to_string(id) + ";");
  };
  EXPECT_EQ(row(1), "ann@acme|x2|Mar 5, 1970|x4|x5");
  EXPECT_EQ(row(2), "ann@acme|y2|Mar 5, 1970|y4|y5");
  EXPECT_EQ(row(3), "z1|z2|z3|z4|z5");  // another client's schedule

  // A contact without values blanks the columns.
  changeDefaultContactChangeLookupFieldValue(22);
  EXPECT_EQ(row(1), "|x2||x4|x5");
  EXPECT_TRUE(errors().errors.empty());
}

TEST_F(DefaultContactsTest, AFailureInTheWalkIsReportedAndLeaves) {
  // A flag that cannot be read as a Boolean stops the walk of checkForDefault.
  sql("UPDATE Contacts SET DefaultContact = 'maybe' WHERE ContactID = 20;");
  EXPECT_EQ(checkForDefault(10, true), -1);
  ASSERT_EQ(errors().errors.size(), 1u);
  EXPECT_EQ(errors().errors[0].number(), kTypeMismatch);
  EXPECT_EQ(defaults(), (Row{"maybe", "0", "0"}));  // leaving: no default was chosen
  EXPECT_TRUE(errors().stack.empty());
}

}  // namespace
}  // namespace dossync::hostdb
