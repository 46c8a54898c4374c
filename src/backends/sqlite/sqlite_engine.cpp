#include "backends/sqlite/sqlite_engine.h"

#include <algorithm>

#include "core/value.h"

namespace dossync::sqlite {

using sql::Step;
using sql::Stored;

namespace {

class SqliteStatement : public sql::EngineStatement {
 public:
  SqliteStatement(SqliteEngine& engine, const std::string& sql) : db_(engine.handle()) {
    if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &stmt_, nullptr) !=
        SQLITE_OK) {
      std::string msg = sqlite3_errmsg(db_);
      sqlite3_finalize(stmt_);
      stmt_ = nullptr;
      throw RuntimeError(kStatementFailed,
                         "Cannot run \"" + sql + "\" on '" + engine.name() + "': " + msg);
    }
  }
  ~SqliteStatement() override { sqlite3_finalize(stmt_); }

  void bind(int index, const Stored& v) override {
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

  Step step() override {
    int rc = sqlite3_step(stmt_);
    // A statement of its own (no transaction open, no row given yet) that found the file busy
    // for the whole busy timeout has done nothing: it is tried again, a bounded number of
    // times. Other processes' locks change hands often, and one wait that kept losing is not
    // the end of it.
    for (int retry = 0; !stepped_ && (rc & 0xff) == SQLITE_BUSY && sqlite3_get_autocommit(db_) &&
                        retry < SqliteEngine::kBusyRetries;
         ++retry) {
      sqlite3_reset(stmt_);
      rc = sqlite3_step(stmt_);
    }
    stepped_ = true;
    if (rc == SQLITE_ROW) return Step::Row;
    if (rc == SQLITE_DONE) return Step::Done;
    error_ = rc;
    message_ = sqlite3_errmsg(db_);
    return (rc & 0xff) == SQLITE_BUSY ? Step::Stale : Step::Failed;
  }
  void rewind() override {
    sqlite3_reset(stmt_);
    stepped_ = false;
  }
  void reset() override {
    stepped_ = false;
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
  int columnCount() const override { return sqlite3_column_count(stmt_); }
  Stored column(int i) const override {
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
  std::string columnName(int i) const override {
    const char* n = sqlite3_column_name(stmt_, i);
    return n ? n : "";
  }
  std::string columnDeclType(int i) const override {
    const char* t = sqlite3_column_decltype(stmt_, i);
    return t ? t : "";
  }
  bool readOnly() const override { return sqlite3_stmt_readonly(stmt_) != 0; }
  int32_t errorCode() const override {
    int rc = error_ & 0xff;
    return (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) ? kDatabaseLocked
           : rc == SQLITE_READONLY                    ? kNotUpdatable
           : rc == SQLITE_NOTADB                      ? kNotADatabase
           : rc == SQLITE_IOERR                       ? kDiskIO
                                                      : kStatementFailed;
  }
  std::string errorMessage() const override { return message_; }

 private:
  sqlite3* db_;
  sqlite3_stmt* stmt_ = nullptr;
  bool stepped_ = false;  // stepped since the last reset
  int error_ = SQLITE_OK;
  std::string message_;
};

}  // namespace

SqliteEngine::SqliteEngine(const std::string& path, bool create) : path_(path) {
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
  // ORDER BY on text sorts the way finds compare (the shared layer adds the collation).
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
  SqliteStatement mode(*this, "PRAGMA journal_mode;");
  wal_ = mode.step() == Step::Row && value::equalsIgnoreCase(mode.column(0).s, "wal");
}

SqliteEngine::~SqliteEngine() {
  keySteps_.clear();
  sqlite3_finalize(begin_);
  sqlite3_finalize(commit_);
  sqlite3_finalize(version_);
  sqlite3_close(db_);
}

std::unique_ptr<sql::EngineStatement> SqliteEngine::prepare(const std::string& sql) {
  return std::make_unique<SqliteStatement>(*this, sql);
}

void SqliteEngine::exec(const std::string& sql) {
  char* err = nullptr;
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err) != SQLITE_OK) {
    std::string msg = err ? err : "failed";
    sqlite3_free(err);
    throw RuntimeError(kStatementFailed, "\"" + sql + "\" failed on '" + path_ + "': " + msg);
  }
}

bool SqliteEngine::runRaw(sqlite3_stmt*& statement, const char* sql) {
  if (!statement && sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK)
    return false;
  int rc = sqlite3_step(statement);
  sqlite3_reset(statement);
  return rc == SQLITE_DONE;
}

bool SqliteEngine::begin() {
  return runRaw(begin_, "BEGIN;");
}

bool SqliteEngine::commit(std::string& error) {
  if (runRaw(commit_, "COMMIT;")) return true;
  error = sqlite3_errmsg(db_);
  if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK;", nullptr, nullptr, nullptr);
  return false;
}

uint64_t SqliteEngine::dataVersion() {
  if (!version_ &&
      sqlite3_prepare_v2(db_, "PRAGMA data_version;", -1, &version_, nullptr) != SQLITE_OK)
    return 0;
  uint64_t version = 0;
  if (sqlite3_step(version_) == SQLITE_ROW)
    version = static_cast<uint64_t>(sqlite3_column_int64(version_, 0));
  sqlite3_reset(version_);
  return version;
}

std::shared_ptr<sql::TableInfo> SqliteEngine::describeTable(const std::string& name,
                                                            std::string& viewOf) {
  auto info = std::make_shared<sql::TableInfo>();
  bool autoIncrement = false;
  {
    SqliteStatement n(*this,
                      "SELECT type, name, sql FROM sqlite_master WHERE type IN ('table', 'view') "
                      "AND name = ?1 COLLATE NOCASE;");
    n.bind(1, Stored{Stored::Text, 0, 0, name});
    if (n.step() != Step::Row) return nullptr;
    std::string sql = n.column(2).s;
    if (n.column(0).s == "view") {
      std::string up = value::upper(sql);
      size_t at = up.find("SELECT * FROM ");
      if (at == std::string::npos) return nullptr;
      std::string base = value::trim(sql.substr(at + 14));
      while (!base.empty() && (base.back() == ';' || base.back() == ' ')) base.pop_back();
      if (base.find_first_of(" ,()") == std::string::npos) viewOf = base;
      return nullptr;
    }
    info->name = n.column(1).s;
    autoIncrement = value::upper(sql).find("AUTOINCREMENT") != std::string::npos;
  }
  SqliteStatement st(*this, "PRAGMA table_info(" + sql::quoteIdentifier(info->name) + ");");
  bool any = false;
  while (st.step() == Step::Row) {
    any = true;
    sql::ColumnInfo c = sql::describeColumn(st.column(1).s, st.column(2).s);
    c.notNull = st.column(3).i != 0;
    if (st.column(4).type != Stored::Null) c.defaultSql = st.column(4).s;
    bool pk = st.column(5).i == 1;
    if (pk && value::upper(c.declaredType) == "INTEGER") {
      c.autoKey = autoIncrement;
      info->keyColumn = static_cast<int>(info->columns.size());
    }
    info->add(std::move(c));
  }
  if (!any) return nullptr;
  info->rowKey = "rowid";  // every table of ours has one (none is WITHOUT ROWID)
  return info;
}

int64_t SqliteEngine::reserveKey(const sql::TableInfo& table) {
  // The number is taken in the table's row of sqlite_sequence (made with the first AUTOINCREMENT
  // table), where every connection, of this process or another, draws its next number: a number
  // promised here is not drawn by anybody else, and one left unused is skipped, as with the
  // host's engine. The next number is above the row, every key in use and every number this
  // connection promised; it is taken only if nobody took one meanwhile (else it is read anew).
  const std::string key = value::upper(table.name);
  const std::string name = sql::quoteText(table.name);
  const std::string top =
      "coalesce((SELECT max(rowid) FROM " + sql::quoteIdentifier(table.name) + "), 0)";
  auto& [read, update, insert] = keySteps_[key];
  if (!read) {
    read =
        prepare("SELECT (SELECT seq FROM sqlite_sequence WHERE name = " + name + "), " + top + ";");
    update = prepare("UPDATE sqlite_sequence SET seq = ?1 WHERE name = " + name +
                     " AND seq = ?2 AND " + top + " < ?1;");
    insert = prepare("INSERT INTO sqlite_sequence (name, seq) SELECT " + name +
                     ", ?1 WHERE NOT EXISTS (SELECT 1 FROM sqlite_sequence WHERE name = " + name +
                     ") AND " + top + " < ?1;");
  }
  int64_t& reserved = reserved_[key];
  for (int attempt = 0; attempt < kReserveAttempts; ++attempt) {
    bool hasSeq = false;
    int64_t seq = 0, inUse = 0;
    if (read->step() == Step::Row) {
      Stored s = read->column(0);
      hasSeq = s.type != Stored::Null;
      seq = hasSeq ? s.i : 0;
      inUse = read->column(1).i;
    }
    read->reset();
    int64_t next = std::max({reserved, inUse, seq}) + 1;
    auto& take = hasSeq ? update : insert;
    Stored number;
    number.type = Stored::Int;
    number.i = next;
    take->bind(1, number);
    if (hasSeq) {
      number.i = seq;
      take->bind(2, number);
    }
    Step done = take->step();
    take->reset();
    if (done == Step::Stale) throw sql::StaleSnapshot{};
    if (done == Step::Done && sqlite3_changes(db_) == 1) return reserved = next;
  }
  throw RuntimeError(kDatabaseLocked,
                     "Cannot take the next number of " + table.name + " in '" + path_ + "'");
}

std::unique_ptr<sql::Database> openSqlite(const std::string& path, bool create) {
  return std::make_unique<sql::Database>(std::make_unique<SqliteEngine>(path, create));
}

}  // namespace dossync::sqlite
