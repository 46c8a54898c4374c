// What the shared SQL layer (database.h, recordset.h, data_access.h) asks of a database
// engine: a connection that prepares and runs statements, reads columns as stored values,
// runs transactions, describes tables and tells when another connection changed the data.
// Everything else (cursors, finds, pending rows, grouped writes, the Jet dialect) is shared;
// an engine is SQLite (backends/sqlite) or PostgreSQL (backends/postgres).
// Thread use: one thread per connection.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "backends/sql/stored.h"
#include "base/expected.h"

namespace dossync::sql {

enum class Step {
  Row,     // a row is available
  Done,    // the statement ran to its end
  Stale,   // a write that could not join the open read snapshot (another connection wrote
           // since it began): ending the snapshot and running it again succeeds
  Failed,  // errorCode()/errorMessage() say why
};

// Thrown by an engine's own writes (reserveKey) that met Step::Stale: the caller ends the
// snapshot and asks again.
struct StaleSnapshot {};

class EngineStatement {
 public:
  virtual ~EngineStatement() = default;
  // Parameters are numbered from 1, as "?1" in the statement's text.
  virtual void bind(int index, const Stored& v) = 0;
  // A value bound for a column of that kind (an engine that types its parameters binds a date
  // as a timestamp, a Yes/No as a bit).
  virtual void bind(int index, const Stored& v, ColumnKind) { bind(index, v); }
  virtual Step step() = 0;
  virtual void rewind() = 0;  // ready to run again, parameters kept
  virtual void reset() = 0;   // ready to run again, parameters cleared
  virtual int columnCount() const = 0;
  virtual Stored column(int i) const = 0;
  virtual std::string columnName(int i) const = 0;
  // A declared type describeColumn understands ("VARCHAR(20)", "BOOLEAN"...); "" unknown.
  virtual std::string columnDeclType(int i) const = 0;
  virtual bool readOnly() const = 0;  // the statement only reads
  // After Failed: the RuntimeError number and the engine's message.
  virtual int32_t errorCode() const = 0;
  virtual std::string errorMessage() const = 0;
};

// How long a statement waits at most for a lock another connection holds, on every engine.
inline constexpr int kLockWaitMs = 20000;

class Engine {
 public:
  virtual ~Engine() = default;
  // The database as messages name it (a path, or a URI without its password).
  virtual const std::string& name() const = 0;
  virtual bool readOnly() const = 0;
  // Statements in the shared dialect (Jet-style text, "?N" parameters); throws RuntimeError
  // kStatementFailed naming the database when the statement cannot be prepared.
  virtual std::unique_ptr<EngineStatement> prepare(const std::string& sql) = 0;
  // Runs statements without results; throws RuntimeError kStatementFailed.
  virtual void exec(const std::string& sql) = 0;
  // The savepoint of the record under way, inside the open transaction: set, rolled back to
  // (it stays set), released. Each record sets and releases one, so an engine may keep these
  // statements prepared. Throws RuntimeError kStatementFailed.
  enum class Savepoint { kSet, kRollBack, kRelease };
  virtual void savepoint(Savepoint step) { exec(savepointSql(step)); }
  static const char* savepointSql(Savepoint step) {
    static constexpr const char* kSql[] = {"SAVEPOINT dossync_record;",
                                           "ROLLBACK TO SAVEPOINT dossync_record;",
                                           "RELEASE SAVEPOINT dossync_record;"};
    return kSql[static_cast<int>(step)];
  }
  // Read snapshots (a transaction that holds one view of the data while other connections go
  // on writing): whether the engine gives them, and the transaction around them.
  virtual bool snapshots() const = 0;
  virtual bool begin() = 0;
  // Opens a transaction that holds the lock writers take from its start, waiting for it as a
  // write would, so that the writes made in it never wait for another connection. False when
  // the engine has no such lock or could not take it (a write takes it when it comes, then).
  virtual bool beginWriting() { return false; }
  // Commits the open transaction, if any. When the database refuses, the transaction is rolled
  // back and the error says why (the database's own message as its description).
  virtual Expected<void> commit() = 0;
  virtual void rollback() = 0;  // the open transaction, if any, undone
  virtual bool inTransaction() const = 0;
  // A number that changes whenever another connection committed a change, as seen from the
  // current snapshot (or the latest data outside one).
  virtual uint64_t dataVersion() = 0;
  // The description of a table; for a view that only renames a table, viewOf is set to that
  // table's name instead. nullptr when neither.
  virtual std::shared_ptr<TableInfo> describeTable(const std::string& name,
                                                   std::string& viewOf) = 0;
  // The next auto-number of the table, promised to a new row before it is inserted.
  virtual int64_t reserveKey(const TableInfo& table) = 0;
  // True: every new row of a table that numbers its rows takes a number reserved ahead (the
  // engine's own numbering does not keep above keys that were given explicitly).
  // Whether reserveKey takes the number with a write of its own (in the open transaction).
  virtual bool keysAreWrites() const { return false; }
  // Whether a write refused for another connection's change loses the writes made before it in
  // the same transaction (PostgreSQL), so that a group of writes must be kept to be made again.
  virtual bool losesGroupOnConflict() const { return false; }
  virtual bool reservesEveryKey() const = 0;
  // What an INSERT ends with so that insertedKey can tell the new row's key.
  virtual std::string insertSuffix(const TableInfo& table) = 0;
  virtual int64_t insertedKey(EngineStatement& insert) = 0;
  // ORDER BY on text: true when the engine sorts by value::compareText itself (a collation
  // "dossync_text"); false when the shared layer sorts the rows in this process.
  virtual bool collatesText() const = 0;
  virtual std::string lastErrorText() const = 0;
  // Jet's SQL: the shared layer writes no LIMIT (a first row is MIN(key)), no "IS NOT ?" (a
  // value is compared with the one read, in this process), no DEFAULT VALUES (an insert lists
  // its columns), and names a row of a table without a key by all its old values.
  virtual bool jetSql() const { return false; }
};

}  // namespace dossync::sql
