// clsOutlookSynchronization: the component the host creates to keep its companies and contacts
// in step with Outlook. The host sets the services and the two database locations, reads
// FailedToInitializeFlag, then opens the wizard (openSynchForm) or fills the options and
// companyCollection and calls Synchronize.
//
// Public members are listed in the order of the dispatch interface and use only types a COM
// dispatch interface can carry: text (std::string), 32-bit integers, Booleans, dates and
// objects. No error ever leaves a public member: each runs in an ErrorFrame.
//
// Ownership: the component shares the selection and the Outlook objects; the databases and
// services live in the apartment (core/apartment.h) and outlive the component.
// Thread use: the host's one user-interface thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "base/collection.h"
#include "base/object.h"
#include "core/error_frame.h"
#include "core/run_observer.h"
#include "interfaces/data_access.h"
#include "interfaces/object_model.h"
#include "interfaces/services.h"

namespace dossync {

enum outlookSyncTypeEnum : int32_t {
  syncBothsWays = 1,
  syncFromDossieraToOutlook = 2,
  syncFromOutlookToDossiera = 3,
};

enum syncInformationTypeEnum : int32_t {
  companyWithDefaultContact = 1,
  companyOnly = 2,
  contactOnlyShowContactName = 3,
  contactOnlyShowCompanyName = 4,
};

enum companyListType : int32_t {
  Dossiera = 1,
  AddressBook = 2,
};

class IProgressDialog;

class clsOutlookSynchronization : public Object {
 public:
  clsOutlookSynchronization();
  ~clsOutlookSynchronization() override;
  clsOutlookSynchronization(const clsOutlookSynchronization&) = delete;
  clsOutlookSynchronization& operator=(const clsOutlookSynchronization&) = delete;

  // ---- Properties, in interface order.
  std::shared_ptr<SelectionCollection> companyCollection() const { return companyCollection_; }
  void setCompanyCollection(std::shared_ptr<SelectionCollection> c) {
    companyCollection_ = std::move(c);
  }
  void setErrorClass(std::shared_ptr<IErrorService> service);
  void setMsgboxClass(std::shared_ptr<IMessageBox> service);
  void setMDIForm(ObjectPtr form) { mdiForm_ = std::move(form); }
  void setMainDatabaseLocation(const std::string& path);
  std::string MainDatabaseLocation() const { return mainDatabaseLocation_; }
  void setSyncDatabaseLocation(const std::string& path);
  std::string SyncDatabaseLocation() const { return syncDatabaseLocation_; }
  void setTempFolder(const std::string& folder) { tempFolder_ = folder; }
  std::string TempFolder() const { return tempFolder_; }
  bool FailedToInitializeFlag() const { return failedToInitialize_; }
  void setSyncDirectionType(int32_t v) { syncDirectionType_ = v; }
  int32_t SyncDirectionType() const { return syncDirectionType_; }
  void setSyncInformationType(int32_t v) { syncInformationType_ = v; }
  int32_t SyncInformationType() const { return syncInformationType_; }
  bool showProgress() const { return showProgress_; }
  void setShowProgress(bool v) { showProgress_ = v; }
  void setAppName(const std::string& v) { appName_ = v; }
  std::string AppName() const { return appName_; }
  std::string OutlookCategory() const { return outlookCategory_; }
  void setOutlookCategory(const std::string& v) { outlookCategory_ = v; }
  std::string Profile() const { return profile_; }
  void setProfile(const std::string& v) { profile_ = v; }
  std::string Password() const { return password_; }
  void setPassword(const std::string& v) { password_ = v; }
  bool DisplayLoginDialog() const { return displayLoginDialog_; }
  void setDisplayLoginDialog(bool v) { displayLoginDialog_ = v; }
  bool OpenNewSession() const { return openNewSession_; }
  void setOpenNewSession(bool v) { openNewSession_ = v; }
  bool RefreshData() const { return refreshData_; }
  void setRefreshData(bool v) { refreshData_ = v; }
  bool closeOutlookWhenFinished() const { return closeOutlookWhenFinished_; }
  void setCloseOutlookWhenFinished(bool v) { closeOutlookWhenFinished_ = v; }
  void setCompanyList(int32_t v) { companyList_ = v; }
  int32_t companyList() const { return companyList_; }
  std::string DataFileUniqueID() const { return dataFileUniqueID_; }
  void setDataFileUniqueID(const std::string& v) { dataFileUniqueID_ = v; }
  int32_t SchemeID() const { return schemeID_; }
  void setSchemeID(int32_t v) { schemeID_ = v; }

  // ---- Methods, in interface order.
  bool openMainDatabase(const std::string& fileName);
  void resetOutlookSchemeToDefault();
  void openSynchForm();
  bool Synchronize();
  bool StartOutlook();
  bool StopOutlook();

  // ---- Event ExitProgram: hosts subscribe; the token unsubscribes.
  int32_t subscribeExitProgram(std::function<void()> handler);
  void unsubscribeExitProgram(int32_t token);

  // ---- Component-internal operations (not in the published interface).
  std::shared_ptr<IMessageBox> messageBox() const;
  ObjectPtr MDIForm() const { return mdiForm_; }
  void setFailedToInitializeFlag(bool v) { failedToInitialize_ = v; }
  void raiseExitProgram();
  std::shared_ptr<IProgressDialog> progressDialog() const { return progressDialog_; }
  void setProgressDialog(std::shared_ptr<IProgressDialog> d) { progressDialog_ = std::move(d); }
  std::shared_ptr<outlook::Application> outlookApplication() const { return outlookApp_; }
  std::shared_ptr<outlook::NameSpace> outlookNameSpace() const { return outlookNameSpace_; }
  // This component as a non-owning object reference (the owner of its messages).
  ObjectPtr self() { return ObjectPtr(ObjectPtr{}, this); }
  bool mainDatabaseOpen() const { return mainDatabaseOpen_; }
  bool syncDatabaseOpen() const { return syncDatabaseOpen_; }

  // ---- The synchronisation database (store/sync_database.cpp).
  void createOutlookSyncDatabase(const std::string& path);
  void createTables(const std::string& path);
  bool verifySyncDatabase(const std::string& path);
  bool doesTableExist(const ObjectPtr& connection);
  void openOutlookSyncDatabase(const std::string& path);

  // ---- Pairing of host records with Outlook items (store/id_mapping.cpp).
  std::string getCompanyOutlookID(int32_t companyID);
  std::string getContactOutlookID(int32_t contactID);
  int32_t getOutlookCompanyID(const std::string& outlookEntryID);
  int32_t getOutlookContactID(const std::string& outlookEntryID);
  void saveCompanyOutlookID(int32_t companyID, const std::string& outlookEntryID);
  void saveContactOutlookID(int32_t contactID, const std::string& outlookEntryID);
  void saveOutlookCompanyID(const std::string& outlookEntryID, int32_t companyID);
  void saveOutlookContactID(const std::string& outlookEntryID, int32_t contactID);
  // The statement every mapping procedure starts from.
  std::string mappingStatement() const;
  // The default contacts folder of the open session (RuntimeError 91 when there is none).
  std::shared_ptr<outlook::MAPIFolder> contactsFolder() const;

  // ---- The synchronisation driver (engine/driver.cpp).
  bool SynchronizeContacts();
  int32_t getRecordCount();
  void outlookDialog_StartProgress();

  // ---- Record transfer (transfer/): each answers the saved item's EntryID, "-1" when nothing
  // was saved; the reverse transfer answers the host company number, 0 when nothing was done.
  std::string createNewDossieraCompanyWithDefaultContactInOutlook(int32_t companyID,
                                                                  std::string outlookEntryID);
  std::string createNewDossieraCompanyInOutlook(int32_t companyID, std::string outlookEntryID);
  std::string createNewDossieraContactInOutlook(int32_t contactID, std::string outlookEntryID);
  int32_t createNewOutlookCompanyWithDefaultContactInDossiera(std::string outlookEntryID,
                                                              int32_t companyID);
  // Outlook appointment through the open session (engine/appointment.cpp).
  void CreateAppointment(value::Date& start, value::Date& end, std::string& subject,
                         std::string& location);

  // What the last synchronisation did (for the host's summary).
  // The counts are of what was committed: a record that failed (any error reported while it
  // was synchronised) is undone and counted in recordsFailed only, and so is every record of a
  // group whose commit failed.
  struct Counters {
    int32_t rowsWalked = 0, itemsCreated = 0, itemsUpdated = 0, mappingsSaved = 0;
    int32_t companiesCreated = 0, companiesUpdated = 0, contactsCreated = 0;
    int32_t recordsFailed = 0;
    int32_t commitsFailed = 0;  // groups whose commit failed (or that could not be made whole)
  };
  Counters& counters() { return counters_; }
  // Apartment::groupEnded: what the run counted up to now was committed (true) or lost.
  void groupEnded(bool committed);
  // Who watches each run (core/run_observer.h): the report and the preview. Not published.
  void setRunObserver(std::shared_ptr<IRunObserver> o) { runObserver_ = std::move(o); }
  std::shared_ptr<IRunObserver> runObserver() const { return runObserver_; }
  // A run from Outlook pairs each item with the host company it just created, instead of -1
  // (with -1, every later run from Outlook creates that company again). Off by default.
  bool pairCreatedCompanies() const { return pairCreatedCompanies_; }
  void setPairCreatedCompanies(bool v) { pairCreatedCompanies_ = v; }
  // dossync's two-way mode (twoway/two_way.h): when a host sets it, a run in direction 1
  // (syncBothsWays) is handed to it, whatever the selection holds, after Outlook was started;
  // without it direction 1 synchronises nothing. Not published.
  using BothWaysRunner = std::function<void(clsOutlookSynchronization&)>;
  void setBothWaysRunner(BothWaysRunner runner) { bothWays_ = std::move(runner); }
  bool bothWaysEnabled() const { return static_cast<bool>(bothWays_); }
  // Shows "Synchronizing " + name on the progress dialog's status line when progress is shown.
  void showStatus(const std::string& name);

 private:
  std::shared_ptr<SelectionCollection> companyCollection_;
  int32_t syncDirectionType_ = syncFromDossieraToOutlook;
  int32_t syncInformationType_ = companyWithDefaultContact;
  int32_t companyList_ = Dossiera;
  std::shared_ptr<outlook::Application> outlookApp_;
  std::shared_ptr<outlook::NameSpace> outlookNameSpace_;
  bool closeOutlookWhenFinished_ = false;
  std::string syncDatabaseLocation_;
  bool syncDatabaseOpen_ = false;
  // Set by verifySyncDatabase when no driver could open the file (why, naming the drivers
  // tried): the file is then left as it is.
  std::string syncDriverMissing_;
  std::string tempFolder_;
  ObjectPtr mdiForm_;
  bool showProgress_ = true;
  std::string appName_;
  std::string mainDatabaseLocation_;
  bool mainDatabaseOpen_ = false;
  bool failedToInitialize_ = false;
  int32_t schemeID_ = -1;
  std::string dataFileUniqueID_;
  std::string profile_;
  std::string password_;
  std::string outlookCategory_;
  bool displayLoginDialog_ = true;
  bool openNewSession_ = true;
  bool refreshData_ = false;
  std::shared_ptr<IProgressDialog> progressDialog_;

  Counters counters_;
  Counters committed_;        // the counts as of the last commit
  int32_t groupRecords_ = 0;  // records kept in the group not committed yet
  std::shared_ptr<IRunObserver> runObserver_;
  bool pairCreatedCompanies_ = false;
  BothWaysRunner bothWays_;
  std::map<int32_t, std::function<void()>> exitProgramHandlers_;
  int32_t nextHandlerToken_ = 1;
};

// The prefix of every error location of this class.
inline constexpr const char* kSyncLocation = "kvoutlookdx.dll-clsOutlookSynchronization-";

// Opens a database the way the component opens both: a new data access object from the
// platform, put in `slot` (the apartment's host or synchronisation object) at once, closed if
// it reports itself open, given the error service and the application name, options 2,
// location, 3, 2, then open(2); each a step of the caller's frame. Answers whether the object
// in the slot reports itself open.
bool openDataAccess(ErrorFrame& f, hostdb::DataAccessPtr& slot, const std::string& path,
                    const std::string& appName);

}  // namespace dossync
