// A recordset handle of a data access object, closed when it goes out of scope (an error that
// ends a procedure early leaves no handle behind). Read-only (lock 1) or writable (lock 3).
// All calls go straight to the data access object and throw its RuntimeErrors.
// While a run is watched (core/run_observer.h), a recordset of the host database reports the
// rows it adds and the columns whose values it changes, as they were stored.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/apartment.h"
#include "interfaces/data_access.h"

namespace dossync::hostdb {

class Recordset {
 public:
  Recordset(IDataAccess& db, const std::string& sql, int32_t lock = kLockReadOnly)
      : db_(db), handle_(db.openRecordset(sql, kCursorKeyset, lock, true, "")) {
    if (lock != kLockReadOnly && apartment().runObserver && &db == apartment().hostDb.get())
      table_ = tableOf(sql);
  }
  ~Recordset() { close(); }
  Recordset(const Recordset&) = delete;
  Recordset& operator=(const Recordset&) = delete;

  void close() {
    if (open_) {
      open_ = false;
      try {
        db_.closeRecordset(handle_);
      } catch (...) {
        // The database went away with its recordsets; nothing is left to close.
      }
    }
  }
  int32_t handle() const { return handle_; }
  bool eof() { return db_.isEOF(handle_); }
  bool hasRow() { return db_.hasCurrentRow(handle_); }
  void next() { db_.moveNext(handle_); }
  std::string read(const std::string& field) { return db_.readField(handle_, field); }
  void write(const std::string& field, const std::string& value) {
    std::string before;
    if (!table_.empty()) {
      try {
        before = db_.readField(handle_, field);
      } catch (const RuntimeError&) {
        // The write itself will say what is wrong.
      }
    }
    db_.writeField(handle_, field, value, false);
    if (table_.empty()) return;
    // What the field holds now is what was written (a date in its stored form, say).
    std::string after = value;
    try {
      after = db_.readField(handle_, field);
    } catch (const RuntimeError&) {
    }
    if (before != after)
      observeRun([&](IRunObserver& o) { o.hostColumnChanged(table_, field, before, after); });
  }
  void addNew() {
    db_.addNew(handle_);
    added_.clear();
  }
  void set(const std::string& field, const std::string& value) {
    db_.setNewField(handle_, field, value);
    if (!table_.empty()) added_.emplace_back(field, value);
  }
  void save() {
    db_.saveNew(handle_);
    if (!table_.empty()) observeRun([&](IRunObserver& o) { o.hostRowAdded(table_, added_); });
    added_.clear();
  }
  bool find(const std::string& field, const std::string& value) {
    return db_.findFirst(handle_, field, value);
  }
  bool find(const std::string& field, int32_t value) { return find(field, std::to_string(value)); }
  void findNext() { db_.findNext(handle_); }
  void remove() { db_.deleteCurrent(handle_); }

 private:
  // "SELECT T.* FROM T;" -> "T".
  static std::string tableOf(const std::string& sql) {
    size_t at = sql.find(" FROM ");
    if (at == std::string::npos) at = sql.find(" From ");
    if (at == std::string::npos) return "?";
    at += 6;
    size_t end = sql.find_first_of(" ;", at);
    return sql.substr(at, end == std::string::npos ? std::string::npos : end - at);
  }

  IDataAccess& db_;
  int32_t handle_;
  bool open_ = true;
  std::string table_;  // set while a run is watched: the host table this recordset writes
  std::vector<std::pair<std::string, std::string>> added_;  // the fields of the row being added
};

// Text put between single quotes in a statement: embedded quotes are doubled.
inline std::string sqlQuoted(const std::string& text) {
  std::string out;
  for (char c : text) {
    out += c;
    if (c == '\'') out += '\'';
  }
  return out;
}

// The apartment's synchronisation database; RuntimeError 91 when it is not open.
inline IDataAccess& syncDatabase() {
  auto& db = apartment().syncDb;
  if (!db) throw RuntimeError(kObjectVariableNotSet, "The synchronization database is not open");
  return *db;
}

}  // namespace dossync::hostdb
