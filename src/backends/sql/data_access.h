// The data access object (interfaces/data_access.h) over an SQL engine (engine.h): SQLite or
// PostgreSQL, chosen by the opener the object is given, when the database is opened.
//
// How recordsets stay cheap:
//   A statement of the form "SELECT T.*[, T.col ...] FROM T [WHERE ...] [ORDER BY ...];" opens
//   a cursor on table T that holds only its position (the row's integer key: SQLite's rowid, a
//   PostgreSQL table's primary key), never a copy of the table. The current row is read by key
//   when a field is asked for; walking asks for the next key. With ORDER BY, the ordered list
//   of keys is read once at open (the trees walk them all).
//   findFirst/findNext look the value up in an index of the column that this process keeps
//   (column_index.h; the database itself is never given an index), built by one scan at the
//   first find on the column, kept up to date with this connection's writes and built anew
//   after another connection's; the WHERE clause of the query is checked on the rows found. Finds
//   compare text without regard to case (value::foldCase), and ORDER BY sorts text the same way
//   (SQLite: collation dossync_text; PostgreSQL, whose collations do not order as
//   value::compareText does: sorted in this process). Any other statement (joins) is read whole
//   into memory at open and is read-only; its finds use a hash index of folded text built at the
//   first find on a field. So is a Jet table without a key, whose rows are written each named by
//   all its old values (a write that would reach more than one row is refused).
// Writes: lock kinds 2-4 write each field at once (its own transaction unless writes are
// grouped, below; a field that holds the value already, byte for byte, is not written: a
// change of case is written whatever the column's collation); a pending new row is
// held in memory and inserted by saveNew with the columns that were set (the others take the
// database's defaults, which reading the pending row already shows); its auto-number key is
// reserved when first read before the save (and from then on for every new row of that
// table; on PostgreSQL always), else drawn by the insert.
// Reads between two writes share one read transaction (for at most 100 ms, and never past the
// return of the outermost procedure: idle(); outside procedures, never past the closing of the
// last open recordset), so a walk does not pay a transaction per statement; a write joins that
// snapshot and commits it at once (after another connection's write, it runs on its own against
// the latest data). With groupWrites(true), writes made inside a procedure are committed
// together instead, with the snapshot: at the first commit point (commitPoint(), between two
// records) 100 ms or more after the snapshot began, and when the outermost procedure returns
// (idle(), which then throws what could not be committed); never between, so a run killed
// meanwhile loses whole records only.
// Text longer than a VARCHAR(n) column's n characters is refused (RuntimeError 3163, naming
// table, column and size), as Jet does. Booleans read "True"/"False"; dates read in the
// default text form.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "backends/sql/database.h"
#include "backends/sql/recordset.h"
#include "interfaces/data_access.h"

namespace dossync::sql {

class DataAccess : public hostdb::IDataAccess {
 public:
  // Opens the engine of a database location; throws RuntimeError (kCannotOpenDatabase and the
  // like) naming the database when it cannot.
  using Opener = std::function<std::unique_ptr<Engine>(const std::string& location)>;
  explicit DataAccess(Opener opener);
  ~DataAccess() override;

  void setErrorService(std::shared_ptr<IErrorService> service) override;
  void setAppName(const std::string& name) override { appName_ = name; }
  void setConnectionKind(int32_t kind) override { connectionKind_ = kind; }
  void setDatabaseLocation(const std::string& path) override { location_ = path; }
  void setCursorLocation(int32_t location) override { cursorLocation_ = location; }
  void setAccessMode(int32_t mode) override { accessMode_ = mode; }
  bool openDatabase(int32_t mode) override;
  void closeDatabase() override;
  std::string lastError() const override { return lastError_; }

  bool isEOF(int32_t handle) override;
  bool isDatabaseOpen() override { return db_ != nullptr; }
  int32_t openRecordset(const std::string& sql, int32_t cursorKind, int32_t lockKind,
                        bool option = true, const std::string& text = "") override;
  void closeRecordset(int32_t handle) override;
  bool hasCurrentRow(int32_t handle) override;
  void moveNext(int32_t handle) override;
  std::string readField(int32_t handle, const std::string& field) override;
  void writeField(int32_t handle, const std::string& field, const std::string& value,
                  bool option = false) override;
  void addNew(int32_t handle) override;
  void setNewField(int32_t handle, const std::string& field, const std::string& value) override;
  void saveNew(int32_t handle) override;
  bool findFirst(int32_t handle, const std::string& field, const std::string& value) override;
  void findNext(int32_t handle) override;
  void deleteCurrent(int32_t handle) override;
  void idle() override;
  void groupWrites(bool on) override;
  void commitPoint() override;
  bool commitDue() override { return db_ && db_->commitDue(); }
  void dropGroup() override;
  void beginRecord() override;
  void endRecord(bool keep) override;
  void holdWrites() override;
  bool beginPreview() override;
  void endPreview() override;
  bool previewing() override;

  // Open recordsets (for tests and leak reports).
  size_t openRecordsetCount() const { return recordsets_.size(); }
  Database* database() { return db_.get(); }

 private:
  Recordset& recordset(int32_t handle);
  Opener opener_;
  void beforeWrite();  // groups the write when asked to and inside a procedure

  std::shared_ptr<IErrorService> errorService_;
  std::string appName_;
  int32_t connectionKind_ = 0;
  std::string location_;
  int32_t cursorLocation_ = 0;
  int32_t accessMode_ = 0;
  std::string lastError_;
  bool groupWrites_ = false;
  std::unique_ptr<Database> db_;
  std::map<int32_t, std::unique_ptr<Recordset>> recordsets_;
  // Statements come back again and again (a look-up per row): their shape is worked out once.
  struct Shape {
    std::optional<TableQuery> query;      // nullopt: not a one-table statement
    std::shared_ptr<CursorShape> cursor;  // for the table description it was made with
  };
  std::unordered_map<std::string, Shape> shapes_;
  int32_t nextHandle_ = 1;
};

}  // namespace dossync::sql
