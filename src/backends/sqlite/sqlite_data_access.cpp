#include "backends/sqlite/sqlite_data_access.h"

#include <filesystem>

#include "backends/sqlite/recordset.h"
#include "core/apartment.h"
#include "core/platform.h"

namespace dossync::sqlite {

SqliteDataAccess::SqliteDataAccess() = default;

SqliteDataAccess::~SqliteDataAccess() {
  try {
    closeDatabase();
  } catch (const RuntimeError&) {
    // Nobody left to tell; grouped writes are committed by idle() and closeDatabase() first.
  }
}

void SqliteDataAccess::setErrorService(std::shared_ptr<IErrorService> service) {
  errorService_ = std::move(service);
}

bool SqliteDataAccess::openDatabase(int32_t mode) {
  closeDatabase();
  lastError_.clear();
  try {
    db_ = std::make_unique<Database>(location_, false);
    db_->setSnapshotReads(true);
    return true;
  } catch (const RuntimeError& e) {
    lastError_ = e.description();
    if (errorService_) {
      try {
        errorService_->recordError(RuntimeError(e.number(), e.description(), appName_));
        errorService_->reportError();
      } catch (...) {
      }
    }
    return false;
  }
}

void SqliteDataAccess::closeDatabase() {
  recordsets_.clear();
  if (!db_) return;
  std::unique_ptr<Database> db = std::move(db_);
  db->endSnapshot();  // commits grouped writes, or says why not
}

void SqliteDataAccess::groupWrites(bool on) {
  groupWrites_ = on;
  if (!on && db_) db_->setGroupWrites(false);
}

void SqliteDataAccess::commitPoint() {
  if (db_) db_->commitIfDue();
}

void SqliteDataAccess::beforeWrite() {
  if (db_) db_->setGroupWrites(groupWrites_ && apartment().procedureDepth > 0);
}

Recordset& SqliteDataAccess::recordset(int32_t handle) {
  auto it = recordsets_.find(handle);
  if (it == recordsets_.end())
    throw RuntimeError(kObjectClosed,
                       "Operation is not allowed when the object is closed: "
                       "recordset handle " +
                           std::to_string(handle) + " is not open");
  return *it->second;
}

int32_t SqliteDataAccess::openRecordset(const std::string& sql, int32_t cursorKind,
                                        int32_t lockKind, bool, const std::string&) {
  if (!db_)
    throw RuntimeError(kObjectClosed,
                       "Operation is not allowed when the object is closed: no "
                       "database is open for \"" +
                           sql + "\"");
  std::unique_ptr<Recordset> rs;
  try {
    auto it = shapes_.find(sql);
    if (it == shapes_.end()) it = shapes_.emplace(sql, Shape{parseTableQuery(sql), nullptr}).first;
    Shape& shape = it->second;
    std::shared_ptr<const TableInfo> table = shape.query ? db_->table(shape.query->table) : nullptr;
    if (table) {
      if (!shape.cursor || shape.cursor->table != table)
        shape.cursor = std::make_shared<CursorShape>(table, *shape.query);
      rs = std::make_unique<TableRecordset>(*db_, shape.cursor, lockKind == hostdb::kLockReadOnly);
    } else {
      rs = std::make_unique<ResultRecordset>(*db_, sql);
    }
  } catch (...) {
    if (recordsets_.empty()) db_->endSnapshot();
    throw;
  }
  int32_t handle = nextHandle_++;
  if (nextHandle_ <= 0) nextHandle_ = 1;
  recordsets_.emplace(handle, std::move(rs));
  return handle;
}

// Outside any procedure, a read snapshot ends with the last open recordset.
void SqliteDataAccess::closeRecordset(int32_t handle) {
  recordset(handle);
  recordsets_.erase(handle);
  if (recordsets_.empty() && apartment().procedureDepth == 0) db_->endSnapshot();
}

void SqliteDataAccess::idle() {
  if (db_) db_->endSnapshot();
}

bool SqliteDataAccess::isEOF(int32_t handle) {
  return recordset(handle).isEOF();
}
bool SqliteDataAccess::hasCurrentRow(int32_t handle) {
  return recordset(handle).hasCurrentRow();
}
void SqliteDataAccess::moveNext(int32_t handle) {
  recordset(handle).moveNext();
}

std::string SqliteDataAccess::readField(int32_t handle, const std::string& field) {
  return recordset(handle).read(field);
}

void SqliteDataAccess::writeField(int32_t handle, const std::string& field,
                                  const std::string& value, bool) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.write(field, value);
}

void SqliteDataAccess::addNew(int32_t handle) {
  recordset(handle).addNew();
}

void SqliteDataAccess::setNewField(int32_t handle, const std::string& field,
                                   const std::string& value) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.setNew(field, value);
}

void SqliteDataAccess::saveNew(int32_t handle) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.saveNew();
}

bool SqliteDataAccess::findFirst(int32_t handle, const std::string& field,
                                 const std::string& value) {
  return recordset(handle).findFirst(field, value);
}

void SqliteDataAccess::findNext(int32_t handle) {
  recordset(handle).findNext();
}
void SqliteDataAccess::deleteCurrent(int32_t handle) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.deleteCurrent();
}

// ---- Connection and catalog

void SqliteConnection::open(const std::string& connectionString) {
  db_.reset();
  std::string path = store::dataSourceOf(connectionString);
  if (!std::filesystem::exists(path))
    throw RuntimeError(kCannotOpenDatabase, "Could not find file '" + path + "'");
  db_ = std::make_unique<Database>(path, false);
}

void SqliteCatalog::create(const std::string& connectionString) {
  std::string path = store::dataSourceOf(connectionString);
  if (path.empty())
    throw RuntimeError(kCannotOpenDatabase, "No Data Source in the connection string");
  if (std::filesystem::exists(path))
    throw RuntimeError(kFileAlreadyExists, "Database '" + path + "' already exists");
  Database db(path, true);
  // Marks the file as ours and writes its header, so it is a database even before it has tables.
  db.exec("PRAGMA application_id = 1146311507; PRAGMA journal_mode = WAL;");
}

void SqliteCatalog::setActiveConnection(std::shared_ptr<store::IConnection> connection) {
  connection_ = std::dynamic_pointer_cast<SqliteConnection>(connection);
}

Database& SqliteCatalog::active() {
  if (!connection_ || !connection_->database())
    throw RuntimeError(kObjectClosed,
                       "Operation is not allowed when the object is closed: the "
                       "catalog has no open connection");
  return *connection_->database();
}

std::vector<std::string> SqliteCatalog::tableNames() {
  Database& db = active();
  Statement st(db,
               "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' "
               "ORDER BY name;");
  std::vector<std::string> names;
  while (st.step()) names.push_back(st.column(0).s);
  return names;
}

void SqliteCatalog::appendTable(const store::TableDef& table) {
  Database& db = active();
  if (db.table(table.name))
    throw RuntimeError(kTableExists,
                       "Table '" + table.name + "' already exists in '" + db.path() + "'");
  std::string sql = "CREATE TABLE " + quoteIdentifier(table.name) + " (";
  bool first = true;
  for (const store::ColumnDef& c : table.columns) {
    if (!first) sql += ", ";
    first = false;
    sql += quoteIdentifier(c.name) + " ";
    if (c.property("AutoIncrement")) {
      sql += "INTEGER PRIMARY KEY AUTOINCREMENT";
      continue;
    }
    switch (c.type) {
      case store::adInteger:
        sql += "INTEGER";
        break;
      case store::adDate:
        sql += "DATETIME";
        break;
      case store::adBoolean:
        sql += "BOOLEAN";
        break;
      case store::adVarWChar:
        sql += "VARCHAR(" + std::to_string(c.definedSize) + ")";
        break;
      default:
        sql += "TEXT";
        break;
    }
    if (!c.property("NullAble")) sql += " NOT NULL";
  }
  sql += ");";
  db.exec(sql);
  db.forgetSchema();
}

void registerSqliteClasses() {
  platform::registerClass(platform::kDataAccess,
                          [] { return std::make_shared<SqliteDataAccess>(); });
  platform::registerClass(platform::kAdoConnection,
                          [] { return std::make_shared<SqliteConnection>(); });
  platform::registerClass(platform::kAdoxCatalog, [] { return std::make_shared<SqliteCatalog>(); });
}

}  // namespace dossync::sqlite
