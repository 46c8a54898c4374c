// Where a database location leads: a libpq URI ("postgresql://..." or "postgres://...") is a
// PostgreSQL database, anything else a SQLite file. The data access object the platform makes
// does not know the location yet: it picks the engine when the database is opened.
#pragma once

#include <memory>
#include <string>

#include "backends/sql/data_access.h"

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

// Registers RoutedDataAccess as the platform's data access object (after the SQLite classes,
// whose connection and catalog stay).
void registerDataAccess();

}  // namespace dossync::databases
