// Recordsets of the data access object: a cursor on one table (TableRecordset) and a result
// read whole into memory (ResultRecordset). See data_access.h for the costs.
#pragma once

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "backends/sql/database.h"
#include "backends/sql/dialect.h"

namespace dossync::sql {

// The statements a cursor on one query runs, written once per query and table description.
struct CursorShape {
  CursorShape(std::shared_ptr<const TableInfo> table, const TableQuery& query, bool jet = false);
  std::shared_ptr<const TableInfo> table;
  bool jet;                            // the engine's SQL is Jet's (Engine::jetSql)
  std::string wherePrefix;             // "(where) AND " or ""
  std::string firstSql;                // the first row
  std::string nextSql;                 // the next row after ?1
  std::string holdsSql;                // whether row ?1 exists and meets the WHERE clause
  std::string orderSql;                // every row's key in order; "" without ORDER BY
  std::vector<std::string> updateSql;  // by column, made at the first write of it
  const std::string& update(int column);
  // The columns this query's callers read: a row is read with just those (most callers read a
  // few of many columns); a column read for the first time joins them.
  std::vector<int> wanted;
  std::vector<bool> isWanted;
  std::string wantedSql;
  std::string holdsWantedSql;  // holdsSql reading the wanted columns
  std::string nextWantedSql;   // nextSql reading the wanted columns too ("" for Jet)
  void want(int column);
  // The last INSERT written, for the columns it names (most new rows set the same ones).
  std::vector<bool> insertColumns;
  std::string insertSql;
};

class Recordset {
 public:
  virtual ~Recordset() = default;
  virtual bool isEOF() const = 0;
  virtual bool hasCurrentRow() const = 0;
  virtual void moveNext() = 0;
  virtual std::string read(const std::string& field) = 0;
  virtual void write(const std::string& field, const std::string& value) = 0;
  virtual void addNew() = 0;
  virtual void setNew(const std::string& field, const std::string& value) = 0;
  virtual void saveNew() = 0;
  virtual bool findFirst(const std::string& field, const std::string& value) = 0;
  virtual void findNext() = 0;
  virtual void deleteCurrent() = 0;
};

class TableRecordset : public Recordset {
 public:
  TableRecordset(Database& db, std::shared_ptr<CursorShape> shape, bool readOnly);
  bool isEOF() const override {
    position();
    return state_ == State::End;
  }
  bool hasCurrentRow() const override {
    position();
    return state_ == State::Row || state_ == State::Pending;
  }
  void moveNext() override;
  std::string read(const std::string& field) override;
  void write(const std::string& field, const std::string& value) override;
  void addNew() override;
  void setNew(const std::string& field, const std::string& value) override;
  void saveNew() override;
  bool findFirst(const std::string& field, const std::string& value) override;
  void findNext() override;
  void deleteCurrent() override;

 private:
  enum class State { Row, End, Deleted, Pending };
  const ColumnInfo& column(const std::string& field) const;
  void requireWritable() const;
  void requireRow() const;
  // A cursor without ORDER BY finds its first row when first used: most are opened only to
  // find a row or add one.
  void position() const {
    if (!positioned_) moveAfter(std::nullopt);
  }
  void moveTo(std::optional<int64_t> rowid) const;
  void moveAfter(std::optional<int64_t> rowid) const;  // nullopt: to the first row
  // Keeps the wanted columns of row `rowid`, read by statement `st` from its column `first` on,
  // in the snapshot's memo.
  void remember(int64_t rowid, const Statement& st, int first) const;
  void loadColumn(size_t column);
  std::optional<int64_t> findFrom(bool next);

  Database& db_;
  std::shared_ptr<CursorShape> shape_;
  const TableInfo& table_;
  bool readOnly_;
  bool ordered_ = false;
  std::vector<int64_t> order_;
  size_t index_ = 0;
  std::unordered_map<int64_t, size_t> position_;

  mutable bool positioned_ = false;
  mutable State state_ = State::End;
  mutable int64_t rowid_ = 0;
  mutable bool cacheValid_ = false;
  Database::SnapshotMemo::Row row_;

  State stateBeforeAdd_ = State::End;
  int64_t rowidBeforeAdd_ = 0;
  std::vector<std::optional<Stored>> pending_;
  int64_t reservedKey_ = 0;

  bool rowHolds(int64_t rowid);  // for a find: the row exists and meets the WHERE clause

  int findColumn_ = -1;
  std::string findKey_;  // folded
};

// A result read whole. On one table without a key (a Jet table made without a primary key),
// the rows are writable too: a row is named by all its old values, and a write that would reach
// more than one row is refused.
class ResultRecordset : public Recordset {
 public:
  // `table`: the one table the statement reads, when its rows may be written.
  ResultRecordset(Database& db, const std::string& sql,
                  std::shared_ptr<const TableInfo> table = nullptr, bool readOnlyLock = true);
  bool isEOF() const override { return index_ >= rows_.size(); }
  bool hasCurrentRow() const override {
    return pending_.empty() ? index_ < rows_.size() && !deleted_[index_] : true;
  }
  void moveNext() override;
  std::string read(const std::string& field) override;
  void write(const std::string& field, const std::string& value) override;
  void addNew() override;
  void setNew(const std::string& field, const std::string& value) override;
  void saveNew() override;
  bool findFirst(const std::string& field, const std::string& value) override;
  void findNext() override;
  void deleteCurrent() override;

 private:
  [[noreturn]] void readOnly() const;
  int column(const std::string& field) const;
  std::optional<size_t> findFrom(size_t start);
  void requireRow() const;
  const ColumnInfo& tableColumn(const std::string& field) const;
  // The WHERE clause naming the current row by its old values, with the values to bind; throws
  // when it names none or more than one row.
  std::string namedRow(std::vector<std::pair<Stored, ColumnKind>>& values);
  void run(const std::string& sql, const std::vector<std::pair<Stored, ColumnKind>>& values);

  Database* db_;
  std::string sql_;
  std::shared_ptr<const TableInfo> table_;
  bool writable_ = false;
  std::vector<int> resultColumn_;  // by table column: its column in the rows (-1 none)
  std::vector<ColumnInfo> columns_;
  std::vector<std::vector<Stored>> rows_;
  std::vector<bool> deleted_;
  size_t index_ = 0;
  std::vector<std::optional<Stored>> pending_;  // by table column; empty: no new row
  int64_t reservedKey_ = 0;
  std::unordered_map<int, std::unordered_map<std::string, std::vector<size_t>>> hash_;
  int findColumn_ = -1;
  std::string findValue_;
};

}  // namespace dossync::sql
