// The data access object: the one path to the host database (and, through a second instance,
// to the synchronisation database). Recordsets are 32-bit handles; every value passes as text
// (Booleans "True"/"False", numbers in decimal, dates in the default text form of base/value.h).
//
// Connection: the opener sets, in order, the connection kind (2), the database location, the
// cursor location (3) and the access mode (2), then calls openDatabase(2). openDatabase never
// throws: it answers whether the database is open, and a failure is reported through the
// error service the object was given (lastError() keeps it).
//
// Recordsets:
//   openRecordset(sql, cursorKind, lockKind, ...)  lock kind 1 is read-only (a write is
//       RuntimeError 3251); 2 to 4 write each field at once, with no separate update step.
//   After opening, the first row (if any) is current. isEOF is true when there is no current
//   row: after the last row, or when the last find or find-next found nothing.
//   hasCurrentRow is true while a row is current.
//   addNew makes a pending row current; its auto-number key can be read at once and the row
//   keeps that key when saveNew stores it.
//   findFirst(field, value) / findNext compare the field's text with the value without regard
//   to case (value::compareText, as the host's engine does) and make the found row current; a
//   NULL field matches nothing. A field the recordset does not have finds nothing. ORDER BY
//   sorts text by the same rule. An added row holds what was set and the database's defaults.
//   A closed or unknown handle is RuntimeError 3704.
// Thread use: one apartment thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/error.h"
#include "base/object.h"

namespace dossync::hostdb {

enum CursorKind : int32_t { kCursorKeyset = 1 };
enum LockKind : int32_t { kLockReadOnly = 1, kLockPessimistic = 2, kLockOptimistic = 3 };

class IDataAccess : public Object {
 public:
  // Connection.
  virtual void setErrorService(std::shared_ptr<IErrorService> service) = 0;
  virtual void setAppName(const std::string& name) = 0;
  virtual void setConnectionKind(int32_t kind) = 0;
  virtual void setDatabaseLocation(const std::string& path) = 0;
  virtual void setCursorLocation(int32_t location) = 0;
  virtual void setAccessMode(int32_t mode) = 0;
  virtual bool openDatabase(int32_t mode) = 0;
  virtual void closeDatabase() = 0;
  virtual std::string lastError() const = 0;

  // Recordsets, in the order of the object's interface.
  virtual bool isEOF(int32_t handle) = 0;
  virtual bool isDatabaseOpen() = 0;
  virtual int32_t openRecordset(const std::string& sql, int32_t cursorKind, int32_t lockKind,
                                bool option = true, const std::string& text = "") = 0;
  virtual void closeRecordset(int32_t handle) = 0;
  virtual bool hasCurrentRow(int32_t handle) = 0;
  virtual void moveNext(int32_t handle) = 0;
  virtual std::string readField(int32_t handle, const std::string& field) = 0;
  virtual void writeField(int32_t handle, const std::string& field, const std::string& value,
                          bool option = false) = 0;
  virtual void addNew(int32_t handle) = 0;
  virtual void setNewField(int32_t handle, const std::string& field, const std::string& value) = 0;
  virtual void saveNew(int32_t handle) = 0;
  virtual bool findFirst(int32_t handle, const std::string& field, const std::string& value) = 0;
  virtual void findNext(int32_t handle) = 0;
  virtual void deleteCurrent(int32_t handle) = 0;

  // Lets go of any read snapshot, as DAO's Idle does: the next read sees every other
  // program's latest writes. Called when the outermost procedure returns (and before an error
  // is reported); throws what could not be committed.
  virtual void idle() {}
  // Writes made inside a procedure are committed together: at a commit point once the oldest
  // of them is 100 ms old, and by idle(); never in between, so a group holds whole records. A
  // run killed meanwhile loses the last group. Other programs' writes wait for it meanwhile.
  virtual void groupWrites(bool) {}
  // A point where what was written so far forms a whole: grouped writes 100 ms old or older
  // are committed (throws what could not be). commitDue: whether commitPoint would commit.
  virtual void commitPoint() {}
  virtual bool commitDue() { return false; }
  // The grouped writes not committed yet are undone (what they named was not saved).
  virtual void dropGroup() {}
  // A record's writes within the group: endRecord(false) undoes those made since beginRecord
  // (and only those), endRecord(true) keeps them with the group.
  virtual void beginRecord() {}
  virtual void endRecord(bool /*keep*/) {}
  // With grouped writes: the group (opened now if none is) holds the lock other writers wait
  // for until it is committed, taken now, waiting as a write would. A run that writes two
  // databases takes the host's this way before it writes the other, so that two such runs
  // never each hold one lock and wait for the other's.
  virtual void holdWrites() {}
  // A preview: from beginPreview on, nothing read or written is ever committed, and endPreview
  // undoes all of it, leaving the database as it was (readers elsewhere never see it). Answers
  // false when this object cannot preview (nothing was begun then). Closing the database ends a
  // preview the same way.
  virtual bool beginPreview() { return false; }
  virtual void endPreview() {}
  // Whether a preview is going on.
  virtual bool previewing() { return false; }
};

using DataAccessPtr = std::shared_ptr<IDataAccess>;

}  // namespace dossync::hostdb
