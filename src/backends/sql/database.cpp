#include "backends/sql/database.h"

#include <algorithm>
#include <thread>

#include "backends/sql/dialect.h"
#include "base/value.h"

namespace dossync::sql {

// ---- Statement

Statement::Statement(Database& db, const std::string& sql)
    : owner_(db), stmt_(db.engine().prepare(sql)), sql_(sql) {}

void Statement::bind(int index, const Stored& v) {
  auto i = static_cast<size_t>(index - 1);
  if (bound_.size() <= i) bound_.resize(i + 1);
  bound_[i] = v;
  stmt_->bind(index, v);
}

void Statement::bind(int index, const Stored& v, ColumnKind kind) {
  auto i = static_cast<size_t>(index - 1);
  if (bound_.size() <= i) bound_.resize(i + 1);
  bound_[i] = v;
  stmt_->bind(index, v, kind);
}

bool Statement::step() {
  bool first = !running_;
  if (first) owner_.checkPreview();
  if (first) owner_.flushUpdate();
  bool inSnapshot = first && owner_.beforeStatement(*stmt_);
  running_ = true;
  Step rc = stmt_->step();
  std::string msg;
  int32_t code = kStatementFailed;
  if (inSnapshot) {
    // A write made inside the snapshot commits at once, or with the snapshot when writes are
    // grouped. When another connection wrote since the snapshot began, the write cannot join
    // it: it runs again on its own. (A write that answers rows, INSERT ... RETURNING, has
    // them all by now.)
    // A grouped write that met another connection's change takes the writes of its group
    // along into a new snapshot (they were lost with the old one).
    for (int attempt = 0; rc == Step::Stale && owner_.groupsWrites() &&
                          attempt < Database::kRewriteAttempts && owner_.rewriteGroup();
         ++attempt) {
      stmt_->rewind();
      rc = stmt_->step();
    }
    if ((rc == Step::Done || rc == Step::Row) && owner_.groupsWrites()) {
      owner_.noteGroupedWrite();
      owner_.logGroupedWrite(sql_, bound_);
    } else if (rc == Step::Failed && owner_.groupsWrites()) {
      // The group stays open: the record the write was part of is undone with its savepoint
      // (should the engine have undone the whole transaction, the group's commit says so).
      msg = stmt_->errorMessage(), code = stmt_->errorCode();
    } else {
      if (rc == Step::Failed) msg = stmt_->errorMessage(), code = stmt_->errorCode();
      owner_.endSnapshot();
      if (rc == Step::Stale) {
        stmt_->rewind();
        rc = stmt_->step();
        msg.clear();
      }
    }
  }
  if (rc == Step::Row) return true;
  running_ = false;
  if (rc == Step::Done) return false;
  if (msg.empty()) msg = stmt_->errorMessage(), code = stmt_->errorCode();
  if (rc == Step::Stale) code = kDatabaseLocked;
  stmt_->rewind();
  throw RuntimeError(code, "\"" + sql_ + "\" failed on '" + owner_.path() + "': " + msg);
}

void Statement::reset() {
  running_ = false;
  bound_.clear();
  stmt_->reset();
}

int64_t Statement::columnInt(int i) const {
  Stored v = stmt_->column(i);
  return v.type == Stored::Int    ? v.i
         : v.type == Stored::Real ? static_cast<int64_t>(v.r)
         : v.type == Stored::Text ? value::toLong(v.s)
                                  : 0;
}

// ---- Database

Database::Database(std::unique_ptr<Engine> engine) : engine_(std::move(engine)) {}

Database::~Database() {
  try {
    endSnapshot();
  } catch (const RuntimeError&) {
    // Closing without a caller to tell: the data access object commits before it closes.
  }
  statements_.clear();
}

void Database::fail(int32_t code, const std::string& what) const {
  throw RuntimeError(code, what + " ('" + path() + "': " + engine_->lastErrorText() + ")");
}

void Database::setSnapshotReads(bool on) {
  if (!on) endSnapshot();
  snapshotReads_ = on;
}

void Database::setGroupWrites(bool on) {
  if (on == groupWrites_) return;
  if (!on) endSnapshot();
  groupWrites_ = on;
}

// A snapshot that holds grouped writes is no older than its last commit point allows: only
// commitIfDue and endSnapshot end it, so that a group holds whole records.
bool Database::snapshotYoung() const {
  return groupedWrites_ > 0 || writesHeld_ ||
         std::chrono::steady_clock::now() - snapshotStart_ < kSnapshotAge;
}

Database::SnapshotMemo* Database::memo() {
  if (!snapshotOpen_) return nullptr;
  if (!snapshotYoung()) {
    endSnapshot();
    return nullptr;
  }
  return &memo_;
}

bool Database::commitDue() const {
  return snapshotOpen_ && (groupedWrites_ > 0 || writesHeld_) &&
         std::chrono::steady_clock::now() - snapshotStart_ >= kSnapshotAge;
}

void Database::commitIfDue() {
  if (snapshotOpen_ && std::chrono::steady_clock::now() - snapshotStart_ >= kSnapshotAge)
    endSnapshot();
}

void Database::deferUpdate(const TableInfo& table, int column, int64_t rowid, Stored value) {
  if (deferred_.table && (deferred_.table != &table || deferred_.rowid != rowid)) flushUpdate();
  deferred_.table = &table;
  deferred_.rowid = rowid;
  auto& values = deferred_.values;
  auto it = std::find_if(values.begin(), values.end(), [&](auto& v) { return v.first == column; });
  if (it != values.end()) {
    it->second = value;
  } else {
    values.emplace_back(column, value);
  }
  if (!snapshotOpen_) return;
  auto rows = memo_.rows.find(&table);
  if (rows == memo_.rows.end()) return;
  auto row = rows->second.find(rowid);
  if (row == rows->second.end()) return;
  if (Stored* held = row->second->find(static_cast<size_t>(column))) *held = std::move(value);
}

void Database::flushUpdate() {
  if (!deferred_.table) return;
  DeferredUpdate d = std::move(deferred_);
  deferred_ = DeferredUpdate{};
  // A row whose fields all hold their values already is left alone (Jet: written all the same,
  // it has no null-safe comparison that tells case).
  const bool jet = engine_->jetSql();
  std::string set, changed;
  for (size_t k = 0; k < d.values.size(); ++k) {
    const ColumnInfo& c = d.table->columns[static_cast<size_t>(d.values[k].first)];
    std::string column = quoteIdentifier(c.name);
    int param = static_cast<int>(k + 1);
    set += (k ? ", " : "") + column + " = ?" + std::to_string(param);
    changed += (k ? " OR " : "") + differs(column, c.kind, param);
  }
  StatementUse st(cached("UPDATE " + quoteIdentifier(d.table->name) + " SET " + set + " WHERE " +
                         d.table->rowKey + " = ?" + std::to_string(d.values.size() + 1) +
                         (jet ? "" : " AND (" + changed + ")") + ";"));
  for (size_t k = 0; k < d.values.size(); ++k)
    st->bind(static_cast<int>(k + 1), d.values[k].second,
             d.table->columns[static_cast<size_t>(d.values[k].first)].kind);
  st->bind(static_cast<int>(d.values.size() + 1), d.rowid);
  try {
    st->step();
  } catch (const RuntimeError&) {
    indexes_.clear();  // they hold the values that were not written
    throw;
  }
}

void Database::noticeLostTransaction() {
  if (!snapshotOpen_ || preview_ || engine_->inTransaction()) return;
  // The engine undid the snapshot's transaction on its own (after a failed write: a full
  // disk, a lost server transaction). Its grouped writes are gone; the group is failed as a
  // whole when it is committed, so that nothing pairs what was lost.
  if (groupedWrites_ > 0) {
    if (lostWrites_ == 0) lostReason_ = engine_->lastErrorText();
    lostWrites_ += groupedWrites_;
    indexes_.clear();
  }
  snapshotOpen_ = false;
  writesHeld_ = false;
  savepoint_ = false;
  versionSeen_ = false;
  memo_.rows.clear();
  groupedWrites_ = 0;
  groupLog_.clear();
}

void Database::endSnapshot() {
  flushUpdate();
  noticeLostTransaction();
  if (lostWrites_ > 0) {
    int writes = lostWrites_ + groupedWrites_;
    std::string why = lostReason_;
    lostWrites_ = 0;
    dropGroup();
    throw RuntimeError(kDiskIO, "The last " + std::to_string(writes) +
                                    " changes could not be committed to '" + path() + "': " + why);
  }
  if (!snapshotOpen_) return;
  snapshotOpen_ = false;
  writesHeld_ = false;
  savepoint_ = false;
  versionSeen_ = false;
  memo_.rows.clear();
  int writes = groupedWrites_;
  groupedWrites_ = 0;
  groupLog_.clear();
  Expected<void> done = engine_->commit();
  if (done) return;
  // A snapshot of reads only commits to nothing; grouped writes must not vanish unsaid, nor
  // linger in the indexes.
  if (writes > 0) indexes_.clear();
  if (writes > 0)
    throw RuntimeError(kDiskIO, done.error().remedy(),
                       "The last " + std::to_string(writes) +
                           " changes could not be committed to '" + path() +
                           "': " + done.error().description());
}

void Database::dropGroup() {
  deferred_ = DeferredUpdate{};
  savepoint_ = false;
  lostWrites_ = 0;
  if (!snapshotOpen_) return;
  snapshotOpen_ = false;
  writesHeld_ = false;
  versionSeen_ = false;
  memo_.rows.clear();
  if (groupedWrites_ > 0) indexes_.clear();  // they hold what is undone
  groupedWrites_ = 0;
  groupLog_.clear();
  engine_->rollback();
}

void Database::beginRecord() {
  flushUpdate();  // the record before's last writes are not this one's
  inRecord_ = true;
  savepoint_ = false;
}

void Database::holdWrites() {
  if (!groupWrites_ || preview_ || !snapshotReads()) return;
  noticeLostTransaction();
  if (snapshotOpen_ && (groupedWrites_ > 0 || writesHeld_)) return;  // the group has the lock
  flushUpdate();
  if (snapshotOpen_) endSnapshot();      // reads only: nothing to commit
  if (engine_->inTransaction()) return;  // the caller's own
  if (!engine_->beginWriting()) return;
  snapshotOpen_ = true;
  writesHeld_ = true;
  snapshotStart_ = std::chrono::steady_clock::now();
}

void Database::setSavepoint() {
  if (!inRecord_ || savepoint_ || !snapshotOpen_ || !engine_->inTransaction()) return;
  engine_->savepoint(Engine::Savepoint::kSet);
  savepoint_ = true;
  recordStartWrites_ = groupedWrites_;
  recordStartLog_ = groupLog_.size();
}

void Database::releaseSavepoint(bool undo) {
  bool set = savepoint_;
  savepoint_ = false;
  if (!set || !snapshotOpen_ || !engine_->inTransaction()) return;
  try {
    if (undo) {
      engine_->savepoint(Engine::Savepoint::kRollBack);
      groupedWrites_ = recordStartWrites_;
      groupLog_.resize(std::min(groupLog_.size(), recordStartLog_));
      memo_.rows.clear();
      indexes_.clear();  // they hold what is undone
    }
    engine_->savepoint(Engine::Savepoint::kRelease);
  } catch (const RuntimeError&) {
    // The engine lost the transaction already: its commit says so.
  }
}

void Database::endRecord(bool keep) {
  if (!inRecord_) return;
  inRecord_ = false;
  if (!keep && deferred_.table) {  // written to the memo and the indexes only
    deferred_ = DeferredUpdate{};
    memo_.rows.clear();
    indexes_.clear();
  }
  releaseSavepoint(!keep);
}

void Database::logGroupedWrite(const std::string& sql, const std::vector<Stored>& params) {
  if (!engine_->losesGroupOnConflict()) return;  // a group that holds the write lock meets none
  groupLog_.push_back(LoggedWrite{sql, params});
}

bool Database::rewriteGroup() {
  if (!snapshotOpen_ || groupLog_.empty()) return false;
  std::string msg;
  for (int attempt = 0; attempt < kRewriteAttempts; ++attempt) {
    // The lost transaction: rolled back already.
    if (auto done = engine_->commit(); !done) msg = done.error().description();
    if (attempt > 0) std::this_thread::sleep_for(std::chrono::milliseconds(5 * attempt));
    memo_.rows.clear();
    versionSeen_ = false;
    if (!engine_->begin()) break;
    Step rc = Step::Done;
    // The record's savepoint goes where it was: before the record's own writes.
    bool record = savepoint_;
    auto mark = [&](size_t k) {
      if (record && k == recordStartLog_) engine_->savepoint(Engine::Savepoint::kSet);
    };
    for (size_t k = 0; k < groupLog_.size(); ++k) {
      const LoggedWrite& w = groupLog_[k];
      mark(k);
      auto st = engine_->prepare(w.sql);
      for (size_t i = 0; i < w.params.size(); ++i) st->bind(static_cast<int>(i + 1), w.params[i]);
      while ((rc = st->step()) == Step::Row) {
      }
      if (rc != Step::Done) {
        msg = st->errorMessage();
        break;
      }
    }
    if (rc == Step::Done) {
      mark(groupLog_.size());
      return true;
    }
    if (rc != Step::Stale) break;
  }
  // Given up: the group is lost, and the indexes that hold its writes with it.
  int writes = groupedWrites_;
  snapshotOpen_ = false;
  writesHeld_ = false;
  savepoint_ = false;
  groupedWrites_ = 0;
  groupLog_.clear();
  indexes_.clear();
  if (engine_->inTransaction()) {
    if (auto done = engine_->commit(); !done) msg = done.error().description();
  }
  throw RuntimeError(kDiskIO, "The last " + std::to_string(writes) +
                                  " changes could not be committed to '" + path() + "': " + msg);
}

bool Database::beforeStatement(EngineStatement& statement) {
  if (!snapshotReads()) return false;
  noticeLostTransaction();
  bool reads = statement.readOnly();
  if (snapshotOpen_) {
    bool young = snapshotYoung();
    if (reads && young) return false;
    if (!reads && young) {
      memo_.rows.clear();  // what the write changes must not be answered from the memo
      if (groupWrites_) setSavepoint();
      return true;
    }
    endSnapshot();
  }
  if (engine_->inTransaction()) return false;  // the caller's own transaction
  if (!reads && !groupWrites_) return false;   // a write on its own
  if (engine_->begin()) {
    snapshotOpen_ = true;
    snapshotStart_ = std::chrono::steady_clock::now();
  }
  if (!reads && snapshotOpen_) setSavepoint();
  return !reads && snapshotOpen_;  // a grouped write opens the snapshot it joins
}

void Database::exec(const std::string& sql) {
  endSnapshot();
  indexes_.clear();
  engine_->exec(sql);
}

Statement& Database::cached(const std::string& sql) {
  auto it = statements_.find(sql);
  if (it != statements_.end()) return *it->second;
  auto st = std::make_unique<Statement>(*this, sql);
  return *statements_.emplace(sql, std::move(st)).first->second;
}

std::shared_ptr<const TableInfo> Database::table(const std::string& name) {
  std::string key = value::upper(name);
  auto it = tables_.find(key);
  if (it != tables_.end()) return it->second;
  std::string viewOf;
  std::shared_ptr<const TableInfo> info = engine_->describeTable(name, viewOf);
  if (!info) {
    // A view that only renames a table ("CREATE VIEW v AS SELECT * FROM t") is that table.
    if (viewOf.empty() || value::equalsIgnoreCase(viewOf, name)) return nullptr;
    info = table(viewOf);
    if (!info) return nullptr;
  }
  return tables_.emplace(key, std::move(info)).first->second;
}

void Database::forgetSchema() {
  indexes_.clear();
  tables_.clear();
}

Stored Database::defaultValue(const TableInfo& table, int column) {
  const ColumnInfo& c = table.columns[static_cast<size_t>(column)];
  if (c.defaultSql.empty()) return Stored{};
  StatementUse st(cached("SELECT " + c.defaultSql + ";"));
  return st->step() ? st->column(0) : Stored{};
}

const ColumnIndex& Database::columnIndex(const TableInfo& table, int column) {
  // Inside a read snapshot no other connection's write can show: one look per snapshot.
  if (!versionSeen_) {
    uint64_t version = engine_->dataVersion();
    versionSeen_ = snapshotOpen_;
    if (version != indexVersion_) {  // another connection wrote: every index is stale
      indexes_.clear();
      indexVersion_ = version;
    }
  }
  auto& byColumn = indexes_[&table];
  auto it = byColumn.find(column);
  if (it != byColumn.end()) return it->second;
  ColumnIndex& index = byColumn[column];
  const ColumnInfo& c = table.columns[static_cast<size_t>(column)];
  Statement scan(*this, "SELECT " + table.rowKey + ", " + quoteIdentifier(c.name) + " FROM " +
                            quoteIdentifier(table.name) + ";");
  while (scan.step()) {
    if (auto key = findKey(c, scan.column(1))) index.add(scan.columnInt(0), std::move(*key));
  }
  return index;
}

void Database::indexUpdate(const TableInfo& table, int column, int64_t rowid, const Stored& value) {
  auto t = indexes_.find(&table);
  if (t == indexes_.end()) return;
  auto it = t->second.find(column);
  if (it == t->second.end()) return;
  if (auto key = findKey(table.columns[static_cast<size_t>(column)], value)) {
    it->second.add(rowid, std::move(*key));
  } else {
    it->second.remove(rowid);
  }
}

void Database::indexInsert(const TableInfo& table, int64_t rowid,
                           const std::vector<std::optional<Stored>>* given) {
  auto t = indexes_.find(&table);
  if (t == indexes_.end() || t->second.empty()) return;
  auto kept = [&](int column) -> const Stored* {
    if (!given) return nullptr;
    const auto& v = (*given)[static_cast<size_t>(column)];
    if (!v) return nullptr;
    ColumnKind kind = table.columns[static_cast<size_t>(column)].kind;
    bool text = kind == ColumnKind::Text || kind == ColumnKind::Memo;
    return (text && v->type == Stored::Text) ||
                   (kind == ColumnKind::Integer && v->type == Stored::Int)
               ? &*v
               : nullptr;
  };
  if (std::all_of(t->second.begin(), t->second.end(),
                  [&](const auto& entry) { return kept(entry.first) != nullptr; })) {
    for (auto& [column, index] : t->second) indexUpdate(table, column, rowid, *kept(column));
    return;
  }
  // The row as stored, defaults included.
  std::string sql = "SELECT ";
  std::vector<int> columns;
  for (auto& [column, index] : t->second) {
    if (!columns.empty()) sql += ", ";
    sql += quoteIdentifier(table.columns[static_cast<size_t>(column)].name);
    columns.push_back(column);
  }
  StatementUse st(
      cached(sql + " FROM " + quoteIdentifier(table.name) + " WHERE " + table.rowKey + " = ?1;"));
  st->bind(1, rowid);
  if (!st->step()) return;
  for (size_t k = 0; k < columns.size(); ++k)
    indexUpdate(table, columns[k], rowid, st->column(static_cast<int>(k)));
}

void Database::indexDelete(const TableInfo& table, int64_t rowid) {
  auto t = indexes_.find(&table);
  if (t == indexes_.end()) return;
  for (auto& [column, index] : t->second) index.remove(rowid);
}

void Database::beginPreview() {
  if (preview_) return;
  endSnapshot();
  if (!engine_->begin())
    throw RuntimeError(kDiskIO,
                       "Cannot begin a preview on '" + path() + "': " + engine_->lastErrorText());
  preview_ = true;
}

void Database::endPreview() {
  if (!preview_) return;
  deferred_ = DeferredUpdate{};
  engine_->rollback();
  preview_ = false;
  previewKeys_.clear();
  reservedTables_.clear();
  indexes_.clear();  // they hold what was rolled back
  memo_.rows.clear();
}

void Database::checkPreview() const {
  if (preview_ && !engine_->inTransaction())
    throw RuntimeError(kDiskIO, "The preview on '" + path() +
                                    "' lost its transaction after an error: nothing more is read "
                                    "or written");
}

bool Database::hasReservedKeys(const TableInfo& table) const {
  return reservedTables_.count(value::upper(table.name)) > 0;
}

int64_t Database::reserveKey(const TableInfo& table) {
  flushUpdate();
  if (preview_ && table.counterColumn() >= 0) {
    checkPreview();
    const std::string& key = table.columns[static_cast<size_t>(table.counterColumn())].name;
    StatementUse st(cached("SELECT max(" + quoteIdentifier(key) + ") FROM " +
                           quoteIdentifier(table.name) + ";"));
    int64_t top = st->step() ? st->columnInt(0) : 0;
    int64_t& last = previewKeys_[value::upper(table.name)];
    last = std::max(top, last) + 1;
    reservedTables_.insert(value::upper(table.name));
    return last;
  }
  // A number taken by a write joins the grouped writes, or else commits at once: a read
  // snapshot ends first, so the write does not stay open in it.
  const bool writes = engine_->keysAreWrites();
  if (writes && !groupWrites_) endSnapshot();
  int64_t key = 0;
  try {
    key = engine_->reserveKey(table);
  } catch (const StaleSnapshot&) {
    endSnapshot();  // another connection wrote since it began: the number is taken on its own
    key = engine_->reserveKey(table);
  }
  if (writes && groupWrites_ && engine_->inTransaction()) noteGroupedWrite();
  reservedTables_.insert(value::upper(table.name));
  return key;
}

}  // namespace dossync::sql
