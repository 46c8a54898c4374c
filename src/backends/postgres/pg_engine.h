// The PostgreSQL engine of the shared SQL layer (sql/engine.h), over libpq. A database is named
// by a libpq URI ("postgresql://user@host/db?...", socket directories and ports included).
//
// How it meets the shared layer's expectations:
//   Rows are named by the table's integer primary key (PostgreSQL has no rowid; a table of
//   ours without one is given a "rowid" identity column when its schema is created: see
//   sql/dialect.h). A table without such a key is read whole and read-only.
//   Statements arrive in the shared dialect and are translated by sql::toPostgres, names
//   respelled as this database spells them (loaded from its catalog, and again when a statement
//   names something not seen before).
//   Read snapshots are REPEATABLE READ transactions; a write that meets a row another
//   connection changed since the snapshot began fails with a serialisation failure, which the
//   shared layer answers by ending the snapshot and writing again on its own.
//   Other connections' changes: the engine gives every table of the database's schema a
//   statement-level trigger "dossync_changed" (function dossync_changed(), installed when
//   missing at connection time) that sends a notification on channel "dossync_changed" at
//   each committed change; the connection listens, and each notification from another backend
//   moves dataVersion() on, so the in-process indexes are built anew. Where the triggers cannot
//   be installed (no right to), dataVersion() changes at every look and the indexes are
//   rebuilt once per snapshot. A look at dataVersion() counts every commit made before it:
//   the server delivers pending notifications before it answers a request, and a look outside
//   a transaction makes one (an empty one) for that.
//   ORDER BY on text is sorted in this process: no PostgreSQL collation orders as
//   value::compareText does (code points of the case-folded text).
//   Yes/No columns are BOOLEAN, dates TIMESTAMP (read back in the default text form).
// Thread use: one thread per connection.
#pragma once

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <unordered_map>

#include "backends/sql/database.h"
#include "backends/sql/engine.h"

namespace dossync::postgres {

// Whether a database location is a libpq URI (postgresql:// or postgres://).
bool isUri(const std::string& location);
// The URI as messages show it: without its password.
std::string displayName(const std::string& uri);

class PgEngine : public sql::Engine {
 public:
  // Connects; throws RuntimeError kCannotOpenDatabase naming the database (without password)
  // when the server cannot be reached, refuses the login or has no such database.
  explicit PgEngine(const std::string& uri);
  ~PgEngine() override;
  PgEngine(const PgEngine&) = delete;
  PgEngine& operator=(const PgEngine&) = delete;

  PGconn* handle() const { return conn_; }
  // The database's spelling of a table or column name (any case); nullptr when it has none.
  const std::string* spelling(std::string_view name);
  void loadNames();
  // A statement failed while a transaction was open: the transaction is lost with it.
  void failedInTransaction();
  void noteWrite() { wroteInTransaction_ = PQtransactionStatus(conn_) != PQTRANS_IDLE; }
  std::string nextStatementName() { return "dossync_" + std::to_string(++statements_); }

  const std::string& name() const override { return name_; }
  bool readOnly() const override { return false; }
  std::unique_ptr<sql::EngineStatement> prepare(const std::string& sql) override;
  void exec(const std::string& sql) override;
  void savepoint(Savepoint step) override;
  bool snapshots() const override { return true; }
  bool begin() override;
  // Rows lock one by one here, so two programs that each write this database and another one
  // could each hold a lock the other waits for. Ours take a writers' lock of their own first
  // (a session advisory lock, taken before the snapshot begins so that the snapshot shows what
  // the last holder committed), let go when the transaction ends. Waits as long as a statement
  // waits for a lock (sql::kLockWaitMs); false when the lock did not come.
  static constexpr int64_t kWritersLock = 1146311509;
  bool beginWriting() override;
  Expected<void> commit() override;
  void rollback() override;
  bool inTransaction() const override { return PQtransactionStatus(conn_) != PQTRANS_IDLE; }
  uint64_t dataVersion() override;
  std::shared_ptr<sql::TableInfo> describeTable(const std::string& name,
                                                std::string& viewOf) override;
  int64_t reserveKey(const sql::TableInfo& table) override;
  bool reservesEveryKey() const override { return true; }
  bool losesGroupOnConflict() const override { return true; }
  std::string insertSuffix(const sql::TableInfo& table) override;
  int64_t insertedKey(sql::EngineStatement& insert) override;
  bool collatesText() const override { return false; }
  std::string lastErrorText() const override;

 private:
  void installTriggers();
  void execute(const std::string& sql);  // exec, leaving what it knows of the tables alone
  Expected<void> commitOrRollBack();
  void letWritersGo();  // the writers' lock, once the transaction has ended
  bool writersLock_ = false;
  PGconn* conn_ = nullptr;
  std::string name_;
  int statements_ = 0;
  bool namesLoaded_ = false;
  std::unordered_map<std::string, std::string, sql::CaseInsensitiveHash, sql::CaseInsensitiveEqual>
      names_;
  bool notified_ = false;  // the triggers are there: notifications tell of every change
  uint64_t version_ = 0;
  bool wroteInTransaction_ = false;
  bool lost_ = false;  // the open transaction failed and was rolled back
  std::string lostReason_;
};

// A connection to a PostgreSQL database for the shared layer.
std::unique_ptr<sql::Database> openPostgres(const std::string& uri);
// Creates the host's tables (sql::postgresSchema of the given SQLite schema) in the database
// the URI names, which must exist and hold none of them yet (RuntimeError kTableExists).
void createHostSchema(const std::string& uri, const std::string& sqliteSchema);

}  // namespace dossync::postgres
