// The synchronisation driver: walks the host's companies or contacts (or the chosen Outlook
// contacts), hands each chosen record to its transfer and records every pairing.
#include "engine/driver.h"
#include "core/apartment.h"
#include "core/platform.h"
#include "core/progress.h"
#include "core/synchronization.h"
#include "core/value.h"
#include "hostdb/recordset.h"

namespace dossync {
namespace {

const std::string kLoc = kSyncLocation;

using Lookup = std::string (clsOutlookSynchronization::*)(int32_t);
using Transfer = std::string (clsOutlookSynchronization::*)(int32_t, std::string);
using Save = void (clsOutlookSynchronization::*)(int32_t, const std::string&);

}  // namespace

bool clsOutlookSynchronization::Synchronize() {
  ErrorFrame f(kLoc + "Synchronize");
  apartment().currentComponent = this;
  f.step([&] {
    if (!showProgress_) {
      SynchronizeContacts();
      return;
    }
    auto dialog = platform::create<IProgressDialog>(kProgressDialogClass);
    progressDialog_ = dialog;
    dialog->setStartHandler([this] { outlookDialog_StartProgress(); });
    dialog->setMessage("Synchronizing Outlook information, please wait ...");
    dialog->setStyle(1);
    dialog->setOwner(mdiForm_);
    dialog->setMinimum(0);
    dialog->setMaximum(getRecordCount());
    dialog->setShowBar(true);
    dialog->setValue(0);
    dialog->setSecondaryValue(0);
    dialog->setAllowCancel(true);
    dialog->setNumber(101);
    dialog->show();
  });
  f.step([&] { progressDialog_.reset(); });
  return false;  // never assigned: hosts must not read it as a failure
}

void clsOutlookSynchronization::outlookDialog_StartProgress() {
  ErrorFrame f(kLoc + "outlookDialog_StartProgress");
  f.step([&] { SynchronizeContacts(); });
  f.step([&] {
    if (progressDialog_) progressDialog_->close();
  });
  f.step([&] { progressDialog_.reset(); });
}

int32_t clsOutlookSynchronization::getRecordCount() {
  ErrorFrame f(kLoc + "getRecordCount");
  int32_t count = 0;
  f.step([&] { count = companyCollection_ ? companyCollection_->count() : 0; });
  return count;
}

bool clsOutlookSynchronization::SynchronizeContacts() {
  ErrorFrame f(kLoc + "SynchronizeContacts");
  bool result = true;
  counters_ = Counters{};
  bool empty = false;
  f.step([&] { StartOutlook(); });
  f.step([&] { empty = !companyCollection_ || companyCollection_->isEmpty(); });
  if (empty || f.leaving()) return result;

  auto advance = [&] {
    if (!showProgress_ || !progressDialog_) return;
    int32_t v = progressDialog_->value();
    if (v == INT32_MAX) throw RuntimeError(kOverflow, "Overflow: progress value past 2147483647");
    progressDialog_->setValue(v + 1);
  };

  auto walk = [&](const char* sql, const char* keyField, int member, Lookup lookup,
                  Transfer transfer, Save save) {
    auto db = apartment().hostDb;
    std::unique_ptr<hostdb::Recordset> rs;
    bool any = false;
    f.step([&] {
      if (!db) throw RuntimeError(kObjectVariableNotSet, "The companies database is not open");
      rs = std::make_unique<hostdb::Recordset>(*db, sql);
      any = rs->hasRow();
    });
    if (!any) return;
    int32_t number = 0;
    std::string outlookID;
    while (!f.leaving() && !rs->eof()) {
      f.step([&] { number = value::toLong(rs->read(keyField)); });
      f.step([&] { outlookID = (this->*lookup)(number); });
      f.step([&] {
        if (companyCollection_->indexOf(number, member) >= 0)
          outlookID = (this->*transfer)(number, outlookID);
      });
      f.step([&] {
        (this->*save)(number, outlookID);
        ++counters_.mappingsSaved;
      });
      f.step([&] { advance(); });
      ++counters_.rowsWalked;
      if (!f.step([&] { rs->next(); })) break;  // a row that cannot be left ends the walk
      apartment().doEvents();
    }
  };

  if (syncDirectionType_ == syncFromDossieraToOutlook) {
    switch (syncInformationType_) {
      case companyWithDefaultContact:
        walk("SELECT Companies.* FROM Companies;", "CompanyID", 1,
             &clsOutlookSynchronization::getCompanyOutlookID,
             &clsOutlookSynchronization::createNewDossieraCompanyWithDefaultContactInOutlook,
             &clsOutlookSynchronization::saveCompanyOutlookID);
        break;
      case companyOnly:
        walk("SELECT Companies.* FROM Companies;", "CompanyID", 1,
             &clsOutlookSynchronization::getCompanyOutlookID,
             &clsOutlookSynchronization::createNewDossieraCompanyInOutlook,
             &clsOutlookSynchronization::saveCompanyOutlookID);
        break;
      case contactOnlyShowContactName | contactOnlyShowCompanyName:  // 7: the contact walk
        walk("SELECT Contacts.* FROM Contacts;", "ContactID", 2,
             &clsOutlookSynchronization::getContactOutlookID,
             &clsOutlookSynchronization::createNewDossieraContactInOutlook,
             &clsOutlookSynchronization::saveContactOutlookID);
        break;
      default:  // 3 and 4 on their own start no transfer
        break;
    }
  } else if (syncDirectionType_ == syncFromOutlookToDossiera) {
    SelectionCollection& chosen = *companyCollection_;
    f.step([&] { chosen.moveFirst(); });
    while (!f.leaving() && !chosen.atEnd()) {
      std::string outlookID;
      int32_t companyNumber = -1;
      f.step([&] { outlookID = chosen.currentItem(); });
      f.step([&] { companyNumber = getOutlookCompanyID(outlookID); });
      f.step([&] {
        if (!value::isBlank(outlookID))
          createNewOutlookCompanyWithDefaultContactInDossiera(outlookID, companyNumber);
      });
      // The number found before the transfer is what is paired, -1 included.
      f.step([&] {
        saveOutlookCompanyID(outlookID, companyNumber);
        ++counters_.mappingsSaved;
      });
      f.step([&] { advance(); });
      ++counters_.rowsWalked;
      chosen.moveNext();
      apartment().doEvents();
    }
  }
  // syncBothsWays and anything else: nothing is synchronised.
  return result;
}

}  // namespace dossync
