// Where a database location leads: a libpq URI ("postgresql://..." or "postgres://...") is a
// PostgreSQL database, anything else a SQLite file. The data access object the platform makes
// does not know the location yet: it picks the engine when the database is opened.
#pragma once

#include <memory>
#include <string>

#include "backends/sql/data_access.h"
#include "backends/sqlite/sqlite_data_access.h"

namespace dossync::databases {

bool isServer(const std::string& location);
// The location as messages show it (a URI without its password).
std::string displayName(const std::string& location);
// The engine of an existing database; throws RuntimeError naming it when it cannot be opened.
std::unique_ptr<sql::Engine> openEngine(const std::string& location);
std::unique_ptr<sql::Database> open(const std::string& location);
// Whether a host database is there to open: a file that exists, or a server database that
// holds the host's tables (false when it cannot be reached either).
bool hostDatabaseExists(const std::string& location);
// Creates the host's tables: a new file (RuntimeError 58 when it exists), or in the server
// database the URI names, which must exist and hold none of them yet.
void createHostDatabase(const std::string& location);

// The data access object on either engine.
class RoutedDataAccess : public sql::DataAccess {
 public:
  RoutedDataAccess();
};

// The connection and catalog that make and check the synchronisation database, on either
// engine: "Data Source=" names a file, or a server database by its URI. A server database is
// not made by the catalog (its create() only checks that it can be reached): the tables are
// made in the database the URI names, which must exist.
// Checking and making the tables of a server database is done by one process at a time, as it
// is for files through the folder's lock: the first connection a process opens to a server
// holds a lock of the database (an advisory lock) until it closes; the connections the process
// opens meanwhile (those that make the tables) go ahead under it. One thread uses them.
class RoutedConnection : public sqlite::SqliteConnection {
 public:
  ~RoutedConnection() override { close(); }
  void open(const std::string& connectionString) override;
  void close() override;

 private:
  bool server_ = false;
};
class RoutedCatalog : public sqlite::SqliteCatalog {
 public:
  void create(const std::string& connectionString) override;
  std::vector<std::string> tableNames() override;

 protected:
  std::string tableSql(const store::TableDef& table) override;
};

// Registers RoutedDataAccess, RoutedConnection and RoutedCatalog with the platform (after the
// SQLite classes, which they replace).
void registerDataAccess();

}  // namespace dossync::databases
