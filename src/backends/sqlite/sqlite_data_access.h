// The data access object on SQLite files only (sql/data_access.h with the SQLite engine), and
// the ADO-shaped connection and catalog of the synchronisation database (interfaces/catalog.h,
// sql_catalog.h) opening and making files with it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/sql/data_access.h"
#include "backends/sql/sql_catalog.h"

namespace dossync::sqlite {

class SqliteDataAccess : public sql::DataAccess {
 public:
  SqliteDataAccess();
};

class SqliteConnection : public DatabaseConnection {
 public:
  void open(const std::string& connectionString) override;
};

class SqliteCatalog : public DatabaseCatalog {
 protected:
  void createFile(const std::string& path) override;
};

// Registers the SQLite data access object, connection and catalog with the platform.
void registerSqliteClasses();

}  // namespace dossync::sqlite
