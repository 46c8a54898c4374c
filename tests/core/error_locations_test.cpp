// Where every procedure reports a failure: each row makes one procedure fail from outside and
// compares the location current when the error was recorded with the procedure's own; rows of
// procedures nothing outside can make fail compare the location they enter instead.
#include <gtest/gtest.h>

#include "app/outlook_wiring.h"
#include "app/terminal_progress.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "base/platform.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "engine/recording_outlook.h"
#include "format/rtf_summaries.h"
#include "hostdb/default_contacts.h"
#include "hostdb/lookups.h"
#include "hostdb/new_records.h"
#include "interfaces/wizard_host.h"
#include "send_mail/send_mail.h"
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

// A mail that fails in every member.
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
  // The host database fails every `call` whose statement or field contains `detail`.
  void failHost(const std::string& call, const std::string& detail) {
    apartment().hostDb = std::make_shared<testing::FaultyDataAccess>(hostDb, [=](const auto& what) {
      return what.rfind(call + " ", 0) == 0 && what.find(detail, call.size()) != std::string::npos;
    });
  }
  // An Outlook over the store whose logon or item creation can be made to fail, and whose
  // items made are broken mails.
  struct Breaks {
    bool failLogon = false, failCreate = false;
  };
  std::shared_ptr<Breaks> brokenOutlook() {
    auto breaks = std::make_shared<Breaks>();
    testing::OutlookHooks hooks;
    hooks.logon = [breaks](const std::string&) {
      if (breaks->failLogon) throw broken("Logon");
    };
    hooks.made = [breaks](outlook::ItemPtr) -> outlook::ItemPtr {
      if (breaks->failCreate) throw broken("CreateItem");
      return std::make_shared<BrokenMail>();
    };
    auto app = std::make_shared<testing::HookedApplication>(
        vdir::makeVdirApplication(host->outlookRoot), hooks);
    platform::registerClass(platform::kOutlookApplication, [app] { return app; });
    return breaks;
  }
  // Each row fails, and the first error is recorded at its location; or, when entered, each
  // row runs without an error, entering its location first.
  void expectLocations(const std::vector<Row>& rows, bool entered) {
    for (const Row& row : rows) {
      SCOPED_TRACE(prefix + row.location);
      errors() = testing::RecordingErrorService();
      row.run();
      restore();
      const auto& where = entered ? errors().entered : errors().errorLocations;
      ASSERT_FALSE(where.empty()) << "nothing was recorded";
      EXPECT_EQ(where.front(), prefix + row.location);
      EXPECT_EQ(errors().errors.empty(), entered) << errors().errors.front().description();
      EXPECT_TRUE(errors().stack.empty()) << "a procedure did not leave: " << errors().stack.back();
    }
  }
  void expectReportedAt(const std::vector<Row>& rows) { expectLocations(rows, false); }
  void expectEntered(const std::vector<Row>& rows) { expectLocations(rows, true); }

  hostdb::DataAccessPtr hostDb, syncDb;
  std::string prefix;  // what every row's location starts with
};

const std::string kSync = "kvoutlookdx.dll-clsOutlookSynchronization-";

TEST_F(ErrorLocationTest, TheComponent) {
  clsOutlookSynchronization& s = c();
  const std::string h = host->hostPath, sync = host->syncPath;
  auto select = [&] { s.companyCollection()->add("10", "", ""); };
  auto noHost = [] { apartment().hostDb = nullptr; };
  auto noSync = [] { apartment().syncDb = nullptr; };
  auto without = [](const char* cls) { platform::unregisterClass(cls); };
  auto offline = [&] { s.StopOutlook(); };  // the transfers fail at their first Outlook call
  auto progressFailingIn = [&](const char* call) {
    testing::registerRecordingProgress(call);
    s.setShowProgress(true);
  };
  value::Date start{2024, 5, 1, 9, 0, 0}, end{2024, 5, 1, 10, 0, 0};
  std::string subject = "Review", place = "Office";
  prefix = kSync;
  expectReportedAt({
      {"openMainDatabase", [&] { without(platform::kDataAccess), s.openMainDatabase(h); }},
      {"openSyncForm", [&] { without(kWizardFormClass), s.openSynchForm(); }},
      {"Synchronize", [&] { progressFailingIn("setMessage"), s.Synchronize(); }},
      {"outlookDialog_StartProgress", [&] { progressFailingIn("close"), s.Synchronize(); }},
      {"SynchronizeContacts", [&] { select(), noHost(), s.Synchronize(); }},
      {"StartOutlook", [&] { brokenOutlook()->failLogon = true, s.StartOutlook(); }},
      {"createOutlookSyncDatabase",
       [&] { without(platform::kAdoxCatalog), s.createOutlookSyncDatabase(dir.file("n.db")); }},
      {"createTables", [&] { s.createTables(sync); }},  // the tables exist
      {"verifySyncDatabase",
       [&] { without(platform::kAdoConnection), s.verifySyncDatabase(sync); }},
      {"doesTableExist", [&] { without(platform::kAdoxCatalog), s.doesTableExist(nullptr); }},
      {"openOutlookSyncDatabase",
       [&] { without(platform::kDataAccess), s.openOutlookSyncDatabase(sync); }},
      {"getCompanyOutlookID", [&] { noSync(), s.getCompanyOutlookID(10); }},
      {"getContactOutlookID", [&] { noSync(), s.getContactOutlookID(20); }},
      {"getOutlookCompanyID", [&] { noSync(), s.getOutlookCompanyID("x"); }},
      {"getOutlookContactID", [&] { noSync(), s.getOutlookContactID("x"); }},
      {"saveCompanyOutlookID", [&] { noSync(), s.saveCompanyOutlookID(10, "x"); }},
      {"saveContactOutlookID", [&] { noSync(), s.saveContactOutlookID(20, "x"); }},
      {"saveOutlookCompanyID", [&] { noSync(), s.saveOutlookCompanyID("x", 10); }},
      {"saveOutlookContactID", [&] { noSync(), s.saveOutlookContactID("x", 20); }},
      {"createNewDossieraCompanyWithDefaultContactInOutlook",
       [&] { offline(), s.createNewDossieraCompanyWithDefaultContactInOutlook(10, ""); }},
      {"createNewDossieraCompanyInOutlook",
       [&] { offline(), s.createNewDossieraCompanyInOutlook(10, ""); }},
      {"createNewDossieraContactInOutlook",
       [&] { offline(), s.createNewDossieraContactInOutlook(20, ""); }},
      {"createNewOutlookCompanyWithDefaultContactInDossiera",
       [&] { offline(), s.createNewOutlookCompanyWithDefaultContactInDossiera("x", -1); }},
      {"CreateAppointment", [&] { offline(), s.CreateAppointment(start, end, subject, place); }},
  });
  prefix = "kvlabeldx3.dll-frmWizard-";
  expectEntered({{"resetOutlookSchemeToDefault", [&] { s.resetOutlookSchemeToDefault(); }}});
}

TEST_F(ErrorLocationTest, TheHostModules) {
  using namespace hostdb;
  int32_t category = 1;
  // The host database fails to open the table.
  auto no = [this](const std::string& table) { failHost("openRecordset", table + ".*"); };
  prefix = "Dossiera.exe-modDatabaseFunctions-";
  expectReportedAt({
      {"addNewEntry", [&] { no("Companies"), addNewEntry(); }},
      {"addPersonnel", [&] { no("Contacts"), addPersonnel("Ann Lee", {}, 10); }},
      {"checkForDefault", [&] { no("Contacts"), checkForDefault(10, false); }},
      {"setContactAsDefault", [&] { no("Contacts"), setContactAsDefault(20); }},
      {"updateDefaultContactInfo", [&] { no("Contacts"), updateDefaultContactInfo(10); }},
      // Its company is looked up and tested first, each in its own procedure.
      {"getClientDataIDFromContactID", [&] { no("ClientData"), getClientDataIDFromContactID(20); }},
      {"getCompanyIDFromClientDataID", [&] { no("ClientData"), getCompanyIDFromClientDataID(1); }},
      {"getCompanyIDFromContactID", [&] { no("Contacts"), getCompanyIDFromContactID(20); }},
      {"getDefaultContactIDFromCompanyID",
       [&] { no("Contacts"), getDefaultContactIDFromCompanyID(10); }},
      {"getCompanyNameFromCompanyID", [&] { no("Companies"), getCompanyNameFromCompanyID(10); }},
      {"getContactNameFromContactID", [&] { no("Companies"), getContactNameFromContactID(20); }},
      {"validCompanyID", [&] { no("Companies"), validCompanyID(10); }},
      {"validContactID", [&] { no("Contacts"), validContactID(20); }},
      {"validCategoryID", [&] { no("Categories"), validCategoryID(1); }},
  });
  prefix = "Dossiera.exe-modDossiera.exe-";
  expectReportedAt({
      {"doesThisCategoryBelongToCategory",
       [&] { no("Categories"), doesThisCategoryBelongToCategory(3, category); }},
      {"doesThisCompanyBelongToCategory",
       [&] { no("Companies"), doesThisCompanyBelongToCategory(10, category); }},
      {"doesThisContactBelongToCategory",
       [&] { no("Contacts"), doesThisContactBelongToCategory(20, category); }},
      {"getAddressBookDossieraCategory",
       [&] { no("HostCategory"), getAddressBookDossieraCategory(); }},
      {"getAddressBookCategoryName", [&] { no("HostCategory"), getAddressBookCategoryName(); }},
      {"createNewHostCategory", [&] { no("Categories"), createNewHostCategory("New"); }},
  });
  prefix = "kvAddress.dll-clsFormatAddresses-";
  expectReportedAt({
      // The contact is tested first, in this module's own procedure.
      {"saveContactBusinessRTF",
       [&] { no("CustomAddressFields"), format::saveContactBusinessRTF(20); }},
      {"saveCompanyContactRTF",
       [&] { failHost("writeField", "ContactNotes"), format::saveCompanyContactRTF(10, -1); }},
      {"createBusinessContactAddress",
       [&] { no("Contacts"), format::createBusinessContactAddress(20, true); }},
      {"validContactID", [&] { no("Contacts"), format::validContactID(20); }},
      {"validCompanyID", [&] { no("Companies"), format::validCompanyID(10); }},
  });
  prefix = "Dossiera.exe-modScheduleCustom-";
  expectReportedAt({{"changeDefaultContactChangeLookupFieldValue",
                     [&] { no("CustomFields"), changeDefaultContactChangeLookupFieldValue(20); }}});
  prefix = "Dossiera.exe-modDatabaseFunctions-";
  // The name splitter reports under its caller's name.
  expectEntered({{"addPersonnel", [&] { splitPersonName("Dr. Jane Smith"); }}});
}

TEST_F(ErrorLocationTest, TheWizard) {
  // Each row works on a form that was never started: it has no owner.
  std::unique_ptr<wizard::HeadlessWizard> form;
  BrokenView view;
  int16_t seven = 7, zero = 0;
  auto fresh = [&]() -> wizard::frmWizard& {
    form = std::make_unique<wizard::HeadlessWizard>();
    return *form;
  };
  auto noSync = [] { apartment().syncDb = nullptr; };
  auto picked = [](wizard::frmWizard& f) {  // a saved scheme is picked in the list
    auto& combo = f.control("cboSavedScheme");
    combo.items = {{"Click here to open a saved scheme", 0}, {"Monthly", 5}};
    combo.listIndex = 1;
  };
  prefix = "kvoutlookdx.dll-frmWizard-";
  expectReportedAt({
      {"startWizard",
       [&] { apartment().hostUi = std::make_shared<BrokenHostUi>(), fresh().startWizard(c()); }},
      {"SetStep", [&] { fresh().SetStep(seven, zero); }},
      {"cmdNav_Click", [&] { fresh().cmdNav_Click(4); }},
      {"optSynchDirection_Click", [&] { fresh().optSynchDirection_Click(2); }},
      {"optInfoType_Click", [&] { fresh().optInfoType_Click(1); }},
      {"txtContactsCategory_LostFocus", [&] { fresh().txtContactsCategory_LostFocus(); }},
      {"txtProfileName_LostFocus", [&] { fresh().txtProfileName_LostFocus(); }},
      {"txtPassword_LostFocus", [&] { fresh().txtPassword_LostFocus(); }},
      {"cboSavedScheme_Click", [&] { picked(fresh()), form->cboSavedScheme_Click(); }},
      {"cmdDeleteScheme_Click", [&] { fresh().cmdDeleteScheme_Click(); }},
      {"cmdSaveScheme_Click", [&] { fresh().cmdSaveScheme_Click(); }},
      {"populateCompanyNames", [&] { fresh().populateCompanyNames(); }},
      {"populateOutlookNames", [&] { fresh().populateOutlookNames(); }},
      {"populateAddressBookTree_incProgressBar",
       [&] { fresh().setView(&view), form->populateAddressBookTree_incProgressBar(1); }},
      {"populateOutlookTree_incProgressBar",
       [&] { fresh().setView(&view), form->populateOutlookTree_incProgressBar(1); }},
      {"tvwContacts_NodeCheck", [&] { fresh().tvwContacts_NodeCheck(99); }},
      {"checkAllChildNodes", [&] { fresh().checkAllChildNodes(99, true); }},
      {"checkNode", [&] { fresh().checkNode(99, true); }},
      {"getSelectedCompanies", [&] { fresh().getSelectedCompanies(); }},
      {"populateCheckedItems", [&] { fresh().populateCheckedItems(); }},
  });
  prefix = "kvlabeldx3.dll-frmWizard-";
  expectReportedAt({
      {"populateOutlookSchemesList", [&] { noSync(), fresh().populateOutlookSchemesList(); }},
      {"populateOutlookScheme", [&] { noSync(), fresh().populateOutlookScheme(1); }},
      {"populateOutlookSchemeSettings", [&] { fresh().populateOutlookSchemeSettings(); }},
      {"setupAdvancedOptions", [&] { fresh().setupAdvancedOptions(); }},
      {"resetScheme", [&] { fresh().resetScheme(); }},
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
  prefix = kSendMailLocation;
  clsOutlookSendMail mail;
  auto withMail = [&] { brokenOutlook(), mail.StartOutlook(), mail.CreateNewMail(); };
  expectReportedAt({
      {"StartOutlook", [&] { brokenOutlook()->failLogon = true, mail.StartOutlook("Office"); }},
      {"CreateNewMail",
       [&] { brokenOutlook()->failCreate = true, mail.StartOutlook(), mail.CreateNewMail(); }},
      {"DisplayMail", [&] { withMail(), mail.DisplayMail(); }},
      {"SendMail", [&] { withMail(), mail.SendMail(); }},
      {"Attachment", [&] { withMail(), mail.Attachment("/tmp/x.pdf"); }},
      {"Body", [&] { withMail(), mail.setBody("text"); }},
      {"Subject", [&] { withMail(), mail.setSubject("text"); }},
      {"Recipient_TO", [&] { withMail(), mail.setRecipient_TO("a@b"); }},
      {"Recipient_CC", [&] { withMail(), mail.setRecipient_CC("a@b"); }},
      {"Recipient_BCC", [&] { withMail(), mail.setRecipient_BCC("a@b"); }},
  });
}

}  // namespace
}  // namespace dossync
