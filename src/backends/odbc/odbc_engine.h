// The ODBC engine of the shared SQL layer (sql/engine.h): a database file reached through an ODBC
// driver, with the ODBC C API only (the wide "W" functions, text converted from and to UTF-8), so
// that the same code builds against unixODBC and against Windows' odbc32.
//
// Two flavours, chosen by the file's first bytes (a file not made yet: by its name):
//   SQLite ("SQLite format 3"): the SQLite ODBC driver ("SQLite3", or on Windows "SQLite3 ODBC
//     Driver" where it is installed by that name; the environment variable
//     DOSSYNC_ODBC_SQLITE_DRIVER names another). It behaves as the native SQLite engine does:
//     the same table descriptions and key reservation (sqlite/sqlite_schema.h), read snapshots
//     in WAL mode, PRAGMA data_version for other connections' changes, rows named by rowid, a
//     20 s wait for another connection's lock (SQLite's busy timeout: the driver's own wait is
//     cut to 1 ms, as it would also wait out a write that a stale snapshot refuses for good) and
//     busy/locked reported as the native engine reports them.
//     ORDER BY on text is sorted by the shared layer in this process (no custom collation can be
//     given through ODBC).
//   Access ("Standard Jet DB" / "Standard ACE DB" at byte 4): the ACE driver "Microsoft Access
//     Driver (*.mdb, *.accdb)" or, where it is missing (32-bit ACE often is), the Jet driver
//     every Windows has, "Microsoft Access Driver (*.mdb)". The shared layer writes Jet's SQL for
//     it (sql::Engine::jetSql): names in brackets, plain markers, integers bound as
//     SQL_INTEGER, dates as timestamps, Yes/No values as bits; every statement is checked
//     against what Jet refuses (sql::jetRejects) before the driver sees it. Tables are
//     described with SQLColumns and SQLPrimaryKeys (SQLStatistics' "PrimaryKey" index when the
//     driver has no SQLPrimaryKeys); a table without a primary key (as the original component
//     made them) is written row by row, each named by its values. An auto-number (COUNTER) is
//     reserved as one above the column's largest value and every number this connection
//     promised, and a row the insert numbered is told by SELECT @@IDENTITY; no read snapshots,
//     and another connection's change is assumed at every look (the in-process indexes are
//     built anew).
//   The Jet SQL can also be asked for on a SQLite file (jetSql=true): the same statements then
//     run on the SQLite driver, which takes all of them, so that the path is tested where no
//     Access driver exists.
// No driver for a file's flavour: RuntimeError kProviderNotFound naming the drivers tried; the
// file is not touched.
// Values are read as text and typed as SQLite does by the column's affinity (a declared text
// column reads text; any other column reads an integer or a real when its text is one); a
// real reads with the 15 digits the driver prints.
// Errors name the database file and carry the driver's diagnostic (SQLGetDiagRec).
// Thread use: one thread per connection.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/sql/database.h"
#include "backends/sql/engine.h"

namespace dossync::odbc {

enum class Flavour { SQLite, Access };

// A file with Jet's or ACE's header is an Access database, one with SQLite's a SQLite file.
// Other files (empty, not made yet, or not databases): by the name, .mdb and .accdb Access when
// an Access driver is installed (so a new synchronisation database is a Jet file where Jet is
// there), SQLite otherwise.
Flavour flavourOf(const std::string& path);
// The file's header names Jet or ACE.
bool hasAccessHeader(const std::string& path);
// Whether a file is there (the path in UTF-8, on Windows too).
bool fileExists(const std::string& path);
// The drivers that may open a file of the flavour, in the order they are tried: ACE, then Jet;
// for SQLite $DOSSYNC_ODBC_SQLITE_DRIVER, "SQLite3 ODBC Driver" (Windows, where installed) or
// "SQLite3".
std::vector<std::string> driverNames(Flavour flavour);
// The first of them that is installed; throws RuntimeError kProviderNotFound naming those tried.
std::string driverName(Flavour flavour);
// Whether the ODBC driver manager knows a driver of that name (SQLDrivers).
bool driverInstalled(const std::string& name);
// Whether any driver for the flavour is installed.
bool driverAvailable(Flavour flavour);
// The path as the driver must be given it. Under Wine, whose odbc32 hands the connection to the
// host's Unix drivers, a Windows path becomes the Unix one (wine_get_unix_file_name); anywhere
// else the path is given unchanged.
std::string driverPath(const std::string& path);

class OdbcEngine : public sql::Engine {
 public:
  // Opens an existing database (create=false; RuntimeError kCannotOpenDatabase naming the path
  // when there is no such file, kNotADatabase when it is not a database, kProviderNotFound
  // when no driver for it is installed) or makes a new one through the driver (create=true).
  // The flavour is flavourOf(path) unless given; Jet's SQL is the Access flavour's unless asked
  // for on a SQLite file too.
  OdbcEngine(const std::string& path, bool create = false);
  OdbcEngine(const std::string& path, bool create, Flavour flavour);
  OdbcEngine(const std::string& path, bool create, Flavour flavour, bool jetSql);
  ~OdbcEngine() override;
  OdbcEngine(const OdbcEngine&) = delete;
  OdbcEngine& operator=(const OdbcEngine&) = delete;

  static constexpr int kBusyTimeoutMs = sql::kLockWaitMs;
  static constexpr int kBusyRetries = 3;

  Flavour flavour() const { return flavour_; }
  // The tables of the database (SQLTables), in name order.
  std::vector<std::string> tableNames();

  const std::string& name() const override { return path_; }
  bool readOnly() const override { return false; }
  std::unique_ptr<sql::EngineStatement> prepare(const std::string& sql) override;
  void exec(const std::string& sql) override;
  bool snapshots() const override { return wal_; }
  bool begin() override;
  Expected<void> commit() override;
  void rollback() override;
  bool inTransaction() const override { return inTransaction_; }
  uint64_t dataVersion() override;
  std::shared_ptr<sql::TableInfo> describeTable(const std::string& name,
                                                std::string& viewOf) override;
  int64_t reserveKey(const sql::TableInfo& table) override;
  bool reservesEveryKey() const override { return jet_; }
  bool keysAreWrites() const override { return !jet_; }
  std::string insertSuffix(const sql::TableInfo&) override { return ""; }
  int64_t insertedKey(sql::EngineStatement& insert) override;
  bool collatesText() const override { return false; }
  std::string lastErrorText() const override { return lastError_; }
  bool jetSql() const override { return jet_; }

  // For the statements of this engine.
  void* connection() const { return dbc_; }
  void noteError(const std::string& text) { lastError_ = text; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  void* env_ = nullptr;
  void* dbc_ = nullptr;
  std::string path_;
  Flavour flavour_;
  bool jet_;
  bool wal_ = false;
  bool inTransaction_ = false;
  uint64_t looks_ = 0;  // Jet: dataVersion's answer, new at every look
  std::string lastError_;
};

// A connection to a database file through ODBC for the shared layer.
std::unique_ptr<sql::Database> openOdbc(const std::string& path, bool create = false);

}  // namespace dossync::odbc
