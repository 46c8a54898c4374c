// A recordset handle of a data access object, closed when it goes out of scope (an error that
// ends a procedure early leaves no handle behind). Read-only (lock 1) or writable (lock 3).
// All calls go straight to the data access object and throw its RuntimeErrors.
#pragma once

#include <string>

#include "interfaces/data_access.h"

namespace dossync::hostdb {

class Recordset {
 public:
  Recordset(IDataAccess& db, const std::string& sql, int32_t lock = kLockReadOnly)
      : db_(db), handle_(db.openRecordset(sql, kCursorKeyset, lock, true, "")) {}
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
    db_.writeField(handle_, field, value, false);
  }
  void addNew() { db_.addNew(handle_); }
  void set(const std::string& field, const std::string& value) {
    db_.setNewField(handle_, field, value);
  }
  void save() { db_.saveNew(handle_); }
  bool find(const std::string& field, const std::string& value) {
    return db_.findFirst(handle_, field, value);
  }
  bool find(const std::string& field, int32_t value) { return find(field, std::to_string(value)); }
  void findNext() { db_.findNext(handle_); }
  void remove() { db_.deleteCurrent(handle_); }

 private:
  IDataAccess& db_;
  int32_t handle_;
  bool open_ = true;
};

}  // namespace dossync::hostdb
