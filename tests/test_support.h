// Shared test fixtures: temporary folders, recording host services, a fresh apartment.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/sqlite/sqlite_data_access.h"
#include "core/error.h"
#include "core/services.h"

namespace dossync::testing {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

class RecordingErrorService : public IErrorService {
 public:
  void enterProcedure(const std::string& location) override;
  void leaveProcedure() override;
  void recordError(const RuntimeError& error) override;
  void reportError() override { ++reports; }
  int32_t chooseAction() override { return action; }

  int32_t action = kActionLeave;
  std::vector<std::string> entered;  // every location entered, in order
  std::vector<std::string> stack;
  int leaves = 0;
  int reports = 0;
  std::vector<RuntimeError> errors;
  std::vector<std::string> errorLocations;  // the procedure current at each error
};

class RecordingMessageBox : public IMessageBox {
 public:
  struct Shown {
    std::string text;
    int32_t style;
    ObjectPtr owner;
    int32_t number;
    bool question;
  };
  int32_t showMessage(const std::string& text, int32_t style, const ObjectPtr& owner, int32_t,
                      int32_t, int32_t number) override;
  bool askYesNo(const std::string& text, int32_t style, const ObjectPtr& owner,
                int32_t number) override;

  bool answer = false;
  std::vector<Shown> shown;
};

// Each test starts with an empty apartment and the SQLite classes registered.
class ApartmentTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  TempDir dir;
};

// A new host database (the shipped schema) in the folder; answers its path.
std::string makeHostDatabase(const TempDir& dir, const std::string& name = "host.db");
// Runs SQL directly on a database file (fixtures and checks that bypass dossync).
void execSql(const std::string& path, const std::string& sql);
// The first column of every row of a query, as text ("" for NULL).
std::vector<std::string> querySql(const std::string& path, const std::string& sql);

// The SQLite data access object with failures on demand: `fails` is asked before each call
// below with its name and field ("readField OutlookID", "isEOF", "setNewField City"); true
// makes the call throw RuntimeError 3146.
class FaultyDataAccess : public sqlite::SqliteDataAccess {
 public:
  std::function<bool(const std::string&)> fails = [](const std::string&) { return false; };

  bool isEOF(int32_t h) override {
    check("isEOF");
    return SqliteDataAccess::isEOF(h);
  }
  bool hasCurrentRow(int32_t h) override {
    check("hasCurrentRow");
    return SqliteDataAccess::hasCurrentRow(h);
  }
  std::string readField(int32_t h, const std::string& field) override {
    check("readField " + field);
    return SqliteDataAccess::readField(h, field);
  }
  void writeField(int32_t h, const std::string& field, const std::string& v, bool o) override {
    check("writeField " + field);
    SqliteDataAccess::writeField(h, field, v, o);
  }
  void setNewField(int32_t h, const std::string& field, const std::string& v) override {
    check("setNewField " + field);
    SqliteDataAccess::setNewField(h, field, v);
  }
  bool openDatabase(int32_t mode) override {
    check("openDatabase");
    return SqliteDataAccess::openDatabase(mode);
  }

 private:
  void check(const std::string& call) {
    if (fails(call)) throw RuntimeError(kStatementFailed, "Injected failure: " + call);
  }
};

// Opens `path` through a new FaultyDataAccess and puts it in `slot` (apartment().hostDb or
// apartment().syncDb).
std::shared_ptr<FaultyDataAccess> installFaulty(std::shared_ptr<hostdb::IDataAccess>& slot,
                                                const std::string& path);

}  // namespace dossync::testing

namespace dossync {
class clsOutlookSynchronization;
}

namespace dossync::testing {

// A component wired as a host would: recording services, the host and sync databases in the
// folder, and the folder's vCard store as Outlook ("vdir:<dir>/outlook").
struct Host {
  explicit Host(const TempDir& dir, bool withHostDatabase = true);
  ~Host();
  std::string hostPath, syncPath, outlookRoot;
  std::shared_ptr<RecordingErrorService> errors;
  std::shared_ptr<RecordingMessageBox> messages;
  std::unique_ptr<clsOutlookSynchronization> component;
};

}  // namespace dossync::testing
