// The synchronisation driver: walks the host's companies or contacts (or the chosen Outlook
// contacts), hands each chosen record to its transfer and records every pairing.
#include "engine/driver.h"

#include <functional>
#include <vector>

#include "base/platform.h"
#include "base/value.h"
#include "core/apartment.h"
#include "core/recordset.h"
#include "core/run_stop.h"
#include "core/synchronization.h"
#include "interfaces/progress.h"

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
  if (!showProgress_) {
    f.step([&] { SynchronizeContacts(); });
    return false;
  }
  auto dialog = [&]() -> IProgressDialog& {
    if (!progressDialog_)
      throw RuntimeError(kObjectVariableNotSet, "Object variable not set: no progress dialog");
    return *progressDialog_;
  };
  f.step([&] { progressDialog_ = platform::create<IProgressDialog>(kProgressDialogClass); });
  f.step([&] { dialog().setStartHandler([this] { outlookDialog_StartProgress(); }); });
  f.step([&] { dialog().setMessage("Synchronizing Outlook information, please wait ..."); });
  f.step([&] { dialog().setStyle(1); });
  f.step([&] { dialog().setOwner(mdiForm_); });
  f.step([&] { dialog().setMinimum(0); });
  f.step([&] { dialog().setMaximum(getRecordCount()); });
  f.step([&] { dialog().setShowBar(true); });
  f.step([&] { dialog().setValue(0); });
  f.step([&] { dialog().setSecondaryValue(0); });
  f.step([&] { dialog().setAllowCancel(true); });
  f.step([&] { dialog().setNumber(101); });
  // The start handler lets go of the dialog when the run ends, while show() is still running:
  // the dialog stays alive until show() returns.
  f.step([&] {
    auto shown = progressDialog_;
    dialog().show();
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
  // The run's observer watches from before the first statement to after the frame is gone. Its
  // last writes are committed before the observer hears that the run is over (it may take its
  // time writing a report, and must not hold other programs' writes back meanwhile); what could
  // not be committed is reported here.
  struct Watch {
    clsOutlookSynchronization& c;
    explicit Watch(clsOutlookSynchronization& c) : c(c) {
      if (!c.runObserver_) return;
      apartment().runObserver = c.runObserver_.get();
      observeRun([&](IRunObserver& o) { o.runStarted(c); });
    }
    ~Watch() {
      if (!c.runObserver_) return;
      std::vector<RuntimeError> failed = apartment().idleDatabases();
      if (!failed.empty()) {
        ErrorFrame f(kLoc + "SynchronizeContacts");
        for (const RuntimeError& e : failed) f.onExit([&] { throw e; });
      }
      observeRun([&](IRunObserver& o) { o.runFinished(c); });
      apartment().runObserver = nullptr;
    }
  } watch(*this);
  ErrorFrame f(kLoc + "SynchronizeContacts");
  bool result = true;
  counters_ = committed_ = Counters{};
  groupRecords_ = 0;
  f.step([&] { StartOutlook(); });
  if (syncDirectionType_ == syncBothsWays && bothWays_) {
    f.step([&] { bothWays_(*this); });
    return result;
  }
  // A selection that cannot say whether it is empty is taken for empty.
  if (f.test([&] { return !companyCollection_ || companyCollection_->isEmpty(); }, true))
    return result;

  auto advance = [&] {
    if (!showProgress_ || !progressDialog_) return;
    int32_t v = progressDialog_->value();
    if (v == INT32_MAX) throw RuntimeError(kOverflow, "Overflow: progress value past 2147483647");
    progressDialog_->setValue(v + 1);
  };
  // The end of a pass: progress, the next row (a row that cannot be left ends the walk, as a
  // request to stop does), and the message pump.
  auto endOfPass = [&](const std::function<void()>& moveNext) {
    f.step(advance);
    ++counters_.rowsWalked;
    if (runStopRequested()) return false;
    if (!f.step(moveNext)) return false;
    // The record is whole: a commit point (its failures are this procedure's errors).
    for (const RuntimeError& e : apartment().commitPoint()) f.step([&] { throw e; });
    f.step([&] { apartment().doEvents(); });
    return true;
  };

  // A record (a pass) is undone as a whole in both databases when any error was reported while
  // it ran, once the procedures' own error handling is done with it: no half-made client, no
  // pairing of one. Outlook items are saved whole and stay.
  struct Record {
    uint64_t errors;
    Counters before;
  };
  auto beginRecord = [&] {
    f.step([&] { apartment().beginRecord(syncDirectionType_ == syncFromOutlookToDossiera); });
    return Record{ErrorFrame::errorsReported(), counters_};
  };
  auto endRecord = [&](const Record& record) {
    bool failed = ErrorFrame::errorsReported() != record.errors;
    apartment().endRecord(!failed);
    if (!failed) {
      ++groupRecords_;
      return;
    }
    int32_t walked = counters_.rowsWalked, commits = counters_.commitsFailed;
    counters_ = record.before;
    counters_.rowsWalked = walked;
    counters_.commitsFailed = commits;
    ++counters_.recordsFailed;
  };

  // A look-up that reported an error answers a fallback ("" or -1), not "no counterpart": its
  // record (like a row whose key cannot be read) is neither transferred nor paired this time,
  // so the pairing it has is kept and no item is made for what the look-up could not see. A
  // transfer that saved nothing ("-1", or no identifier at all) keeps the identifier the
  // look-up gave.
  auto walk = [&](const char* sql, const char* keyField, const char* nameField, int member,
                  Lookup lookup, Transfer transfer, Save save) {
    const auto kind = member == 1 ? IRunObserver::Kind::Company : IRunObserver::Kind::Contact;
    std::unique_ptr<hostdb::Recordset> rs;
    f.step([&] {
      auto& db = apartment().hostDb;
      if (!db) throw RuntimeError(kObjectVariableNotSet, "The companies database is not open");
      rs = std::make_unique<hostdb::Recordset>(*db, sql);
    });
    if (!rs || !f.test([&] { return rs->hasRow(); })) return;
    while (f.test([&] { return !rs->eof(); })) {
      Record record = beginRecord();
      int32_t number = 0;
      std::string outlookID;
      bool keyRead = f.step([&] { number = value::toLong(rs->read(keyField)); });
      if (keyRead) {
        observeRun([&](IRunObserver& o) {
          o.recordStarted(kind, std::to_string(number));
          o.recordNamed(rs->read(nameField));
        });
      }
      if (keyRead && f.call([&] { outlookID = (this->*lookup)(number); })) {
        observeRun([&](IRunObserver& o) { o.lookedUp(outlookID); });
        bool selected = f.test([&] { return companyCollection_->indexOf(number, member) >= 0; });
        observeRun([&](IRunObserver& o) { o.recordSelected(selected); });
        if (selected) {
          std::string saved;
          f.step([&] { saved = (this->*transfer)(number, outlookID); });
          if (saved != "-1" && !value::isBlank(saved)) outlookID = saved;
        }
        f.step([&] {
          (this->*save)(number, outlookID);
          ++counters_.mappingsSaved;
          observeRun([&](IRunObserver& o) { o.paired(std::to_string(number), outlookID); });
        });
      }
      endRecord(record);
      if (keyRead) observeRun([](IRunObserver& o) { o.recordFinished(); });
      if (!endOfPass([&] { rs->next(); })) break;
    }
  };

  if (syncDirectionType_ == syncFromDossieraToOutlook) {
    switch (syncInformationType_) {
      case companyWithDefaultContact:
        walk("SELECT Companies.* FROM Companies;", "CompanyID", "CompanyName", 1,
             &clsOutlookSynchronization::getCompanyOutlookID,
             &clsOutlookSynchronization::createNewDossieraCompanyWithDefaultContactInOutlook,
             &clsOutlookSynchronization::saveCompanyOutlookID);
        break;
      case companyOnly:
        walk("SELECT Companies.* FROM Companies;", "CompanyID", "CompanyName", 1,
             &clsOutlookSynchronization::getCompanyOutlookID,
             &clsOutlookSynchronization::createNewDossieraCompanyInOutlook,
             &clsOutlookSynchronization::saveCompanyOutlookID);
        break;
      case contactOnlyShowContactName | contactOnlyShowCompanyName:  // 7: the contact walk
        walk("SELECT Contacts.* FROM Contacts;", "ContactID", "DisplayName", 2,
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
    while (f.test([&] { return !chosen.atEnd(); })) {
      Record record = beginRecord();
      std::string outlookID;
      int32_t companyNumber = -1;
      bool keyRead = f.step([&] { outlookID = chosen.currentItem(); });
      if (keyRead) {
        observeRun([&](IRunObserver& o) {
          o.recordStarted(IRunObserver::Kind::OutlookItem, outlookID);
          o.recordSelected(true);
        });
      }
      // As above: a failed look-up neither makes a host company nor pairs the item with -1.
      if (keyRead && f.call([&] { companyNumber = getOutlookCompanyID(outlookID); })) {
        observeRun([&](IRunObserver& o) { o.lookedUp(std::to_string(companyNumber)); });
        int32_t made = 0;
        f.step([&] {
          if (!value::isBlank(outlookID))
            made = createNewOutlookCompanyWithDefaultContactInDossiera(outlookID, companyNumber);
        });
        // The number found before the transfer is what is paired, -1 included, unless the
        // company just made is to be paired instead.
        if (pairCreatedCompanies_ && made > 0) companyNumber = made;
        f.step([&] {
          saveOutlookCompanyID(outlookID, companyNumber);
          ++counters_.mappingsSaved;
          observeRun([&](IRunObserver& o) { o.paired(std::to_string(companyNumber), outlookID); });
        });
      }
      endRecord(record);
      if (keyRead) observeRun([](IRunObserver& o) { o.recordFinished(); });
      if (!endOfPass([&] { chosen.moveNext(); })) break;
    }
  }
  // syncBothsWays and anything else: nothing is synchronised.
  return result;
}

}  // namespace dossync
