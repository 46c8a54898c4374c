// The ODBC engine of the shared SQL layer (sql/engine.h): a database file reached through an ODBC
// driver, with the ODBC C API only (the wide "W" functions, text converted from and to UTF-8), so
// that the same code builds against unixODBC and against Windows' odbc32.
//
// Two flavours, chosen by the file:
//   SQLite: the SQLite ODBC driver ("SQLite3", or on Windows "SQLite3 ODBC Driver" where it is
//     installed by that name; the environment variable DOSSYNC_ODBC_SQLITE_DRIVER names another). It behaves as the native SQLite engine does:
//     the same table descriptions and key reservation (sqlite/sqlite_schema.h), read snapshots
//     in WAL mode, PRAGMA data_version for other connections' changes, rows named by rowid, a
//     20 s wait for another connection's lock (SQLite's busy timeout: the driver's own wait is
//     cut to 1 ms, as it would also wait out a write that a stale snapshot refuses for good) and
//     busy/locked reported as the native engine reports them.
//     ORDER BY on text is sorted by the shared layer in this process (no custom collation can be
//     given through ODBC).
//   Access: "Microsoft Access Driver (*.mdb, *.accdb)" for .mdb/.accdb files that are not SQLite
//     files (flavourOf). Tables are described with SQLColumns and SQLPrimaryKeys (SQLStatistics'
//     "PrimaryKey" index when the driver has no SQLPrimaryKeys); an auto-number key is reserved
//     as one above the table's largest key and every key this connection promised, and a row
//     the insert numbered is told by SELECT @@IDENTITY; no read snapshots, and another
//     connection's change is assumed at every look (the in-process indexes are built anew).
//     Names quoted "so" are given to Jet as [so].
//     The Access flavour is untested: no Access driver runs where this is built, and not all of
//     the shared layer's SQL (written for SQLite: coalesce, "IS NOT ?1", ||) runs on Jet.
// Values are read as text and typed as SQLite does by the column's affinity (a declared text
// column reads text; any other column reads an integer or a real when its text is one); a
// real reads with the 15 digits the driver prints.
// Errors name the database file and carry the driver's diagnostic (SQLGetDiagRec).
// Thread use: one thread per connection.
#pragma once

#include <memory>
#include <string>

#include "backends/sql/database.h"
#include "backends/sql/engine.h"

namespace dossync::odbc {

enum class Flavour { SQLite, Access };

// .mdb and .accdb files that exist and are not SQLite files (nor empty), and such names of
// files not made yet other than "Temp.mdb", are Access databases; anything else is SQLite.
Flavour flavourOf(const std::string& path);
// Whether a file is there (the path in UTF-8, on Windows too).
bool fileExists(const std::string& path);
// The driver names: "Microsoft Access Driver (*.mdb, *.accdb)", and for SQLite
// $DOSSYNC_ODBC_SQLITE_DRIVER, "SQLite3 ODBC Driver" (Windows, where installed) or "SQLite3".
std::string driverName(Flavour flavour);
// Whether the ODBC driver manager knows a driver of that name (SQLDrivers).
bool driverInstalled(const std::string& name);
// The path as the driver must be given it. Under Wine, whose odbc32 hands the connection to the
// host's Unix drivers, a Windows path becomes the Unix one (wine_get_unix_file_name); anywhere
// else the path is given unchanged.
std::string driverPath(const std::string& path);

class OdbcEngine : public sql::Engine {
 public:
  // Opens an existing database (create=false; RuntimeError kCannotOpenDatabase naming the path
  // when there is no such file, kNotADatabase when it is not a database) or makes a new SQLite
  // file through the driver (create=true). The flavour is flavourOf(path) unless given.
  OdbcEngine(const std::string& path, bool create = false);
  OdbcEngine(const std::string& path, bool create, Flavour flavour);
  ~OdbcEngine() override;
  OdbcEngine(const OdbcEngine&) = delete;
  OdbcEngine& operator=(const OdbcEngine&) = delete;

  static constexpr int kBusyTimeoutMs = 20000;
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
  bool reservesEveryKey() const override { return flavour_ == Flavour::Access; }
  bool keysAreWrites() const override { return flavour_ == Flavour::SQLite; }
  std::string insertSuffix(const sql::TableInfo&) override { return ""; }
  int64_t insertedKey(sql::EngineStatement& insert) override;
  bool collatesText() const override { return false; }
  std::string lastErrorText() const override { return lastError_; }

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
  bool wal_ = false;
  bool inTransaction_ = false;
  uint64_t looks_ = 0;  // Access: dataVersion's answer, new at every look
  std::string lastError_;
};

// A connection to a database file through ODBC for the shared layer.
std::unique_ptr<sql::Database> openOdbc(const std::string& path, bool create = false);

}  // namespace dossync::odbc
