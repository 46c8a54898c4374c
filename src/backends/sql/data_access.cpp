#include "backends/sql/data_access.h"

#include "base/platform.h"
#include "core/apartment.h"

namespace dossync::sql {

DataAccess::DataAccess(Opener opener) : opener_(std::move(opener)) {}

DataAccess::~DataAccess() {
  try {
    closeDatabase();
  } catch (const RuntimeError&) {
    // Nobody left to tell; grouped writes are committed by idle() and closeDatabase() first.
  }
}

void DataAccess::setErrorService(std::shared_ptr<IErrorService> service) {
  errorService_ = std::move(service);
}

bool DataAccess::openDatabase(int32_t mode) {
  closeDatabase();
  lastError_.clear();
  try {
    db_ = std::make_unique<Database>(opener_(location_));
    db_->setSnapshotReads(true);
    return true;
  } catch (const RuntimeError& e) {
    lastError_ = e.description();
    if (errorService_) {
      try {
        errorService_->recordError(RuntimeError(e.number(), e.remedy(), e.description(), appName_));
        errorService_->reportError();
      } catch (...) {
      }
    }
    return false;
  }
}

bool DataAccess::beginPreview() {
  if (!db_) return false;
  db_->beginPreview();
  return true;
}

void DataAccess::endPreview() {
  if (db_) db_->endPreview();
}

bool DataAccess::previewing() {
  return db_ && db_->previewing();
}

void DataAccess::closeDatabase() {
  recordsets_.clear();
  if (!db_) return;
  std::unique_ptr<Database> db = std::move(db_);
  db->endPreview();
  db->endSnapshot();  // commits grouped writes, or says why not
}

void DataAccess::groupWrites(bool on) {
  groupWrites_ = on;
  if (!on && db_) db_->setGroupWrites(false);
}

void DataAccess::commitPoint() {
  if (db_) db_->commitIfDue();
}

void DataAccess::dropGroup() {
  if (db_) db_->dropGroup();
}

void DataAccess::beginRecord() {
  if (db_) db_->beginRecord();
}

void DataAccess::endRecord(bool keep) {
  if (db_) db_->endRecord(keep);
}

void DataAccess::holdWrites() {
  if (!db_) return;
  beforeWrite();
  db_->holdWrites();
}

void DataAccess::beforeWrite() {
  if (db_) db_->setGroupWrites(groupWrites_ && apartment().procedureDepth > 0);
}

Recordset& DataAccess::recordset(int32_t handle) {
  auto it = recordsets_.find(handle);
  if (it == recordsets_.end())
    throw RuntimeError(kObjectClosed,
                       "Operation is not allowed when the object is closed: "
                       "recordset handle " +
                           std::to_string(handle) + " is not open");
  return *it->second;
}

int32_t DataAccess::openRecordset(const std::string& sql, int32_t cursorKind, int32_t lockKind,
                                  bool, const std::string&) {
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
    const bool jet = db_->engine().jetSql();
    if (table && !table->rowKey.empty()) {
      if (!shape.cursor || shape.cursor->table != table)
        shape.cursor = std::make_shared<CursorShape>(table, *shape.query, jet);
      rs = std::make_unique<TableRecordset>(*db_, shape.cursor, lockKind == hostdb::kLockReadOnly);
    } else {
      // A Jet table without a key is written row by row, each named by its values.
      rs = std::make_unique<ResultRecordset>(*db_, sql, jet ? table : nullptr,
                                             lockKind == hostdb::kLockReadOnly);
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
void DataAccess::closeRecordset(int32_t handle) {
  recordset(handle);
  recordsets_.erase(handle);
  if (recordsets_.empty() && apartment().procedureDepth == 0) db_->endSnapshot();
}

void DataAccess::idle() {
  if (db_) db_->endSnapshot();
}

bool DataAccess::isEOF(int32_t handle) {
  return recordset(handle).isEOF();
}
bool DataAccess::hasCurrentRow(int32_t handle) {
  return recordset(handle).hasCurrentRow();
}
void DataAccess::moveNext(int32_t handle) {
  recordset(handle).moveNext();
}

std::string DataAccess::readField(int32_t handle, const std::string& field) {
  return recordset(handle).read(field);
}

void DataAccess::writeField(int32_t handle, const std::string& field, const std::string& value,
                            bool) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.write(field, value);
}

void DataAccess::addNew(int32_t handle) {
  recordset(handle).addNew();
}

void DataAccess::setNewField(int32_t handle, const std::string& field, const std::string& value) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.setNew(field, value);
}

void DataAccess::saveNew(int32_t handle) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.saveNew();
}

bool DataAccess::findFirst(int32_t handle, const std::string& field, const std::string& value) {
  return recordset(handle).findFirst(field, value);
}

void DataAccess::findNext(int32_t handle) {
  recordset(handle).findNext();
}
void DataAccess::deleteCurrent(int32_t handle) {
  Recordset& rs = recordset(handle);
  beforeWrite();
  rs.deleteCurrent();
}

}  // namespace dossync::sql
