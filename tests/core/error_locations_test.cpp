// Where every procedure reports a failure. Each row makes one procedure fail from outside (a
// data access or Outlook call that throws, a database, object or class that is missing, a
// form without its owner) and compares the location the error service held when the error was
// recorded with the procedure's own. Procedures that nothing outside can make fail are checked
// for the location they enter.
#include <gtest/gtest.h>

#include "app/outlook_wiring.h"
#include "app/terminal_progress.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "core/apartment.h"
#include "core/platform.h"
#include "core/synchronization.h"
#include "core/wizard_host.h"
#include "format/rtf_summaries.h"
#include "hostdb/default_contacts.h"
#include "hostdb/lookups.h"
#include "hostdb/new_records.h"
#include "mail/send_mail.h"
#include "test_support.h"
#include "wizard/driver.h"
#include "wizard/wizard_fixture.h"

namespace dossync {
namespace {

RuntimeError broken(const std::string& what) {
  return RuntimeError(kOutlookOperationFailed, "Outlook failed: " + what);
}
RuntimeError failed(const std::string& what) {
  return RuntimeError(kInvalidProcedureCall, what + " failed");
}

// An Outlook whose logon or item creation can be made to fail, and whose mails fail in every
// member.
class BrokenMail : public outlook::MailItem {
 public:
  std::string EntryID() const override { throw broken("EntryID"); }
  void Save() override { throw broken("Save"); }
  std::string Subject() const override { throw broken("Subject"); }
  void setSubject(const std::string&) override { throw broken("Subject"); }
  std::string Body() const override { throw broken("Body"); }
  void setBody(const std::string&) override { throw broken("Body"); }
  std::shared_ptr<outlook::Recipients> Recipients() override { throw broken("Recipients"); }
  std::shared_ptr<outlook::Attachments> Attachments() override { throw broken("Attachments"); }
  void Send() override { throw broken("Send"); }
  void Display(std::optional<bool>) override { throw broken("Display"); }
};

class BrokenNameSpace : public outlook::NameSpace {
 public:
  explicit BrokenNameSpace(bool failLogon) : failLogon_(failLogon) {}
  void Logon(std::optional<std::string>, std::optional<std::string>, std::optional<bool>,
             std::optional<bool>) override {
    if (failLogon_) throw broken("Logon");
  }
  std::shared_ptr<outlook::MAPIFolder> GetDefaultFolder(int32_t) override {
    throw broken("GetDefaultFolder");
  }
  outlook::ItemPtr GetItemFromID(const std::string&, const std::string&) override {
    throw broken("GetItemFromID");
  }

 private:
  bool failLogon_;
};

class BrokenOutlook : public outlook::Application {
 public:
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string&) override {
    return std::make_shared<BrokenNameSpace>(failLogon);
  }
  outlook::ItemPtr CreateItem(int32_t) override {
    if (failCreate) throw broken("CreateItem");
    return std::make_shared<BrokenMail>();
  }
  bool failLogon = false, failCreate = false;
};

class BrokenHostUi : public IHostUi {
 public:
  void setMousePointer(int32_t) override { throw failed("The mouse pointer"); }
};

class BrokenView : public wizard::IWizardView {
 public:
  void showModal(const ObjectPtr&) override {}
  void unload() override {}
  void refresh() override { throw failed("Repainting"); }
};

struct Row {
  std::string location;
  std::function<void()> run;
};

class ErrorLocationTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    testing::fillAddressBook(host->hostPath);
    c().setShowProgress(false);
    hostDb = apartment().hostDb;
    syncDb = apartment().syncDb;
  }
  void TearDown() override {
    restore();
    HostTest::TearDown();
  }

  // What a row may have changed, put back.
  void restore() {
    apartment().hostDb = hostDb;
    apartment().syncDb = syncDb;
    apartment().hostUi = std::make_shared<IHostUi>();
    sqlite::registerSqliteClasses();
    app::registerOutlook("vdir:" + host->outlookRoot);
    app::registerTerminalProgress(false);
    c().setShowProgress(false);
    c().companyCollection()->clear();
  }
  // The host database fails its first `call` whose statement or field contains `detail`.
  void failHost(const std::string& call, const std::string& detail, int skip = 0) {
    apartment().hostDb = std::make_shared<testing::FaultyDataAccess>(hostDb, call, detail, skip);
  }
  std::shared_ptr<BrokenOutlook> brokenOutlook() {
    auto app = std::make_shared<BrokenOutlook>();
    platform::registerClass(platform::kOutlookApplication, [app] { return app; });
    return app;
  }
  void clearErrors() {
    errors().errors.clear();
    errors().errorLocations.clear();
    errors().entered.clear();
    errors().stack.clear();
  }
  // Each row fails, and the first error is recorded at its location.
  void expectReportedAt(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.location);
      clearErrors();
      row.run();
      restore();
      ASSERT_FALSE(errors().errorLocations.empty()) << "no error was recorded";
      EXPECT_EQ(errors().errorLocations.front(), row.location)
          << errors().errors.front().description();
      EXPECT_TRUE(errors().stack.empty()) << "a procedure did not leave: " << errors().stack.back();
    }
  }
  // Each row runs without an error, entering its location first.
  void expectEntered(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.location);
      clearErrors();
      row.run();
      restore();
      ASSERT_FALSE(errors().entered.empty());
      EXPECT_EQ(errors().entered.front(), row.location);
      EXPECT_TRUE(errors().errors.empty()) << errors().errors.front().description();
      EXPECT_TRUE(errors().stack.empty());
    }
  }

  hostdb::DataAccessPtr hostDb, syncDb;
};

const std::string kSync = "kvoutlookdx.dll-clsOutlookSynchronization-";

TEST_F(ErrorLocationTest, TheComponent) {
  auto select = [this] { c().companyCollection()->add("10", "", ""); };
  auto noHost = [] { apartment().hostDb = nullptr; };
  auto noSync = [] { apartment().syncDb = nullptr; };
  auto without = [](const char* cls) { platform::unregisterClass(cls); };
  auto progressFailingIn = [this](const char* call) {
    testing::registerRecordingProgress(call);
    c().setShowProgress(true);
  };
  value::Date start{2024, 5, 1, 9, 0, 0}, end{2024, 5, 1, 10, 0, 0};
  std::string subject = "Review", place = "Office";
  expectReportedAt({
      {kSync + "openMainDatabase",
       [&] { without(platform::kDataAccess), c().openMainDatabase(host->hostPath); }},
      {kSync + "openSyncForm", [&] { without(kWizardFormClass), c().openSynchForm(); }},
      {kSync + "Synchronize", [&] { progressFailingIn("setMessage"), c().Synchronize(); }},
      {kSync + "outlookDialog_StartProgress",
       [&] { progressFailingIn("close"), c().Synchronize(); }},
      {kSync + "SynchronizeContacts", [&] { select(), noHost(), c().Synchronize(); }},
      {kSync + "StartOutlook", [&] { brokenOutlook()->failLogon = true, c().StartOutlook(); }},
      {kSync + "createOutlookSyncDatabase",
       [&] { without(platform::kAdoxCatalog), c().createOutlookSyncDatabase(dir.file("n.db")); }},
      {kSync + "createTables", [&] { c().createTables(host->syncPath); }},  // tables exist
      {kSync + "verifySyncDatabase",
       [&] { without(platform::kAdoConnection), c().verifySyncDatabase(host->syncPath); }},
      {kSync + "doesTableExist",
       [&] { without(platform::kAdoxCatalog), c().doesTableExist(nullptr); }},
      {kSync + "openOutlookSyncDatabase",
       [&] { without(platform::kDataAccess), c().openOutlookSyncDatabase(host->syncPath); }},
      {kSync + "getCompanyOutlookID", [&] { noSync(), c().getCompanyOutlookID(10); }},
      {kSync + "getContactOutlookID", [&] { noSync(), c().getContactOutlookID(20); }},
      {kSync + "getOutlookCompanyID", [&] { noSync(), c().getOutlookCompanyID("x"); }},
      {kSync + "getOutlookContactID", [&] { noSync(), c().getOutlookContactID("x"); }},
      {kSync + "saveCompanyOutlookID", [&] { noSync(), c().saveCompanyOutlookID(10, "x"); }},
      {kSync + "saveContactOutlookID", [&] { noSync(), c().saveContactOutlookID(20, "x"); }},
      {kSync + "saveOutlookCompanyID", [&] { noSync(), c().saveOutlookCompanyID("x", 10); }},
      {kSync + "saveOutlookContactID", [&] { noSync(), c().saveOutlookContactID("x", 20); }},
      // Without an Outlook session the transfers fail at their first Outlook call.
      {kSync + "createNewDossieraCompanyWithDefaultContactInOutlook",
       [&] { c().StopOutlook(), c().createNewDossieraCompanyWithDefaultContactInOutlook(10, ""); }},
      {kSync + "createNewDossieraCompanyInOutlook",
       [&] { c().StopOutlook(), c().createNewDossieraCompanyInOutlook(10, ""); }},
      {kSync + "createNewDossieraContactInOutlook",
       [&] { c().StopOutlook(), c().createNewDossieraContactInOutlook(20, ""); }},
      {kSync + "createNewOutlookCompanyWithDefaultContactInDossiera",
       [&] {
         c().StopOutlook(), c().createNewOutlookCompanyWithDefaultContactInDossiera("x", -1);
       }},
      {kSync + "CreateAppointment",
       [&] { c().StopOutlook(), c().CreateAppointment(start, end, subject, place); }},
  });
  expectEntered({
      {"kvlabeldx3.dll-frmWizard-resetOutlookSchemeToDefault",
       [&] { c().resetOutlookSchemeToDefault(); }},
      {kSync + "MainDatabaseLocation", [&] { c().setMainDatabaseLocation(host->hostPath); }},
      {kSync + "SyncDatabaseLocation", [&] { c().setSyncDatabaseLocation(host->syncPath); }},
      {kSync + "getRecordCount", [&] { c().getRecordCount(); }},
      {kSync + "StopOutlook", [&] { c().StopOutlook(); }},
  });
}

TEST_F(ErrorLocationTest, TheHostModules) {
  const std::string db = "Dossiera.exe-modDatabaseFunctions-";
  const std::string cat = "Dossiera.exe-modDossiera.exe-";
  const std::string schedule = "Dossiera.exe-modScheduleCustom-";
  const std::string address = "kvAddress.dll-clsFormatAddresses-";
  int32_t category = 1;
  format::AddressParts street;
  street.street = "1 Main St";
  auto opening = [this](const std::string& table) { failHost("openRecordset", table + ".*"); };
  expectReportedAt({
      {db + "addNewEntry", [&] { opening("Companies"), hostdb::addNewEntry(); }},
      {db + "addPersonnel", [&] { opening("Contacts"), hostdb::addPersonnel("Ann Lee", {}, 10); }},
      {db + "checkForDefault", [&] { opening("Contacts"), hostdb::checkForDefault(10, false); }},
      {db + "setContactAsDefault", [&] { opening("Contacts"), hostdb::setContactAsDefault(20); }},
      {db + "updateDefaultContactInfo",
       [&] { opening("Contacts"), hostdb::updateDefaultContactInfo(10); }},
      {schedule + "changeDefaultContactChangeLookupFieldValue",
       [&] { opening("CustomFields"), hostdb::changeDefaultContactChangeLookupFieldValue(20); }},
      // Its company is looked up and tested first, each in its own procedure.
      {db + "getClientDataIDFromContactID",
       [&] { opening("ClientData"), hostdb::getClientDataIDFromContactID(20); }},
      {db + "getCompanyIDFromClientDataID",
       [&] { opening("ClientData"), hostdb::getCompanyIDFromClientDataID(1); }},
      {db + "getCompanyIDFromContactID",
       [&] { opening("Contacts"), hostdb::getCompanyIDFromContactID(20); }},
      {db + "getDefaultContactIDFromCompanyID",
       [&] { opening("Contacts"), hostdb::getDefaultContactIDFromCompanyID(10); }},
      {db + "getCompanyNameFromCompanyID",
       [&] { opening("Companies"), hostdb::getCompanyNameFromCompanyID(10); }},
      {db + "getContactNameFromContactID",
       [&] { opening("Companies"), hostdb::getContactNameFromContactID(20); }},
      {db + "validCompanyID", [&] { opening("Companies"), hostdb::validCompanyID(10); }},
      {db + "validContactID", [&] { opening("Contacts"), hostdb::validContactID(20); }},
      {db + "validCategoryID", [&] { opening("Categories"), hostdb::validCategoryID(1); }},
      {cat + "doesThisCategoryBelongToCategory",
       [&] { opening("Categories"), hostdb::doesThisCategoryBelongToCategory(3, category); }},
      {cat + "doesThisCompanyBelongToCategory",
       [&] { opening("Companies"), hostdb::doesThisCompanyBelongToCategory(10, category); }},
      {cat + "doesThisContactBelongToCategory",
       [&] { opening("Contacts"), hostdb::doesThisContactBelongToCategory(20, category); }},
      {cat + "getAddressBookDossieraCategory",
       [&] { opening("HostCategory"), hostdb::getAddressBookDossieraCategory(); }},
      {cat + "getAddressBookCategoryName",
       [&] { opening("HostCategory"), hostdb::getAddressBookCategoryName(); }},
      {cat + "createNewHostCategory",
       [&] { opening("Categories"), hostdb::createNewHostCategory("New"); }},
      // The contact is tested first, in this module's own procedure.
      {address + "saveContactBusinessRTF",
       [&] { opening("CustomAddressFields"), format::saveContactBusinessRTF(20); }},
      {address + "saveCompanyContactRTF",
       [&] { failHost("writeField", "ContactNotes"), format::saveCompanyContactRTF(10, -1); }},
      {address + "createBusinessContactAddress",
       [&] { opening("Contacts"), format::createBusinessContactAddress(20, true); }},
      {address + "validContactID", [&] { opening("Contacts"), format::validContactID(20); }},
      {address + "validCompanyID", [&] { opening("Companies"), format::validCompanyID(10); }},
  });
  expectEntered({
      // The name splitter reports under its caller's name.
      {db + "addPersonnel", [&] { hostdb::splitPersonName("Dr. Jane Smith"); }},
      {db + "setNoContactAsDefault", [&] { hostdb::setNoContactAsDefault(13); }},
      {schedule + "isContactLookupField", [&] { hostdb::isContactLookupField("BIRTHDAY"); }},
      {address + "saveNoDefaultComment", [&] { format::saveNoDefaultComment(); }},
      {address + "createAddress", [&] { format::createAddress(street, true, true); }},
      {address + "convertToRTF", [&] { format::convertToRTF("a\r\nb"); }},
  });
}

TEST_F(ErrorLocationTest, TheWizard) {
  const std::string w = "kvoutlookdx.dll-frmWizard-";
  const std::string label = "kvlabeldx3.dll-frmWizard-";
  // Each row works on a form that was never started: it has no owner.
  std::unique_ptr<wizard::HeadlessWizard> form;
  BrokenView view;
  int16_t seven = 7, zero = 0;
  auto fresh = [&]() -> wizard::frmWizard& {
    form = std::make_unique<wizard::HeadlessWizard>();
    return *form;
  };
  expectReportedAt({
      {w + "startWizard",
       [&] { apartment().hostUi = std::make_shared<BrokenHostUi>(), fresh().startWizard(c()); }},
      {w + "SetStep", [&] { fresh().SetStep(seven, zero); }},
      {w + "cmdNav_Click", [&] { fresh().cmdNav_Click(4); }},
      {w + "optSynchDirection_Click", [&] { fresh().optSynchDirection_Click(2); }},
      {w + "optInfoType_Click", [&] { fresh().optInfoType_Click(1); }},
      {w + "txtContactsCategory_LostFocus", [&] { fresh().txtContactsCategory_LostFocus(); }},
      {w + "txtProfileName_LostFocus", [&] { fresh().txtProfileName_LostFocus(); }},
      {w + "txtPassword_LostFocus", [&] { fresh().txtPassword_LostFocus(); }},
      {label + "populateOutlookSchemesList",
       [&] { apartment().syncDb = nullptr, fresh().populateOutlookSchemesList(); }},
      {w + "cboSavedScheme_Click",
       [&] {
         auto& combo = fresh().control("cboSavedScheme");
         combo.items = {{"Click here to open a saved scheme", 0}, {"Monthly", 5}};
         combo.listIndex = 1;
         form->cboSavedScheme_Click();
       }},
      {label + "populateOutlookScheme",
       [&] { apartment().syncDb = nullptr, fresh().populateOutlookScheme(1); }},
      {label + "populateOutlookSchemeSettings", [&] { fresh().populateOutlookSchemeSettings(); }},
      {label + "setupAdvancedOptions", [&] { fresh().setupAdvancedOptions(); }},
      {label + "resetScheme", [&] { fresh().resetScheme(); }},
      {w + "cmdDeleteScheme_Click", [&] { fresh().cmdDeleteScheme_Click(); }},
      {w + "cmdSaveScheme_Click", [&] { fresh().cmdSaveScheme_Click(); }},
      {w + "populateCompanyNames", [&] { fresh().populateCompanyNames(); }},
      {w + "populateOutlookNames", [&] { fresh().populateOutlookNames(); }},
      {w + "populateAddressBookTree_incProgressBar",
       [&] { fresh().setView(&view), form->populateAddressBookTree_incProgressBar(1); }},
      {w + "populateOutlookTree_incProgressBar",
       [&] { fresh().setView(&view), form->populateOutlookTree_incProgressBar(1); }},
      {w + "tvwContacts_NodeCheck", [&] { fresh().tvwContacts_NodeCheck(99); }},
      {w + "checkAllChildNodes", [&] { fresh().checkAllChildNodes(99, true); }},
      {w + "checkNode", [&] { fresh().checkNode(99, true); }},
      {w + "getSelectedCompanies", [&] { fresh().getSelectedCompanies(); }},
      {w + "populateCheckedItems", [&] { fresh().populateCheckedItems(); }},
  });
  int16_t two = 2;
  expectEntered({
      {w + "SetNavBtns", [&] { fresh().SetNavBtns(two); }},
      {w + "cmdAdvancedOptions_Click",
       [&] {
         fresh().startWizard(c());  // with an owner the procedures it calls run through
         clearErrors();
         form->cmdAdvancedOptions_Click();
       }},
      {w + "cmdSaveScheme_GotFocus", [&] { fresh().cmdSaveScheme_GotFocus(); }},
      {w + "cmdSaveScheme_LostFocus", [&] { fresh().cmdSaveScheme_LostFocus(); }},
      {w + "Form_KeyDown", [&] { fresh().Form_KeyDown(27, 0); }},
      {w + "Form_Unload", [&] { fresh().Form_Unload(); }},
  });
}

TEST_F(ErrorLocationTest, TheTreeBuilders) {
  auto tree = std::make_shared<wizard::TreeView>();
  std::unique_ptr<wizard::clsPopulateClientTree> book;
  // A fill whose progress handler fails right after the node with that key was added.
  auto failAfter = [&](const std::string& key) {
    book = std::make_unique<wizard::clsPopulateClientTree>();
    book->treeViewControl = tree;
    book->incProgressBar = [&, key](int32_t) {
      if (tree->node(tree->count()).key == key) throw failed("The progress handler");
    };
    book->populateAddressBookTree();
  };
  // A builder over a tree whose one node, with that key, is selected.
  auto selected = [&](const std::string& key) {
    tree->clear();
    tree->select(tree->add("", wizard::tvwChild, key, key, 1, 1).index);
    book = std::make_unique<wizard::clsPopulateClientTree>();
    book->treeViewControl = tree;
  };
  std::unique_ptr<wizard::clsOutlookContactTree> outlookTree;
  auto outlookFill = [&](const std::string& failingCall) {
    testing::registerRecordingProgress(failingCall);
    outlookTree = std::make_unique<wizard::clsOutlookContactTree>();
    outlookTree->treeViewControl = tree;
    outlookTree->populateOutlookTree();
  };
  const std::string fill = "Contactory.exe-clsPopulateClientTree-populateAddressBookTree";
  expectReportedAt({
      {fill, [&] { apartment().hostDb = nullptr, failAfter("none"); }},
      {"kvoutlookdx4.dll-clsPopulateClientTree-addSubCategories", [&] { failAfter("Category:2"); }},
      {"kvoutlookdx4.dll-clsPopulateClientTree-addAssociateCompanies",
       [&] { failAfter("Company:11"); }},
      {"kvoutlookdx4.dll-frmContacts-getSelectedCategoryID",
       [&] {
         selected("Company:10"), apartment().hostDb = nullptr, book->getSelectedCategoryID();
       }},
      {"Contactory.exe-clsOutlookContactTree-getRecordCount",
       [&] { wizard::clsOutlookContactTree().getRecordCount(); }},  // no Outlook namespace
      {"Contactory.exe-clsOutlookContactTree-populateOutlookTree", [&] { outlookFill("show"); }},
      {"Dossiera.exe-frmMain-outlookDialog_StartProgress", [&] { outlookFill("setAllowCancel"); }},
  });
  expectEntered({
      {"kvoutlookdx4.dll-frmContacts-getSelectedNodeType",
       [&] { selected("Company:10"), book->getSelectedNodeType(); }},
      {"kvoutlookdx4.dll-frmContacts-getSelectedNodeID",
       [&] { selected("Company:10"), book->getSelectedNodeID(); }},
      {"kvoutlookdx.dll-clsOutlookContactTree-Class_Initialize",
       [&] { wizard::clsOutlookContactTree(); }},
  });
}

TEST_F(ErrorLocationTest, TheMailSender) {
  const std::string m = kSendMailLocation;
  clsOutlookSendMail mail;
  auto withMail = [&] { brokenOutlook(), mail.StartOutlook(), mail.CreateNewMail(); };
  expectReportedAt({
      {m + "StartOutlook", [&] { brokenOutlook()->failLogon = true, mail.StartOutlook("Office"); }},
      {m + "CreateNewMail",
       [&] { brokenOutlook()->failCreate = true, mail.StartOutlook(), mail.CreateNewMail(); }},
      {m + "DisplayMail", [&] { withMail(), mail.DisplayMail(); }},
      {m + "SendMail", [&] { withMail(), mail.SendMail(); }},
      {m + "Attachment", [&] { withMail(), mail.Attachment("/tmp/x.pdf"); }},
      {m + "Body", [&] { withMail(), mail.setBody("text"); }},
      {m + "Subject", [&] { withMail(), mail.setSubject("text"); }},
      {m + "Recipient_TO", [&] { withMail(), mail.setRecipient_TO("a@b"); }},
      {m + "Recipient_CC", [&] { withMail(), mail.setRecipient_CC("a@b"); }},
      {m + "Recipient_BCC", [&] { withMail(), mail.setRecipient_BCC("a@b"); }},
  });
  expectEntered({{m + "CloseOutlook", [&] { mail.CloseOutlook(); }}});
}

}  // namespace
}  // namespace dossync
