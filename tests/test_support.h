// Shared test fixtures: temporary folders, recording services, apartments, test servers.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "interfaces/data_access.h"
#include "interfaces/object_model.h"
#include "interfaces/progress.h"
#include "interfaces/services.h"

namespace dossync {
class clsOutlookSynchronization;
}

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
// A server a script of tests/support runs in a temporary folder of its own: ready once the script
// says so (else the test fails with its log); stop() or the destructor ends it.
class ScriptServer {
 public:
  ~ScriptServer() { stop(); }
  ScriptServer(const ScriptServer&) = delete;
  ScriptServer& operator=(const ScriptServer&) = delete;
  void stop();              // ends the server and waits for it; nothing when it has ended
  std::string log() const;  // what the server wrote

 protected:
  explicit ScriptServer(std::string logName) : logName_(std::move(logName)) {}
  // Runs the script with these arguments; answers what it wrote into `readyFile`.
  std::string start(const std::string& script, const std::vector<std::string>& args,
                    const std::string& readyFile, int seconds);
  TempDir dir_;

 private:
  std::string logName_;
  int pid_ = -1;
};

// A Radicale CardDAV server (tests/support/radicale_server.py) on 127.0.0.1 and a free port,
// users given as "name:password". Starting one takes about half a second: share one per suite
// (SetUpTestSuite) and give each test its own address book.
class RadicaleServer : public ScriptServer {
 public:
  explicit RadicaleServer(const std::vector<std::string>& users = {"alice:secret"});
  // Not Radicale: a server that answers 429 to the first N requests for a path /N/..., then
  // 207 (PROPFIND) or 200; its Retry-After is "1" and an HTTP date 2 s ahead in turn.
  struct Busy {};
  explicit RadicaleServer(Busy);

  std::string base() const;  // http://127.0.0.1:PORT/
  // The URL of an address book: http://127.0.0.1:PORT/alice/book/
  std::string url(const std::string& user, const std::string& book) const;
  // Makes the address book, or with `calendar` a calendar (extended MKCOL as its owner, whose
  // password the server was given); fails the test unless the server made it.
  void makeBook(const std::string& user, const std::string& book, bool calendar = false);

 private:
  std::vector<std::string> users_;
  int port_ = 0;
};

// A PostgreSQL 15 cluster (tests/support/postgres_server.py): its socket in a temporary folder,
// no TCP listener, superuser "dossync" with trusted local logins. Starting one takes about a
// second: share one per suite and give each test its own database.
class PostgresServer : public ScriptServer {
 public:
  PostgresServer();
  // The libpq URI of a database of the cluster ("postgres" is always there).
  std::string uri(const std::string& database) const;
  // Makes an empty database (UTF-8); fails the test unless the server made it.
  void createDatabase(const std::string& name);

 private:
  std::string base_;  // the URI of "postgres"
};

// Tests on one Radicale server for the suite (user alice, password secret), each with an address
// book of its own named after the test in lower case: `book`, at `url`.
class RadicaleSuite : public ::testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;
  static RadicaleServer* server;
  std::string book, url;
};

// Runs SQL directly on a database file (fixtures and checks that bypass dossync).
void execSql(const std::string& path, const std::string& sql);
// The first column of every row of a query, as text ("" for NULL).
std::vector<std::string> querySql(const std::string& path, const std::string& sql);
// A file's bytes ("" when it cannot be read).
std::string readFile(const std::string& path);
// The RuntimeError that f throws; one numbered 0, "nothing thrown", when it throws none.
RuntimeError thrown(const std::function<void()>& f);
// The number of the RuntimeError that f throws; 0 when it throws none.
inline int32_t errorOf(const std::function<void()>& f) {
  return thrown(f).number();
}
// A port on 127.0.0.1 that nothing listens on (one just let go of).
int closedPort();
// A new contact of the store, filed as `fileAs` and given the rest by `fill`, saved.
outlook::ContactItemPtr saveContact(
    outlook::Application& app, const std::string& fileAs,
    const std::function<void(outlook::ContactItem&)>& fill = [](outlook::ContactItem&) {});

// Forwards every call to a real data access object, calling before(call, detail) first: the
// statement of openRecordset, the field of readField, writeField, setNewField and findFirst,
// "" for the others. Tests override before() to watch or to fail calls.
class ForwardingDataAccess : public hostdb::IDataAccess {
 public:
  explicit ForwardingDataAccess(hostdb::DataAccessPtr real) : real_(std::move(real)) {}
  void setErrorService(std::shared_ptr<IErrorService> s) override { real_->setErrorService(s); }
  void setAppName(const std::string& n) override { real_->setAppName(n); }
  void setConnectionKind(int32_t k) override { real_->setConnectionKind(k); }
  void setDatabaseLocation(const std::string& p) override { real_->setDatabaseLocation(p); }
  void setCursorLocation(int32_t l) override { real_->setCursorLocation(l); }
  void setAccessMode(int32_t m) override { real_->setAccessMode(m); }
  bool openDatabase(int32_t m) override { return before("openDatabase"), real_->openDatabase(m); }
  void closeDatabase() override { real_->closeDatabase(); }
  std::string lastError() const override { return real_->lastError(); }
  bool isEOF(int32_t h) override { return before("isEOF"), real_->isEOF(h); }
  bool isDatabaseOpen() override { return real_->isDatabaseOpen(); }
  int32_t openRecordset(const std::string& sql, int32_t c, int32_t l, bool o,
                        const std::string& t) override {
    return before("openRecordset", sql), real_->openRecordset(sql, c, l, o, t);
  }
  void closeRecordset(int32_t h) override { real_->closeRecordset(h); }
  bool hasCurrentRow(int32_t h) override {
    return before("hasCurrentRow"), real_->hasCurrentRow(h);
  }
  void moveNext(int32_t h) override { before("moveNext"), real_->moveNext(h); }
  std::string readField(int32_t h, const std::string& f) override {
    return before("readField", f), real_->readField(h, f);
  }
  void writeField(int32_t h, const std::string& f, const std::string& v, bool o) override {
    before("writeField", f), real_->writeField(h, f, v, o);
  }
  void addNew(int32_t h) override { before("addNew"), real_->addNew(h); }
  void setNewField(int32_t h, const std::string& f, const std::string& v) override {
    before("setNewField", f), real_->setNewField(h, f, v);
  }
  void saveNew(int32_t h) override { before("saveNew"), real_->saveNew(h); }
  bool findFirst(int32_t h, const std::string& f, const std::string& v) override {
    return before("findFirst", f), real_->findFirst(h, f, v);
  }
  void findNext(int32_t h) override { before("findNext"), real_->findNext(h); }
  void deleteCurrent(int32_t h) override { before("deleteCurrent"), real_->deleteCurrent(h); }
  void idle() override { real_->idle(); }
  void groupWrites(bool on) override { real_->groupWrites(on); }
  void commitPoint() override { real_->commitPoint(); }
  bool commitDue() override { return real_->commitDue(); }
  void dropGroup() override { real_->dropGroup(); }
  void beginRecord() override { real_->beginRecord(); }
  void endRecord(bool keep) override { real_->endRecord(keep); }
  bool previewing() override { return real_->previewing(); }

 protected:
  virtual void before(const char* call, const std::string& detail = "") {}
  hostdb::DataAccessPtr real_;
};

// Fails with RuntimeError 3043 every call that `fails` answers true for, given the call's name
// and detail ("readField OutlookID", "isEOF", "openDatabase"). Made without a real object, it
// forwards to a new SQLite one.
class FaultyDataAccess : public ForwardingDataAccess {
 public:
  FaultyDataAccess();
  FaultyDataAccess(hostdb::DataAccessPtr real, std::function<bool(const std::string&)> fails)
      : ForwardingDataAccess(std::move(real)), fails(std::move(fails)) {}
  std::function<bool(const std::string&)> fails;

 protected:
  void before(const char* call, const std::string& detail) override;
};

// Opens `path` through a new FaultyDataAccess and puts it in `slot` (apartment().hostDb or
// apartment().syncDb).
std::shared_ptr<FaultyDataAccess> installFaulty(std::shared_ptr<hostdb::IDataAccess>& slot,
                                                const std::string& path);

// A progress dialog that writes down the calls below in order, runs its start handler when
// shown, and keeps its owner, value and statuses. The call named by failOn throws instead.
class RecordingProgress : public ProgressDialogBase {
 public:
  void setMessage(const std::string&) override { note("setMessage"); }
  void setAllowCancel(bool) override { note("setAllowCancel"); }
  void show() override;
  void setStatus(const std::string& text) override { statuses.push_back(text); }
  void close() override { note("close"); }
  const ObjectPtr& owner() const { return owner_; }
  int32_t maximum() const { return maximum_; }

  std::string failOn;
  std::vector<std::string> calls;
  std::vector<std::string> statuses;

 private:
  void note(const std::string& call);
};

// Registers one RecordingProgress as the host's progress dialog (every dialog made is this one).
std::shared_ptr<RecordingProgress> registerRecordingProgress(const std::string& failOn = "");

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

// Each test starts with a component of its own given recording services, without databases;
// renew() puts another in its place.
class ComponentFixture : public ApartmentTest {
 protected:
  void SetUp() override;
  void renew();
  std::shared_ptr<RecordingErrorService> errors = std::make_shared<RecordingErrorService>();
  std::shared_ptr<RecordingMessageBox> messages = std::make_shared<RecordingMessageBox>();
  std::unique_ptr<clsOutlookSynchronization> component;
};

// Each test starts with a Host, whose host database the test fills and reads.
class HostTest : public ApartmentTest {
 protected:
  void SetUp() override;
  void TearDown() override;
  void sql(const std::string& text) { execSql(host->hostPath, text); }
  std::vector<std::string> rows(const std::string& query) {
    return querySql(host->hostPath, query);
  }
  std::string one(const std::string& query);  // the first row's column; "<no row>" for none
  RecordingErrorService& errors() { return *host->errors; }
  clsOutlookSynchronization& c() { return *host->component; }
  std::unique_ptr<Host> host;
};

}  // namespace dossync::testing
