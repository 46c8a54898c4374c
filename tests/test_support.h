// Shared test fixtures: temporary folders, recording host services, a fresh apartment.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

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
