#include "backends/sqlite/sqlite_engine.h"

#include "base/value.h"

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

SqliteEngine::SqliteEngine(const std::string& path, bool create)
    : path_(path), keys_([this](sql::EngineStatement&) { return sqlite3_changes64(db_); }) {
  // Connections are used by one thread each: no statistics to keep under a lock. A record's
  // savepoint copies every page the record changes that its group had changed before (40 or
  // so a new client): kept in memory up to 4 MiB instead of the default 64 KiB, they are not
  // written to a temporary file, one write per page, on every record.
  static const bool configured = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) == SQLITE_OK &&
                                 sqlite3_config(SQLITE_CONFIG_STMTJRNL_SPILL, 4 << 20) == SQLITE_OK;
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
  keys_.clear();
  sqlite3_finalize(begin_);
  sqlite3_finalize(beginWriting_);
  sqlite3_finalize(commit_);
  sqlite3_finalize(version_);
  for (sqlite3_stmt* statement : savepoints_) sqlite3_finalize(statement);
  sqlite3_close(db_);
}

std::unique_ptr<sql::EngineStatement> SqliteEngine::prepare(const std::string& sql) {
  return std::make_unique<SqliteStatement>(*this, sql);
}

void SqliteEngine::savepoint(Savepoint step) {
  const char* sql = savepointSql(step);
  if (runRaw(savepoints_[static_cast<size_t>(step)], sql)) return;
  throw RuntimeError(kStatementFailed, std::string("\"") + sql + "\" failed on '" + path_ +
                                           "': " + sqlite3_errmsg(db_));
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

bool SqliteEngine::beginWriting() {
  for (int attempt = 0; attempt <= kBusyRetries; ++attempt) {
    if (runRaw(beginWriting_, "BEGIN IMMEDIATE;")) return true;
    if ((sqlite3_errcode(db_) & 0xff) != SQLITE_BUSY) return false;
  }
  return false;
}

Expected<void> SqliteEngine::commit() {
  if (runRaw(commit_, "COMMIT;")) return {};
  int code = sqlite3_errcode(db_) & 0xff;
  RuntimeError why(
      kDiskIO,
      code == SQLITE_BUSY || code == SQLITE_LOCKED ? Remedy::kRetryLater : Remedy::kInternal,
      sqlite3_errmsg(db_));
  if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK;", nullptr, nullptr, nullptr);
  return why;
}

void SqliteEngine::rollback() {
  if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK;", nullptr, nullptr, nullptr);
  keys_.clear();  // the numbers it reserved went with it
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
  return sqlite::describeTable(*this, name, viewOf);
}

int64_t SqliteEngine::reserveKey(const sql::TableInfo& table) {
  return keys_.reserve(*this, table);
}

std::unique_ptr<sql::Database> openSqlite(const std::string& path, bool create) {
  return std::make_unique<sql::Database>(std::make_unique<SqliteEngine>(path, create));
}

}  // namespace dossync::sqlite
