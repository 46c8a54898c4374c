// The synchronisation database: creation through a temporary file, the two tables, the check
// of an existing file, and opening it through the second data access object.
#include <memory>
#include <vector>

#include "base/platform.h"
#include "base/utility.h"
#include "core/apartment.h"
#include "interfaces/catalog.h"
#include "store/store.h"

namespace dossync {
namespace {

const std::string kLoc = kSyncLocation;

// Exchange's entry ids run to about 140 characters: the column is wider than the 100 of the
// first databases, which go on working with the ids that fit.
constexpr int32_t kOutlookIdSize = 255;

const char* const kSyncDatabaseUnreachable =
    "The outlook synchronization wizard was not able to access the synchronization database and "
    "needs to close.";

store::ColumnDef counter(const std::string& name) {
  return {name, store::adInteger, 0, {{"AutoIncrement", true}, {"NullAble", true}}};
}
store::ColumnDef integer(const std::string& name) {
  return {name, store::adInteger, 0, {{"NullAble", true}}};
}
store::ColumnDef text(const std::string& name, int32_t size) {
  return {
      name, store::adVarWChar, size, {{"NullAble", true}, {"Jet OLEDB:Allow Zero Length", true}}};
}
store::ColumnDef date(const std::string& name) {
  return {name, store::adDate, 0, {{"NullAble", true}}};
}

store::TableDef outlookSchemeTable() {
  return {"OutlookScheme",
          {counter("SchemeID"), text("DataFileID", 20), text("SchemeName", 100),
           integer("CompanyListType"), integer("SyncType"), integer("InfoType"),
           text("ContactsCategory", 100), text("ProfileName", 100), text("ProfilePassword", 100),
           date("DateLastSync")}};
}

store::TableDef outlookSyncTable() {
  return {"OutlookSync",
          {counter("SyncID"), integer("SchemeNum"), text("DataFileID", 20), integer("CompanyNum"),
           integer("ContactNum"), text("OutlookID", kOutlookIdSize), text("OutlookCategory", 100),
           date("DateLastSync")}};
}

std::string connectionString(const std::string& path) {
  return "PROVIDER=Microsoft.Jet.OLEDB.4.0;" + std::string("Data Source=") + path + ";";
}

}  // namespace

void clsOutlookSynchronization::setSyncDatabaseLocation(const std::string& path) {
  ErrorFrame f(kLoc + "SyncDatabaseLocation");
  apartment().currentComponent = this;
  bool usable = false;
  FileUtil& files = apartment().fileUtil();
  std::unique_ptr<FileLock> folderLock;
  f.step([&] { syncDatabaseLocation_ = path; });
  syncDriverMissing_.clear();
  // A database on a server is there when it can be opened; what it lacks of the two tables is
  // made in it (it is never deleted, nor made through a file).
  if (isServerLocation(path)) {
    f.step([&] {
      if (!verifySyncDatabase(path)) createOutlookSyncDatabase(path);
    });
    f.step([&] { openOutlookSyncDatabase(path); });
    f.step([&] { syncDatabaseOpen_ = true; });
    return;
  }
  // Every process that makes a database in this folder goes through the same "Temp.mdb", and two
  // that find the same database missing would each make it: checking and making it is done by
  // one process of the machine at a time (the lock is released before the database is opened).
  f.step([&] {
    folderLock = files.lock(files.withTrailingSeparator(files.folderOf(path)) + "Temp.mdb.lock");
  });
  f.step([&] {
    if (files.fileExists(path)) {
      usable = verifySyncDatabase(path);
      if (!usable && syncDriverMissing_.empty()) files.deleteFile(path);
    }
  });
  // A file no installed driver can read is not a broken one: it keeps its schemes and pairings
  // for a machine that has the driver, and this component does not start.
  if (!syncDriverMissing_.empty()) {
    f.step([&] { folderLock.reset(); });
    f.step([&] {
      if (auto mb = messageBox())
        mb->showMessage(std::string(kSyncDatabaseUnreachable) + "\n\n" + syncDriverMissing_, 3,
                        self(), 0, 0, 101);
    });
    failedToInitialize_ = true;
    return;
  }
  f.step([&] {
    if (!usable) createOutlookSyncDatabase(path);
  });
  f.step([&] { folderLock.reset(); });
  f.step([&] { openOutlookSyncDatabase(path); });
  f.step([&] { syncDatabaseOpen_ = true; });
}

void clsOutlookSynchronization::createOutlookSyncDatabase(const std::string& path) {
  ErrorFrame f(kLoc + "createOutlookSyncDatabase");
  FileUtil& files = apartment().fileUtil();
  std::string temp;
  if (isServerLocation(path)) {  // the database exists on the server: only its tables are made
    f.step([&] {
      platform::create<store::ICatalog>(platform::kAdoxCatalog)->create(connectionString(path));
    });
    f.step([&] { createTables(path); });
    return;
  }
  f.step([&] { temp = files.withTrailingSeparator(files.folderOf(path)) + "Temp.mdb"; });
  f.step([&] {
    if (files.fileExists(temp)) files.deleteFile(temp);
  });
  f.step([&] {
    auto catalog = platform::create<store::ICatalog>(platform::kAdoxCatalog);
    catalog->create("Provider=Microsoft.Jet.OLEDB.4.0;" + std::string("Data Source=") + temp + ";" +
                    "Jet OLEDB:Database Password=;" + "Jet OLEDB:Engine Type=5;");
  });
  f.step([&] { files.copyFile(temp, path); });
  f.step([&] { files.deleteFile(temp); });
  f.step([&] { createTables(path); });
}

void clsOutlookSynchronization::createTables(const std::string& path) {
  ErrorFrame f(kLoc + "createTables");
  std::shared_ptr<store::IConnection> connection;
  std::shared_ptr<store::ICatalog> catalog;
  f.step([&] {
    connection = platform::create<store::IConnection>(platform::kAdoConnection);
    connection->setCursorLocation(store::adUseClient);
    connection->open(connectionString(path));
  });
  f.step([&] {
    catalog = platform::create<store::ICatalog>(platform::kAdoxCatalog);
    catalog->setActiveConnection(connection);
  });
  f.step([&] { catalog->appendTable(outlookSchemeTable()); });
  f.step([&] { catalog->appendTable(outlookSyncTable()); });
  f.onExit([&] {
    if (connection && connection->isOpen()) connection->close();
  });
}

bool clsOutlookSynchronization::doesTableExist(const ObjectPtr& connectionObject) {
  ErrorFrame f(kLoc + "doesTableExist");
  bool result = false;
  f.step([&] {
    auto connection = std::dynamic_pointer_cast<store::IConnection>(connectionObject);
    auto catalog = platform::create<store::ICatalog>(platform::kAdoxCatalog);
    catalog->setActiveConnection(connection);
    int count = 0;
    for (const std::string& name : catalog->tableNames()) {
      if (name == "OutlookScheme") ++count;
      if (name == "OutlookSync") ++count;
    }
    result = count == 2;
  });
  return result;
}

bool clsOutlookSynchronization::verifySyncDatabase(const std::string& path) {
  ErrorFrame f(kLoc + "verifySyncDatabase");
  bool result = true;
  std::shared_ptr<store::IConnection> connection;
  f.step([&] {
    FileUtil& files = apartment().fileUtil();
    if (path.empty() ||
        (!isServerLocation(path) && (!files.fileExists(path) || !files.isUsableFile(path)))) {
      result = false;
      return;
    }
    connection = platform::create<store::IConnection>(platform::kAdoConnection);
    connection->setCursorLocation(store::adUseClient);
    bool opened = true;
    syncDriverMissing_.clear();
    try {
      connection->open(connectionString(path));
    } catch (const RuntimeError& e) {
      opened = false;  // caught in place: the file is not a usable database
      if (e.number() == kProviderNotFound) syncDriverMissing_ = e.description();
    }
    if (!opened) {
      result = false;
    } else if (!doesTableExist(connection)) {
      createTables(path);
    }
  });
  f.step([&] {
    if (connection && connection->isOpen()) connection->close();
  });
  return result;
}

void clsOutlookSynchronization::openOutlookSyncDatabase(const std::string& path) {
  ErrorFrame f(kLoc + "openOutlookSyncDatabase");
  if (!openDataAccess(f, apartment().syncDb, path, appName_)) {
    f.step([&] {
      if (auto mb = messageBox()) {
        mb->showMessage(kSyncDatabaseUnreachable, 3, self(), 0, 0, 101);
      }
    });
    failedToInitialize_ = true;
    return;
  }
  // Only dossync writes this database: a run's pairings may be committed a few at a time.
  f.step([&] { apartment().syncDb->groupWrites(true); });
}

}  // namespace dossync
