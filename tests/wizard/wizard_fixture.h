// A host with a small address book and a headless wizard started on its component.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/apartment.h"
#include "core/synchronization.h"
#include "test_support.h"
#include "wizard/driver.h"

namespace dossync::testing {

// Categories: Clients(1) > Corporations(2) > Holding(3); Suppliers(4).
// Companies: Acme Ltd(10, Corporations), Acme Sub(11, associate of 10), Beta Inc(12, Holding),
// Gamma(13, no category), Delta(14, Suppliers).
// Contacts: Ann(20, Acme, default), Bob(21, Acme), Carl(22, Beta, default), Dora(23, no company,
// Suppliers), Eve(24, no company, no category).
// Shown clients: Acme and Beta with every detail row; Gamma shown but without detail rows;
// Delta not shown.
inline void fillAddressBook(const std::string& hostPath) {
  execSql(hostPath,
          "INSERT INTO Categories (CategoryID, CategoryName, CategoryNum) VALUES "
          "(1, 'Clients', NULL), (2, 'Corporations', 1), (3, 'Holding', 2), (4, 'Suppliers', NULL);"
          "INSERT INTO Companies (CompanyID, CompanyName, CategoryNum, CompanyNum) VALUES "
          "(10, 'Acme Ltd', 2, NULL), (11, 'Acme Sub', 3, 10), (12, 'Beta Inc', 3, NULL),"
          "(13, 'Gamma', NULL, NULL), (14, 'Delta', 4, NULL);"
          "INSERT INTO Contacts (ContactID, CompanyNum, CategoryNum, DisplayName, DefaultContact) "
          "VALUES (20, 10, NULL, 'Ann', 1), (21, 10, NULL, 'Bob', 0), (22, 12, NULL, 'Carl', 1),"
          "(23, NULL, 4, 'Dora', 0), (24, NULL, NULL, 'Eve', 0);"
          "INSERT INTO ClientData (ClientDataID, CompanyIDNum, ShowThisClient) VALUES "
          "(1, 10, 1), (2, 12, 1), (3, 13, 1), (4, 14, 0);");
  for (const char* t : {"AccountingServices", "ClientOptions", "CorpTaxInfo", "LawInfo",
                        "OtherInfo", "WSIB_EHTInfo"})
    execSql(hostPath, std::string("INSERT INTO ") + t + " (" + t + "ID) VALUES (1), (2), (4);");
}

class WizardTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    fillAddressBook(host->hostPath);
    c().setShowProgress(false);
    c().setDataFileUniqueID("DF1");
    c().setCompanyList(AddressBook);
    mdi = std::make_shared<Object>();
    c().setMDIForm(mdi);
    form = std::make_shared<wizard::HeadlessWizard>();
    d = std::make_unique<wizard::WizardDriver>(*form);
  }
  void TearDown() override {
    d.reset();
    form.reset();
    HostTest::TearDown();
  }
  void start() { form->startWizard(c()); }
  SelectionCollection& selection() { return *c().companyCollection(); }
  std::vector<std::string> members(int member) {
    std::vector<std::string> out;
    for (const auto& e : selection().entries()) out.push_back(e[static_cast<size_t>(member - 1)]);
    return out;
  }
  // Does what a user does, in turn: "cmdNav(3)" or "cmdSaveScheme" clicks that control,
  // "Company:10" ticks that node. False, with a failure naming it, at the first refused.
  bool user(std::initializer_list<std::string> actions) {
    for (const std::string& a : actions) {
      const size_t open = a.find('(');
      const bool done = a.find(':') != std::string::npos ? d->tick(a)
                        : open == std::string::npos
                            ? d->click(a)
                            : d->click(a.substr(0, open), std::stoi(a.substr(open + 1)));
      if (!done) {
        ADD_FAILURE() << "the user cannot " << a;
        return false;
      }
    }
    return true;
  }
  const std::vector<RecordingMessageBox::Shown>& shown() { return host->messages->shown; }
  std::vector<std::string> q(const std::string& sql) { return querySql(host->syncPath, sql); }
  // The step on show and the navigation buttons a user can click: "1: 1 2 3" is step 1 with
  // Cancel, Back and Next.
  std::string nav() {
    std::string out = std::to_string(d->step()) + ":";
    for (int32_t i = 1; i <= 4; ++i)
      if (d->canUse("cmdNav", i)) out += " " + std::to_string(i);
    return out;
  }

  ObjectPtr mdi;
  std::shared_ptr<wizard::HeadlessWizard> form;
  std::unique_ptr<wizard::WizardDriver> d;
};

}  // namespace dossync::testing
