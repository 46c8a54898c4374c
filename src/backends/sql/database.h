// A connection shared by the data access object and the catalog, over any engine (engine.h):
// prepared-statement cache, table descriptions, the in-process indexes that finds use
// (column_index.h: the host's database itself is never given an index), read snapshots,
// grouped and coalesced writes, and auto-number reservation. Errors become RuntimeError
// naming the database.
// Thread use: one thread per connection.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "backends/sql/column_index.h"
#include "backends/sql/engine.h"
#include "backends/sql/stored.h"
#include "base/error.h"

namespace dossync::sql {

class Database;

class Statement {
 public:
  Statement(Database& db, const std::string& sql);
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void bind(int index, const Stored& v);
  void bind(int index, const Stored& v, ColumnKind kind);  // a value of a column of that kind
  void bind(int index, int64_t v) { bind(index, Stored{Stored::Int, v, 0, {}}); }
  void bind(int index, const std::string& v) { bind(index, Stored{Stored::Text, 0, 0, v}); }
  bool step();  // true while a row is available
  void reset();
  int columnCount() const { return stmt_->columnCount(); }
  Stored column(int i) const { return stmt_->column(i); }
  int64_t columnInt(int i) const;
  std::string columnName(int i) const { return stmt_->columnName(i); }
  std::string columnDeclType(int i) const { return stmt_->columnDeclType(i); }
  const std::string& sql() const { return sql_; }
  EngineStatement& engineStatement() { return *stmt_; }

 private:
  Database& owner_;
  std::unique_ptr<EngineStatement> stmt_;
  std::string sql_;
  std::vector<Stored> bound_;  // the parameters, by number from 1 (kept to write it again)
  bool running_ = false;       // stepped since the last reset
};

// Resets a cached statement when the scope ends.
class StatementUse {
 public:
  explicit StatementUse(Statement& s) : s_(s) {}
  ~StatementUse() { s_.reset(); }
  Statement* operator->() { return &s_; }
  Statement& operator*() { return s_; }

 private:
  Statement& s_;
};

class Database {
 public:
  explicit Database(std::unique_ptr<Engine> engine);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  const std::string& path() const { return engine_->name(); }
  Engine& engine() { return *engine_; }
  bool readOnly() const { return engine_->readOnly(); }

  void exec(const std::string& sql);
  Statement& cached(const std::string& sql);
  // The table's description, cached; nullptr when there is no such table.
  std::shared_ptr<const TableInfo> table(const std::string& name);
  void forgetSchema();
  // The value a column's declared default gives a new row (NULL without one).
  Stored defaultValue(const TableInfo& table, int column);

  // The in-process index of a column: built at its first use, and built anew once another
  // connection has changed the data. This connection's own changes reach it through the three
  // calls below, made after each change succeeded.
  const ColumnIndex& columnIndex(const TableInfo& table, int column);
  void indexUpdate(const TableInfo& table, int column, int64_t rowid, const Stored& value);
  // A new row's indexed columns: those `given` (the values inserted) as they are when the
  // database keeps them unchanged (whole numbers, text), the others read from the row.
  void indexInsert(const TableInfo& table, int64_t rowid,
                   const std::vector<std::optional<Stored>>* given = nullptr);
  void indexDelete(const TableInfo& table, int64_t rowid);
  // The next auto-number of the table, promised to a new row before it is inserted (taken for
  // good: other connections number their rows above it).
  int64_t reserveKey(const TableInfo& table);
  bool hasReservedKeys(const TableInfo& table) const;
  [[noreturn]] void fail(int32_t code, const std::string& what) const;

  // Read snapshots: while on, consecutive reads share one read transaction instead of one
  // each, for at most kSnapshotAge; a write joins it and commits it at once (or, when another
  // connection wrote meanwhile, runs on its own after it), so every write commits when it is
  // made unless writes are grouped (below); exec ends the snapshot first. Only where the engine
  // gives snapshots in which a reader never blocks a writer (SQLite in WAL mode, PostgreSQL).
  // Off by default; the data access object turns it on and ends the snapshot when its last
  // recordset closes.
  static constexpr std::chrono::milliseconds kSnapshotAge{100};
  void setSnapshotReads(bool on);
  bool snapshotReads() const { return snapshotReads_ && engine_->snapshots(); }
  // Grouped writes (with snapshot reads on): a write joins the snapshot, or opens one, and is
  // committed with it when it ends, not at once. A snapshot holding grouped writes does not
  // age: it ends at a commit point once it is kSnapshotAge old (commitIfDue), or by
  // endSnapshot. Turning them off commits what is pending.
  void setGroupWrites(bool on);
  bool groupsWrites() const { return groupWrites_; }
  void noteGroupedWrite() { ++groupedWrites_; }
  // A grouped write that succeeded, kept until its group commits so that the group can be
  // written again (rewriteGroup).
  void logGroupedWrite(const std::string& sql, const std::vector<Stored>& params);
  // After a grouped write met a row another connection changed since the snapshot began (the
  // engine's transaction is lost with the writes before it): the group's writes are made again
  // in a new snapshot, which the failed write then joins. True when there were writes to make
  // again and they were made; throws RuntimeError kDiskIO naming the database when they could
  // not be made (they are lost then).
  static constexpr int kRewriteAttempts = 8;
  bool rewriteGroup();
  void commitIfDue();
  bool commitDue() const;  // grouped writes that commitIfDue would commit
  // Field writes while writes are grouped: the writes to one row made one after another become
  // one UPDATE, run before the next statement of this connection (or the end of the snapshot),
  // so nothing ever reads past them; what the memo holds of the row shows them at once.
  void deferUpdate(const TableInfo& table, int column, int64_t rowid, Stored value);
  void flushUpdate();
  // A preview: everything from beginPreview on runs in one transaction that endPreview rolls
  // back, so nothing read or written meanwhile is ever committed and the database is left as it
  // was. Auto-numbers are worked out from the table (max + 1) instead of being taken from a
  // sequence, which no rollback would give back. Should the engine lose the transaction (after
  // a failed statement, PostgreSQL does), every later statement is refused (RuntimeError
  // kDiskIO naming the database) rather than run outside it.
  void beginPreview();
  void endPreview();
  bool previewing() const { return preview_; }
  void checkPreview() const;
  // Ends the snapshot, committing grouped writes; throws RuntimeError kDiskIO naming the
  // database when they cannot be committed (they are lost then).
  void endSnapshot();
  // Undoes the grouped writes not committed yet (the snapshot ends with them).
  void dropGroup();
  // A record's writes, inside the group: from beginRecord on, the grouped writes can be undone
  // by endRecord(false) without those made before (a savepoint, set at the record's first
  // write); endRecord(true) keeps them in the group. Writes that were committed meanwhile (not
  // grouped) stay.
  void beginRecord();
  void endRecord(bool keep);
  // With grouped writes: the group (opened now when none is) holds the writers' lock from here
  // to its commit, so that no write of it waits for another connection. Two processes that each
  // write two databases in groups take their locks in one order this way (the host's first),
  // instead of each holding one and waiting for the other's.
  void holdWrites();
  // Statement::step calls it on a first step; true: a write that runs inside the snapshot, which
  // the caller then ends (committing the write).
  bool beforeStatement(EngineStatement& statement);

  // What was read inside the current snapshot, kept until it ends: the same row asked for
  // again (as each procedure looks its record up anew) costs no statement.
  // A row read in part: the columns asked for so far.
  // A reader asks for a few columns of a wide table, so a row holds just those (column number,
  // value), in the order read.
  struct LoadedRow {
    std::vector<std::pair<size_t, Stored>> values;
    const Stored* find(size_t column) const {
      for (const auto& v : values)
        if (v.first == column) return &v.second;
      return nullptr;
    }
    Stored* find(size_t column) {
      return const_cast<Stored*>(static_cast<const LoadedRow*>(this)->find(column));
    }
    // Takes the columns `read` of a statement's row (the value of wanted[k] in its column k),
    // those the row does not hold already.
    template <typename Read>
    void take(const std::vector<int>& wanted, Read&& read) {
      values.reserve(wanted.size());
      for (size_t k = 0; k < wanted.size(); ++k)
        if (!find(static_cast<size_t>(wanted[k])))
          values.emplace_back(static_cast<size_t>(wanted[k]), read(static_cast<int>(k)));
    }
  };
  struct SnapshotMemo {
    using Row = std::shared_ptr<LoadedRow>;
    std::unordered_map<const TableInfo*, std::unordered_map<int64_t, Row>> rows;
  };
  // The memo while a snapshot is open and young enough to go on; nullptr otherwise.
  SnapshotMemo* memo();

 private:
  std::unique_ptr<Engine> engine_;
  std::unordered_map<std::string, std::unique_ptr<Statement>> statements_;
  std::unordered_map<std::string, std::shared_ptr<const TableInfo>> tables_;
  std::unordered_map<const TableInfo*, std::unordered_map<int, ColumnIndex>> indexes_;
  struct DeferredUpdate {
    const TableInfo* table = nullptr;
    int64_t rowid = 0;
    std::vector<std::pair<int, Stored>> values;  // by column, in the order written
  } deferred_;
  uint64_t indexVersion_ = 0;  // the data version the indexes are of
  bool versionSeen_ = false;   // indexVersion_ checked in the open snapshot
  std::unordered_set<std::string> reservedTables_;
  bool preview_ = false;
  std::unordered_map<std::string, int64_t> previewKeys_;  // the last number given, by table
  bool snapshotYoung() const;
  bool snapshotReads_ = false;
  bool snapshotOpen_ = false;
  bool groupWrites_ = false;
  int groupedWrites_ = 0;    // in the open snapshot
  bool writesHeld_ = false;  // the open snapshot holds the writers' lock (holdWrites)
  struct LoggedWrite {
    std::string sql;
    std::vector<Stored> params;
  };
  std::vector<LoggedWrite> groupLog_;  // the grouped writes of the open snapshot, in order
  bool inRecord_ = false;
  bool savepoint_ = false;  // set in the open snapshot for the record
  int recordStartWrites_ = 0;
  size_t recordStartLog_ = 0;
  int lostWrites_ = 0;  // grouped writes the engine undid on its own, not told yet
  std::string lostReason_;
  void noticeLostTransaction();
  void setSavepoint();
  void releaseSavepoint(bool undo);
  std::chrono::steady_clock::time_point snapshotStart_;
  SnapshotMemo memo_;
};

}  // namespace dossync::sql
