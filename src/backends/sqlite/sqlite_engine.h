// The SQLite engine of the shared SQL layer (sql/engine.h): a database file opened with the
// text collation "dossync_text" (value::compareText) for ORDER BY, read snapshots in WAL mode,
// rows named by rowid, PRAGMA data_version for other connections' changes. Errors name the file.
// Thread use: one thread per connection.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "backends/sql/database.h"
#include "backends/sql/engine.h"
#include "backends/sql/sqlite_schema.h"

namespace dossync::sqlite {

class SqliteEngine : public sql::Engine {
 public:
  // Opens an existing database (create=false) or a new file (create=true). Checks that the file
  // really is a SQLite database. Throws RuntimeError 3049/3343 naming the path.
  SqliteEngine(const std::string& path, bool create);
  ~SqliteEngine() override;
  SqliteEngine(const SqliteEngine&) = delete;
  SqliteEngine& operator=(const SqliteEngine&) = delete;

  sqlite3* handle() const { return db_; }
  // Each statement waits at most kBusyTimeoutMs for a lock another process holds, and one that
  // did nothing meanwhile is tried again at most kBusyRetries times; a key is taken in at most
  // kReserveAttempts tries.
  static constexpr int kBusyTimeoutMs = sql::kLockWaitMs;
  static constexpr int kBusyRetries = 3;
  static constexpr int kReserveAttempts = KeyReserver::kAttempts;

  const std::string& name() const override { return path_; }
  bool readOnly() const override { return readOnly_; }
  std::unique_ptr<sql::EngineStatement> prepare(const std::string& sql) override;
  void exec(const std::string& sql) override;
  void savepoint(Savepoint step) override;
  bool snapshots() const override { return wal_; }
  bool begin() override;
  bool beginWriting() override;  // BEGIN IMMEDIATE, waiting as a statement of its own does
  Expected<void> commit() override;
  void rollback() override;
  bool inTransaction() const override { return !sqlite3_get_autocommit(db_); }
  uint64_t dataVersion() override;
  std::shared_ptr<sql::TableInfo> describeTable(const std::string& name,
                                                std::string& viewOf) override;
  int64_t reserveKey(const sql::TableInfo& table) override;
  bool reservesEveryKey() const override { return false; }
  bool keysAreWrites() const override { return true; }
  std::string insertSuffix(const sql::TableInfo&) override { return ""; }
  int64_t insertedKey(sql::EngineStatement&) override { return sqlite3_last_insert_rowid(db_); }
  bool collatesText() const override { return true; }
  std::string lastErrorText() const override { return sqlite3_errmsg(db_); }

 private:
  bool runRaw(sqlite3_stmt*& statement, const char* sql);  // BEGIN and COMMIT, kept prepared
  sqlite3* db_ = nullptr;
  std::string path_;
  bool readOnly_ = false;
  bool wal_ = false;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* beginWriting_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
  sqlite3_stmt* version_ = nullptr;
  sqlite3_stmt* savepoints_[3] = {};  // by Savepoint, kept prepared
  KeyReserver keys_;
};

// A connection to a SQLite file (create: a new one) for the shared layer.
std::unique_ptr<sql::Database> openSqlite(const std::string& path, bool create = false);

}  // namespace dossync::sqlite
