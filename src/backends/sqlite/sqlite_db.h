// A SQLite connection shared by the data access object and the catalog: prepared-statement
// cache, table descriptions (declared types, sizes, defaults, the auto-number key), the
// in-process indexes that finds use (column_index.h: the file itself is never given an index),
// the text collation "dossync_text" (value::compareText) for ORDER BY, and auto-number
// reservation. Errors become RuntimeError naming the database file.
// Thread use: one thread per connection.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "backends/sqlite/column_index.h"
#include "core/error.h"

namespace dossync::sqlite {

enum class ColumnKind { Text, Memo, Integer, Real, Boolean, DateTime, Other };

struct ColumnInfo {
  std::string name;
  std::string declaredType;
  ColumnKind kind = ColumnKind::Other;
  int32_t size = 0;  // characters; 0 = unlimited
  bool autoKey = false;
  bool notNull = false;
  std::string defaultSql;  // the declared DEFAULT expression; "" when none
};

ColumnInfo describeColumn(const std::string& name, const std::string& declaredType);

// Field names compare without regard to case, as Jet's do; look-ups take any string type.
struct CaseInsensitiveHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const {
    size_t h = 1469598103934665603ULL;
    for (char c : s)
      h = (h ^ static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 32 : c)) * 1099511628211ULL;
    return h;
  }
};
struct CaseInsensitiveEqual {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};

struct TableInfo {
  std::string name;
  std::vector<ColumnInfo> columns;
  int keyColumn = -1;  // the INTEGER PRIMARY KEY column (the rowid), if any
  // autoKey on that column: the table numbers it itself (AUTOINCREMENT); otherwise callers set it.
  std::unordered_map<std::string, int, CaseInsensitiveHash, CaseInsensitiveEqual> byName;
  int find(std::string_view field) const;  // -1 when absent; case-insensitive
};

// A stored value: NULL, an integer, a real or a text.
struct Stored {
  enum Type { Null, Int, Real, Text } type = Null;
  int64_t i = 0;
  double r = 0;
  std::string s;
};

// Text -> stored value by the column's kind (sizes, Booleans, dates, numbers checked);
// stored value -> the text every reader sees.
Stored toStored(const std::string& table, const ColumnInfo& column, const std::string& text);
std::string fromStored(const ColumnInfo& column, const Stored& value);
// What a find compares: the folded text a reader sees (nullopt for NULL, which no find
// matches), and the folded form of a value asked for (Booleans and dates in their text form).
std::optional<std::string> findKey(const ColumnInfo& column, const Stored& value);
std::string findKey(const ColumnInfo& column, const std::string& text);

class Database;

class Statement {
 public:
  Statement(Database& db, const std::string& sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void bind(int index, const Stored& v);
  void bind(int index, int64_t v);
  void bind(int index, const std::string& v);
  bool step();  // true while a row is available
  void reset();
  int columnCount() const;
  Stored column(int i) const;
  int64_t columnInt(int i) const;
  std::string columnName(int i) const;
  std::string columnDeclType(int i) const;
  const std::string& sql() const { return sql_; }

 private:
  Database& owner_;
  sqlite3* db_;
  sqlite3_stmt* stmt_ = nullptr;
  std::string sql_;
  bool running_ = false;  // stepped since the last reset
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
  // Opens an existing database (create=false) or a new file (create=true). Checks that the file
  // really is a SQLite database. Throws RuntimeError 3049/3343 naming the path.
  Database(const std::string& path, bool create);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  const std::string& path() const { return path_; }
  sqlite3* handle() const { return db_; }
  bool readOnly() const { return readOnly_; }

  void exec(const std::string& sql);
  Statement& cached(const std::string& sql);
  // The table's description, cached; nullptr when there is no such table.
  std::shared_ptr<const TableInfo> table(const std::string& name);
  void forgetSchema();
  // The value a column's declared default gives a new row (NULL without one).
  Stored defaultValue(const TableInfo& table, int column);

  // The in-process index of a column: built at its first use, and built anew once another
  // connection has changed the file. This connection's own changes reach it through the three
  // calls below, made after each change succeeded.
  const ColumnIndex& columnIndex(const TableInfo& table, int column);
  void indexUpdate(const TableInfo& table, int column, int64_t rowid, const Stored& value);
  void indexInsert(const TableInfo& table, int64_t rowid);  // reads the row's indexed columns
  void indexDelete(const TableInfo& table, int64_t rowid);
  // The next auto-number of the table, promised to a new row before it is inserted (taken for
  // good: other connections number their rows above it).
  int64_t reserveKey(const TableInfo& table);
  static constexpr int kReserveAttempts = 1000;
  // Each statement waits at most kBusyTimeoutMs for a lock another process holds, and is tried
  // again at most kBusyRetries times (it did nothing meanwhile).
  static constexpr int kBusyTimeoutMs = 5000;
  static constexpr int kBusyRetries = 3;
  bool hasReservedKeys(const TableInfo& table) const;
  [[noreturn]] void fail(int32_t code, const std::string& what) const;

  // Read snapshots: while on, consecutive reads share one read transaction instead of one
  // each, for at most kSnapshotAge; a write joins it and commits it at once (or, when another
  // connection wrote meanwhile, runs on its own after it), so every write commits when it is
  // made unless writes are grouped (below); exec ends the snapshot first. Only in WAL mode,
  // where a reader never blocks a writer. Off by default; the data access object turns it on
  // and ends the snapshot when its last recordset closes.
  static constexpr std::chrono::milliseconds kSnapshotAge{100};
  void setSnapshotReads(bool on);
  bool snapshotReads() const { return snapshotReads_ && wal_; }
  // Grouped writes (with snapshot reads on): a write joins the snapshot, or opens one, and is
  // committed with it when it ends, not at once. A snapshot holding grouped writes does not
  // age: it ends at a commit point once it is kSnapshotAge old (commitIfDue), or by
  // endSnapshot. Turning them off commits what is pending.
  void setGroupWrites(bool on);
  bool groupsWrites() const { return groupWrites_; }
  void noteGroupedWrite() { ++groupedWrites_; }
  void commitIfDue();
  bool commitDue() const;  // grouped writes that commitIfDue would commit
  // Field writes while writes are grouped: the writes to one row made one after another become
  // one UPDATE, run before the next statement of this connection (or the end of the snapshot),
  // so nothing ever reads past them; what the memo holds of the row shows them at once.
  void deferUpdate(const TableInfo& table, int column, int64_t rowid, Stored value);
  void flushUpdate();
  // Ends the snapshot, committing grouped writes; throws RuntimeError kDiskIO naming the file
  // when they cannot be committed (they are lost then).
  void endSnapshot();
  // Statement::step calls it on a first step; true: a write that runs inside the snapshot, which
  // the caller then ends (committing the write).
  bool beforeStatement(sqlite3_stmt* statement);

  // What was read inside the current snapshot, kept until it ends: the same row asked for
  // again (as each procedure looks its record up anew) costs no statement.
  // A row read in part: the columns asked for so far.
  struct LoadedRow {
    std::vector<Stored> values;  // by column
    std::vector<bool> loaded;
  };
  struct SnapshotMemo {
    using Row = std::shared_ptr<LoadedRow>;
    std::unordered_map<const TableInfo*, std::unordered_map<int64_t, Row>> rows;
  };
  // The memo while a snapshot is open and young enough to go on; nullptr otherwise.
  SnapshotMemo* memo();

 private:
  sqlite3* db_ = nullptr;
  std::string path_;
  bool readOnly_ = false;
  std::unordered_map<std::string, std::unique_ptr<Statement>> statements_;
  std::unordered_map<std::string, std::shared_ptr<const TableInfo>> tables_;
  std::unordered_map<const TableInfo*, std::unordered_map<int, ColumnIndex>> indexes_;
  struct DeferredUpdate {
    const TableInfo* table = nullptr;
    int64_t rowid = 0;
    std::vector<std::pair<int, Stored>> values;  // by column, in the order written
  } deferred_;
  uint64_t indexVersion_ = 0;  // the file's data version the indexes are of
  bool versionSeen_ = false;   // indexVersion_ checked in the open snapshot
  uint64_t dataVersion();
  std::unordered_map<std::string, int64_t> reserved_;
  bool snapshotYoung() const;
  bool runRaw(sqlite3_stmt*& statement, const char* sql);  // BEGIN and COMMIT, kept prepared
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
  bool wal_ = false;
  bool snapshotReads_ = false;
  bool snapshotOpen_ = false;
  bool groupWrites_ = false;
  int groupedWrites_ = 0;  // in the open snapshot
  std::chrono::steady_clock::time_point snapshotStart_;
  SnapshotMemo memo_;
};

std::string quoteIdentifier(const std::string& name);

}  // namespace dossync::sqlite
