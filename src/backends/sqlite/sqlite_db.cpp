#include "backends/sqlite/sqlite_db.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "core/value.h"

namespace dossync::sqlite {

namespace {
// The text between `quote`s, each quote inside doubled.
std::string quoted(const std::string& text, char quote) {
  std::string out(1, quote);
  for (char c : text) {
    if (c == quote) out += quote;
    out += c;
  }
  return out + quote;
}

std::string quoteText(const std::string& text) {
  return quoted(text, '\'');
}
}  // namespace

std::string quoteIdentifier(const std::string& name) {
  return quoted(name, '"');
}

ColumnInfo describeColumn(const std::string& name, const std::string& declaredType) {
  ColumnInfo c;
  c.name = name;
  c.declaredType = declaredType;
  std::string t = value::upper(declaredType);
  auto has = [&](const char* w) { return t.find(w) != std::string::npos; };
  size_t paren = t.find('(');
  if (has("BOOL") || has("YESNO") || t == "BIT") {
    c.kind = ColumnKind::Boolean;
  } else if (has("DATE") || has("TIME")) {
    c.kind = ColumnKind::DateTime;
  } else if (has("CHAR") || (paren != std::string::npos && has("TEXT"))) {
    c.kind = ColumnKind::Text;
    if (paren != std::string::npos) c.size = std::atoi(t.c_str() + paren + 1);
  } else if (has("TEXT") || has("MEMO") || has("CLOB")) {
    c.kind = ColumnKind::Memo;
  } else if (has("INT") || has("COUNTER") || has("LONG")) {
    c.kind = ColumnKind::Integer;
  } else if (has("REAL") || has("FLOA") || has("DOUB") || has("NUMERIC") || has("DECIMAL") ||
             has("CURRENCY") || has("MONEY")) {
    c.kind = ColumnKind::Real;
  }
  return c;
}

bool CaseInsensitiveEqual::operator()(std::string_view a, std::string_view b) const {
  return value::equalsIgnoreCase(a, b);
}

int TableInfo::find(std::string_view field) const {
  auto it = byName.find(field);
  return it == byName.end() ? -1 : it->second;
}

Stored toStored(const std::string& table, const ColumnInfo& column, const std::string& text) {
  Stored v;
  auto mismatch = [&](const char* what) {
    throw RuntimeError(kTypeMismatch, "Data type mismatch: " + table + "." + column.name +
                                          " takes " + what + ", not '" + text + "'");
  };
  switch (column.kind) {
    case ColumnKind::Text:
      if (column.size > 0 && value::characterCount(text) > static_cast<size_t>(column.size)) {
        throw RuntimeError(kFieldTooSmall,
                           "The field is too small to accept the amount of data you attempted "
                           "to add: " +
                               table + "." + column.name + " holds at most " +
                               std::to_string(column.size) + " characters, the value has " +
                               std::to_string(value::characterCount(text)));
      }
      [[fallthrough]];
    case ColumnKind::Memo:
    case ColumnKind::Other:
      v.type = Stored::Text;
      v.s = text;
      return v;
    case ColumnKind::Integer:
      if (value::isBlank(text)) return v;
      if (!value::isNumeric(text) && !value::parseBoolean(text)) mismatch("a whole number");
      v.type = Stored::Int;
      v.i = value::toLong(text);
      return v;
    case ColumnKind::Real:
      if (value::isBlank(text)) return v;
      if (!value::isNumeric(text)) mismatch("a number");
      v.type = Stored::Real;
      v.r = std::strtod(value::trim(text).c_str(), nullptr);
      return v;
    case ColumnKind::Boolean: {
      v.type = Stored::Int;
      if (value::isBlank(text)) return v;
      auto b = value::parseBoolean(text);
      if (!b) mismatch("True or False");
      v.i = *b ? 1 : 0;
      return v;
    }
    case ColumnKind::DateTime: {
      if (value::isBlank(text)) return v;
      auto d = value::parseDate(text);
      if (!d) mismatch("a date");
      v.type = Stored::Text;
      v.s = value::toText(*d);
      return v;
    }
  }
  return v;
}

namespace {
std::string realText(double r) {
  if (std::isfinite(r) && r == std::floor(r) && std::fabs(r) < 1e15)
    return std::to_string(static_cast<int64_t>(r));
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15g", r);
  return buf;
}
}  // namespace

std::optional<std::string> findKey(const ColumnInfo& column, const Stored& value) {
  if (value.type == Stored::Null) return std::nullopt;
  return value::foldCase(fromStored(column, value));
}

std::string findKey(const ColumnInfo& column, const std::string& text) {
  if (column.kind == ColumnKind::Boolean) {
    if (auto b = value::parseBoolean(text)) return value::foldCase(value::fromBoolean(*b));
  } else if (column.kind == ColumnKind::DateTime) {
    if (auto d = value::parseDate(text)) return value::foldCase(value::toText(*d));
  }
  return value::foldCase(text);
}

std::string fromStored(const ColumnInfo& column, const Stored& v) {
  if (column.kind == ColumnKind::Boolean) {
    switch (v.type) {
      case Stored::Null:
        return "False";
      case Stored::Int:
        return value::fromBoolean(v.i != 0);
      case Stored::Real:
        return value::fromBoolean(v.r != 0);
      case Stored::Text: {
        auto b = value::parseBoolean(v.s);
        return b ? value::fromBoolean(*b) : v.s;
      }
    }
  }
  switch (v.type) {
    case Stored::Null:
      return "";
    case Stored::Int:
      return std::to_string(v.i);
    case Stored::Real:
      return realText(v.r);
    case Stored::Text:
      if (column.kind == ColumnKind::DateTime) {
        if (auto d = value::parseDate(v.s)) return value::toText(*d);
      }
      return v.s;
  }
  return "";
}

// ---- Statement

Statement::Statement(Database& db, const std::string& sql)
    : owner_(db), db_(db.handle()), sql_(sql) {
  if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &stmt_, nullptr) !=
      SQLITE_OK) {
    std::string msg = sqlite3_errmsg(db_);
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
    throw RuntimeError(kStatementFailed,
                       "Cannot run \"" + sql + "\" on '" + owner_.path() + "': " + msg);
  }
}

Statement::~Statement() {
  sqlite3_finalize(stmt_);
}

void Statement::bind(int index, const Stored& v) {
  switch (v.type) {
    case Stored::Null:
      sqlite3_bind_null(stmt_, index);
      break;
    case Stored::Int:
      sqlite3_bind_int64(stmt_, index, v.i);
      break;
    case Stored::Real:
      sqlite3_bind_double(stmt_, index, v.r);
      break;
    case Stored::Text:
      sqlite3_bind_text(stmt_, index, v.s.data(), static_cast<int>(v.s.size()), SQLITE_TRANSIENT);
      break;
  }
}

void Statement::bind(int index, int64_t v) {
  sqlite3_bind_int64(stmt_, index, v);
}

void Statement::bind(int index, const std::string& v) {
  sqlite3_bind_text(stmt_, index, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
}

bool Statement::step() {
  bool first = !running_;
  if (first) owner_.flushUpdate();
  bool inSnapshot = first && owner_.beforeStatement(stmt_);
  running_ = true;
  int rc = sqlite3_step(stmt_);
  std::string msg;
  if (inSnapshot && rc != SQLITE_ROW) {
    // A write made inside the snapshot commits at once, or with the snapshot when writes are
    // grouped. When another connection wrote since the snapshot began, the write cannot join
    // it: it runs again on its own.
    if (rc == SQLITE_DONE && owner_.groupsWrites()) {
      owner_.noteGroupedWrite();
    } else {
      if (rc != SQLITE_DONE) msg = sqlite3_errmsg(db_);
      owner_.endSnapshot();
      if ((rc & 0xff) == SQLITE_BUSY) {
        sqlite3_reset(stmt_);
        rc = sqlite3_step(stmt_);
        msg.clear();
      }
    }
  }
  // A statement of its own (no transaction open, no row given yet) that found the file busy for
  // the whole busy timeout has done nothing: it is tried again, a bounded number of times. Other
  // processes' locks change hands often, and one wait that kept losing is not the end of it.
  for (int retry = 0; first && (rc & 0xff) == SQLITE_BUSY && sqlite3_get_autocommit(db_) &&
                      retry < Database::kBusyRetries;
       ++retry) {
    sqlite3_reset(stmt_);
    rc = sqlite3_step(stmt_);
    msg.clear();
  }
  if (rc == SQLITE_ROW) return true;
  running_ = false;
  if (rc == SQLITE_DONE) return false;
  if (msg.empty()) msg = sqlite3_errmsg(db_);
  sqlite3_reset(stmt_);
  int32_t code = (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) ? kDatabaseLocked
                 : rc == SQLITE_READONLY                    ? kNotUpdatable
                 : rc == SQLITE_NOTADB                      ? kNotADatabase
                 : rc == SQLITE_IOERR                       ? kDiskIO
                                                            : kStatementFailed;
  throw RuntimeError(code, "\"" + sql_ + "\" failed on '" + owner_.path() + "': " + msg);
}

void Statement::reset() {
  running_ = false;
  sqlite3_reset(stmt_);
  sqlite3_clear_bindings(stmt_);
}

int Statement::columnCount() const {
  return sqlite3_column_count(stmt_);
}

Stored Statement::column(int i) const {
  Stored v;
  switch (sqlite3_column_type(stmt_, i)) {
    case SQLITE_NULL:
      break;
    case SQLITE_INTEGER:
      v.type = Stored::Int;
      v.i = sqlite3_column_int64(stmt_, i);
      break;
    case SQLITE_FLOAT:
      v.type = Stored::Real;
      v.r = sqlite3_column_double(stmt_, i);
      break;
    default: {
      v.type = Stored::Text;
      const unsigned char* t = sqlite3_column_text(stmt_, i);
      int n = sqlite3_column_bytes(stmt_, i);
      if (t) v.s.assign(reinterpret_cast<const char*>(t), static_cast<size_t>(n));
    }
  }
  return v;
}

int64_t Statement::columnInt(int i) const {
  return sqlite3_column_int64(stmt_, i);
}

std::string Statement::columnName(int i) const {
  const char* n = sqlite3_column_name(stmt_, i);
  return n ? n : "";
}

std::string Statement::columnDeclType(int i) const {
  const char* t = sqlite3_column_decltype(stmt_, i);
  return t ? t : "";
}

// ---- Database

Database::Database(const std::string& path, bool create) : path_(path) {
  // Connections are used by one thread each: no statistics to keep under a lock.
  static const bool configured = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) == SQLITE_OK;
  (void)configured;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
  int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
  if (rc != SQLITE_OK && !create) {
    sqlite3_close(db_);
    db_ = nullptr;
    rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    readOnly_ = rc == SQLITE_OK;
  }
  if (rc != SQLITE_OK) {
    std::string msg = db_ ? sqlite3_errmsg(db_) : "out of memory";
    sqlite3_close(db_);
    db_ = nullptr;
    throw RuntimeError(kCannotOpenDatabase, "Cannot open database '" + path + "': " + msg);
  }
  sqlite3_busy_timeout(db_, kBusyTimeoutMs);
  // ORDER BY on text sorts the way finds compare (the data access object adds the collation).
  sqlite3_create_collation_v2(
      db_, "dossync_text", SQLITE_UTF8, nullptr,
      [](void*, int n1, const void* a, int n2, const void* b) {
        return value::compareText({static_cast<const char*>(a), static_cast<size_t>(n1)},
                                  {static_cast<const char*>(b), static_cast<size_t>(n2)});
      },
      nullptr);
  char* err = nullptr;
  rc = sqlite3_exec(db_, "SELECT count(*) FROM sqlite_master;", nullptr, nullptr, &err);
  if (rc != SQLITE_OK) {
    std::string msg = err ? err : sqlite3_errstr(rc);
    sqlite3_free(err);
    sqlite3_close(db_);
    db_ = nullptr;
    throw RuntimeError(rc == SQLITE_NOTADB ? kNotADatabase : kCannotOpenDatabase,
                       "Cannot open database '" + path + "': " + msg);
  }
  sqlite3_exec(db_, "PRAGMA synchronous=NORMAL;", nullptr, nullptr, nullptr);
  Statement mode(*this, "PRAGMA journal_mode;");
  wal_ = mode.step() && value::equalsIgnoreCase(mode.column(0).s, "wal");
}

Database::~Database() {
  try {
    endSnapshot();
  } catch (const RuntimeError&) {
    // Closing without a caller to tell: the data access object commits before it closes.
  }
  sqlite3_finalize(begin_);
  sqlite3_finalize(commit_);
  statements_.clear();
  sqlite3_close(db_);
}

void Database::fail(int32_t code, const std::string& what) const {
  throw RuntimeError(code, what + " ('" + path_ + "': " + sqlite3_errmsg(db_) + ")");
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

bool Database::runRaw(sqlite3_stmt*& statement, const char* sql) {
  if (!statement && sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK)
    return false;
  int rc = sqlite3_step(statement);
  sqlite3_reset(statement);
  return rc == SQLITE_DONE;
}

// A snapshot that holds grouped writes is no older than its last commit point allows: only
// commitIfDue and endSnapshot end it, so that a group holds whole records.
bool Database::snapshotYoung() const {
  return groupedWrites_ > 0 || std::chrono::steady_clock::now() - snapshotStart_ < kSnapshotAge;
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
  return snapshotOpen_ && groupedWrites_ > 0 &&
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
  auto c = static_cast<size_t>(column);
  if (row->second->loaded[c]) row->second->values[c] = std::move(value);
}

void Database::flushUpdate() {
  if (!deferred_.table) return;
  DeferredUpdate d = std::move(deferred_);
  deferred_ = DeferredUpdate{};
  // A row whose fields all hold their values already is left alone.
  std::string set, changed;
  for (size_t k = 0; k < d.values.size(); ++k) {
    std::string column =
        quoteIdentifier(d.table->columns[static_cast<size_t>(d.values[k].first)].name);
    std::string param = "?" + std::to_string(k + 1);
    set += (k ? ", " : "") + column + " = " + param;
    changed += (k ? " OR " : "") + column + " IS NOT " + param;
  }
  StatementUse st(cached("UPDATE " + quoteIdentifier(d.table->name) + " SET " + set +
                         " WHERE rowid = ?" + std::to_string(d.values.size() + 1) + " AND (" +
                         changed + ");"));
  for (size_t k = 0; k < d.values.size(); ++k)
    st->bind(static_cast<int>(k + 1), d.values[k].second);
  st->bind(static_cast<int>(d.values.size() + 1), d.rowid);
  try {
    st->step();
  } catch (const RuntimeError&) {
    indexes_.clear();  // they hold the values that were not written
    throw;
  }
}

void Database::endSnapshot() {
  flushUpdate();
  if (!snapshotOpen_) return;
  snapshotOpen_ = false;
  versionSeen_ = false;
  memo_.rows.clear();
  int writes = groupedWrites_;
  groupedWrites_ = 0;
  if (runRaw(commit_, "COMMIT;")) return;
  std::string msg = sqlite3_errmsg(db_);
  if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK;", nullptr, nullptr, nullptr);
  // A snapshot of reads only commits to nothing; grouped writes must not vanish unsaid, nor
  // linger in the indexes.
  if (writes > 0) indexes_.clear();
  if (writes > 0)
    throw RuntimeError(kDiskIO, "The last " + std::to_string(writes) +
                                    " changes could not be committed to '" + path_ + "': " + msg);
}

bool Database::beforeStatement(sqlite3_stmt* statement) {
  if (!snapshotReads_ || !wal_) return false;
  bool reads = sqlite3_stmt_readonly(statement) != 0;
  if (snapshotOpen_) {
    bool young = snapshotYoung();
    if (reads && young) return false;
    if (!reads && young) {
      memo_.rows.clear();  // what the write changes must not be answered from the memo
      return true;
    }
    endSnapshot();
  }
  if (!sqlite3_get_autocommit(db_)) return false;  // the caller's own transaction
  if (!reads && !groupWrites_) return false;       // a write on its own
  if (runRaw(begin_, "BEGIN;")) {
    snapshotOpen_ = true;
    snapshotStart_ = std::chrono::steady_clock::now();
  }
  return !reads && snapshotOpen_;  // a grouped write opens the snapshot it joins
}

void Database::exec(const std::string& sql) {
  endSnapshot();
  indexes_.clear();
  char* err = nullptr;
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err) != SQLITE_OK) {
    std::string msg = err ? err : "failed";
    sqlite3_free(err);
    throw RuntimeError(kStatementFailed, "\"" + sql + "\" failed on '" + path_ + "': " + msg);
  }
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
  auto info = std::make_shared<TableInfo>();
  bool autoIncrement = false;
  {
    Statement n(*this,
                "SELECT type, name, sql FROM sqlite_master WHERE type IN ('table', 'view') AND "
                "name = ?1 COLLATE NOCASE;");
    n.bind(1, name);
    if (!n.step()) return nullptr;
    std::string sql = n.column(2).s;
    if (n.column(0).s == "view") {
      // A view that only renames a table ("CREATE VIEW v AS SELECT * FROM t") is that table.
      std::string up = value::upper(sql);
      size_t at = up.find("SELECT * FROM ");
      if (at == std::string::npos) return nullptr;
      std::string base = value::trim(sql.substr(at + 14));
      while (!base.empty() && (base.back() == ';' || base.back() == ' ')) base.pop_back();
      if (base.empty() || value::equalsIgnoreCase(base, name) ||
          base.find_first_of(" ,()") != std::string::npos)
        return nullptr;
      auto target = table(base);
      if (target) tables_.emplace(key, target);
      return target;
    }
    info->name = n.column(1).s;
    autoIncrement = value::upper(sql).find("AUTOINCREMENT") != std::string::npos;
  }
  Statement st(*this, "PRAGMA table_info(" + quoteIdentifier(info->name) + ");");
  bool any = false;
  while (st.step()) {
    any = true;
    ColumnInfo c = describeColumn(st.column(1).s, st.column(2).s);
    c.notNull = st.columnInt(3) != 0;
    if (st.column(4).type != Stored::Null) c.defaultSql = st.column(4).s;
    bool pk = st.columnInt(5) == 1;
    if (pk && value::upper(c.declaredType) == "INTEGER") {
      c.autoKey = autoIncrement;
      info->keyColumn = static_cast<int>(info->columns.size());
    }
    info->byName.emplace(c.name, static_cast<int>(info->columns.size()));
    info->columns.push_back(std::move(c));
  }
  if (!any) return nullptr;
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

uint64_t Database::dataVersion() {
  StatementUse st(cached("PRAGMA data_version;"));
  return st->step() ? static_cast<uint64_t>(st->columnInt(0)) : 0;
}

const ColumnIndex& Database::columnIndex(const TableInfo& table, int column) {
  // Inside a read snapshot no other connection's write can show: one look per snapshot.
  if (!versionSeen_) {
    uint64_t version = dataVersion();
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
  Statement scan(*this, "SELECT rowid, " + quoteIdentifier(c.name) + " FROM " +
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

void Database::indexInsert(const TableInfo& table, int64_t rowid) {
  auto t = indexes_.find(&table);
  if (t == indexes_.end() || t->second.empty()) return;
  // The row as stored, defaults included.
  std::string sql = "SELECT ";
  std::vector<int> columns;
  for (auto& [column, index] : t->second) {
    if (!columns.empty()) sql += ", ";
    sql += quoteIdentifier(table.columns[static_cast<size_t>(column)].name);
    columns.push_back(column);
  }
  StatementUse st(cached(sql + " FROM " + quoteIdentifier(table.name) + " WHERE rowid = ?1;"));
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

bool Database::hasReservedKeys(const TableInfo& table) const {
  return reserved_.count(value::upper(table.name)) > 0;
}

int64_t Database::reserveKey(const TableInfo& table) {
  // The number is taken in the table's row of sqlite_sequence (made with the first AUTOINCREMENT
  // table), where every connection, of this process or another, draws its next number: a number
  // promised here is not drawn by anybody else, and one left unused is skipped, as with
  // the host's engine. The next number is above the row, every key in use and every number this
  // connection promised; it is taken only if nobody took one meanwhile (else it is read anew).
  const std::string name = quoteText(table.name);
  const std::string top =
      "coalesce((SELECT max(rowid) FROM " + quoteIdentifier(table.name) + "), 0)";
  int64_t& reserved = reserved_[value::upper(table.name)];
  for (int attempt = 0; attempt < kReserveAttempts; ++attempt) {
    std::optional<int64_t> seq;
    int64_t inUse = 0;
    {
      StatementUse st(cached("SELECT (SELECT seq FROM sqlite_sequence WHERE name = " + name +
                             "), " + top + ";"));
      if (st->step()) {
        if (st->column(0).type != Stored::Null) seq = st->columnInt(0);
        inUse = st->columnInt(1);
      }
    }
    int64_t next = std::max({reserved, inUse, seq.value_or(0)}) + 1;
    StatementUse take(cached(
        seq ? "UPDATE sqlite_sequence SET seq = ?1 WHERE name = " + name + " AND seq = ?2 AND " +
                  top + " < ?1;"
            : "INSERT INTO sqlite_sequence (name, seq) SELECT " + name +
                  ", ?1 WHERE NOT EXISTS (SELECT 1 FROM sqlite_sequence WHERE name = " + name +
                  ") AND " + top + " < ?1;"));
    take->bind(1, next);
    if (seq) take->bind(2, *seq);
    take->step();
    if (sqlite3_changes(db_) == 1) return reserved = next;
  }
  fail(kDatabaseLocked, "Cannot take the next number of " + table.name);
}

}  // namespace dossync::sqlite
