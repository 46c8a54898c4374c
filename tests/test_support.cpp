#include "test_support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <libpq-fe.h>
#include <netinet/in.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "app/outlook_wiring.h"
#include "app/terminal_progress.h"
#include "backends/sqlite/host_database.h"
#include "backends/sqlite/sqlite_data_access.h"
#include "base/platform.h"
#include "core/apartment.h"
#include "core/synchronization.h"

namespace dossync::testing {

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "dossync-test-XXXXXX").string();
  if (!mkdtemp(tmpl.data())) std::abort();
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

void RecordingErrorService::enterProcedure(const std::string& location) {
  entered.push_back(location);
  stack.push_back(location);
}

void RecordingErrorService::leaveProcedure() {
  if (!stack.empty()) stack.pop_back();
}

void RecordingErrorService::recordError(const RuntimeError& error) {
  errors.push_back(error);
  errorLocations.push_back(stack.empty() ? "" : stack.back());
}

int32_t RecordingMessageBox::showMessage(const std::string& text, int32_t style,
                                         const ObjectPtr& owner, int32_t, int32_t, int32_t number) {
  shown.push_back({text, style, owner, number, false});
  return 1;
}

bool RecordingMessageBox::askYesNo(const std::string& text, int32_t style, const ObjectPtr& owner,
                                   int32_t number) {
  shown.push_back({text, style, owner, number, true});
  return answer;
}

void ApartmentTest::SetUp() {
  resetApartment();
  sqlite::registerSqliteClasses();
}

void ApartmentTest::TearDown() {
  resetApartment();
}

std::shared_ptr<FaultyDataAccess> installFaulty(std::shared_ptr<hostdb::IDataAccess>& slot,
                                                const std::string& path) {
  auto db = std::make_shared<FaultyDataAccess>();
  db->setDatabaseLocation(path);
  EXPECT_TRUE(db->openDatabase(2)) << path;
  slot = db;
  return db;
}

std::string makeHostDatabase(const TempDir& dir, const std::string& name) {
  std::string path = dir.file(name);
  sqlite::createHostDatabase(path);
  return path;
}

void execSql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* err = nullptr;
  int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &err);
  std::string msg = err ? err : "";
  sqlite3_free(err);
  sqlite3_close(db);
  ASSERT_EQ(rc, SQLITE_OK) << msg << " in " << sql;
}

std::vector<std::string> querySql(const std::string& path, const std::string& sql) {
  std::vector<std::string> out;
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_stmt* st = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK) {
    while (sqlite3_step(st) == SQLITE_ROW) {
      const unsigned char* t = sqlite3_column_text(st, 0);
      out.push_back(t ? reinterpret_cast<const char*>(t) : "");
    }
  } else {
    ADD_FAILURE() << sqlite3_errmsg(db) << " in " << sql;
  }
  sqlite3_finalize(st);
  sqlite3_close(db);
  return out;
}

FaultyDataAccess::FaultyDataAccess()
    : ForwardingDataAccess(std::make_shared<sqlite::SqliteDataAccess>()) {}

namespace {
// Starts a helper script with /usr/bin/python3, its output into logPath.
int spawnScript(const std::string& script, const std::vector<std::string>& args,
                const std::string& logPath) {
  std::vector<std::string> argv{"/usr/bin/python3", DOSSYNC_SOURCE_DIR "/tests/support/" + script};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> cargv;
  for (std::string& a : argv) cargv.push_back(a.data());
  cargv.push_back(nullptr);
  int pid = fork();
  if (pid == 0) {
    int fd = open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) {
      dup2(fd, 1);
      dup2(fd, 2);
    }
    execv(cargv[0], cargv.data());
    _exit(127);
  }
  return pid;
}
}  // namespace

std::string ScriptServer::start(const std::string& script, const std::vector<std::string>& args,
                                const std::string& readyFile, int seconds) {
  pid_ = spawnScript(script, args, dir_.file("server.log"));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  for (int status = 0; std::chrono::steady_clock::now() < deadline;) {
    std::string text = readFile(dir_.file(readyFile));
    if (!text.empty()) return text;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;  // the script ended
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  stop();
  std::string message = "The test server " + script + " did not start:\n" + log();
  ADD_FAILURE() << message;
  throw std::runtime_error(message);
}

// SIGTERM, then SIGKILL when the process has not ended 5 s later.
void ScriptServer::stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  int status = 0;
  for (int i = 0; i < 250 && waitpid(pid_, &status, WNOHANG) == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  if (waitpid(pid_, &status, WNOHANG) == 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  pid_ = -1;
}

std::string ScriptServer::log() const {
  return readFile(dir_.file("server.log")) + readFile(dir_.file(logName_));
}

RadicaleServer::RadicaleServer(const std::vector<std::string>& users)
    : ScriptServer("radicale.log"), users_(users) {
  std::vector<std::string> args{dir_.path()};
  args.insert(args.end(), users.begin(), users.end());
  port_ = std::stoi(start("radicale_server.py", args, "port", 10));
}

RadicaleServer::RadicaleServer(Busy) : ScriptServer("radicale.log") {
  port_ = std::stoi(start("radicale_server.py", {"--busy", dir_.path()}, "port", 10));
}

std::string RadicaleServer::base() const {
  return "http://127.0.0.1:" + std::to_string(port_) + "/";
}

std::string RadicaleServer::url(const std::string& user, const std::string& book) const {
  return base() + user + "/" + book + "/";
}

void RadicaleServer::makeBook(const std::string& user, const std::string& book, bool calendar) {
  std::string password;
  for (const std::string& u : users_) {
    if (u.rfind(user + ":", 0) == 0) password = u.substr(user.size() + 1);
  }
  std::vector<std::string> args{"--mkcol", url(user, book), user, password};
  if (calendar) args.push_back("calendar");
  int status = 0;
  waitpid(spawnScript("radicale_server.py", args, dir_.file("mkcol.log")), &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
      << "MKCOL " << url(user, book) << "\n"
      << readFile(dir_.file("mkcol.log")) << log();
}

PostgresServer::PostgresServer()
    : ScriptServer("postgres.log"),
      base_(start("postgres_server.py", {dir_.path()}, "uri-base", 30)) {}

std::string PostgresServer::uri(const std::string& database) const {
  std::string uri = base_;  // postgresql://dossync@/postgres?host=...&port=...
  return uri.replace(uri.find("@/") + 2, 8, database);
}

void PostgresServer::createDatabase(const std::string& name) {
  PGconn* conn = PQconnectdb(base_.c_str());
  if (PQstatus(conn) != CONNECTION_OK) {
    ADD_FAILURE() << "Cannot connect to the test server: " << PQerrorMessage(conn);
    PQfinish(conn);
    return;
  }
  std::string sql = "CREATE DATABASE \"" + name + "\" ENCODING 'UTF8' TEMPLATE template0;";
  PGresult* r = PQexec(conn, sql.c_str());
  EXPECT_EQ(PQresultStatus(r), PGRES_COMMAND_OK) << sql << ": " << PQerrorMessage(conn);
  PQclear(r);
  PQfinish(conn);
}

RuntimeError thrown(const std::function<void()>& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e;
  }
  return RuntimeError(0, "nothing thrown");
}

RadicaleServer* RadicaleSuite::server = nullptr;

void RadicaleSuite::SetUpTestSuite() {
  server = new RadicaleServer({"alice:secret"});
}

void RadicaleSuite::TearDownTestSuite() {
  delete server;
  server = nullptr;
}

void RadicaleSuite::SetUp() {
  book = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::transform(book.begin(), book.end(), book.begin(), ::tolower);
  server->makeBook("alice", book);
  url = server->url("alice", book);
}

int closedPort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t n = sizeof a;
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &n);
  close(fd);
  return ntohs(a.sin_port);
}

outlook::ContactItemPtr saveContact(outlook::Application& app, const std::string& fileAs,
                                    const std::function<void(outlook::ContactItem&)>& fill) {
  auto item =
      std::dynamic_pointer_cast<outlook::ContactItem>(app.CreateItem(outlook::olContactItem));
  item->setFileAs(fileAs);
  fill(*item);
  item->Save();
  return item;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void FaultyDataAccess::before(const char* call, const std::string& detail) {
  std::string what = detail.empty() ? std::string(call) : std::string(call) + " " + detail;
  if (!fails || !fails(what)) return;
  throw RuntimeError(kDiskIO, "Disk or network error in " + what);
}

void RecordingProgress::note(const std::string& call) {
  calls.push_back(call);
  if (call == failOn)
    throw RuntimeError(kOutlookOperationFailed, "The progress dialog failed in " + call);
}

void RecordingProgress::show() {
  note("show");
  if (start_) start_();
}

std::shared_ptr<RecordingProgress> registerRecordingProgress(const std::string& failOn) {
  auto dialog = std::make_shared<RecordingProgress>();
  dialog->failOn = failOn;
  platform::registerClass(kProgressDialogClass, [dialog] { return dialog; });
  return dialog;
}

Host::Host(const TempDir& dir, bool withHostDatabase)
    : hostPath(dir.file("host.db")),
      syncPath(dir.file("sync.db")),
      outlookRoot(dir.file("outlook")),
      errors(std::make_shared<RecordingErrorService>()),
      messages(std::make_shared<RecordingMessageBox>()) {
  if (withHostDatabase && !std::filesystem::exists(hostPath)) sqlite::createHostDatabase(hostPath);
  app::registerOutlook("vdir:" + outlookRoot);
  app::registerTerminalProgress(false);
  component = std::make_unique<clsOutlookSynchronization>();
  component->setErrorClass(errors);
  component->setMsgboxClass(messages);
  component->setMainDatabaseLocation(hostPath);
  component->setSyncDatabaseLocation(syncPath);
}

Host::~Host() = default;

void ComponentFixture::SetUp() {
  ApartmentTest::SetUp();
  renew();
}

void ComponentFixture::renew() {
  component = std::make_unique<clsOutlookSynchronization>();
  component->setErrorClass(errors);
  component->setMsgboxClass(messages);
}

void HostTest::SetUp() {
  ApartmentTest::SetUp();
  host = std::make_unique<Host>(dir);
}

void HostTest::TearDown() {
  host.reset();
  ApartmentTest::TearDown();
}

std::string HostTest::one(const std::string& query) {
  auto r = rows(query);
  return r.empty() ? "<no row>" : r[0];
}

}  // namespace dossync::testing
