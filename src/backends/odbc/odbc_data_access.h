// The data access object on a database file reached through ODBC (odbc_engine.h: the SQLite
// ODBC driver, or the Access driver for Access files), and the ADO-shaped connection and catalog
// that make and check the synchronisation database through it ("Data Source=" names the file).
// The catalog makes a new .mdb/.accdb file (the temporary "Temp.mdb" every new synchronisation
// database is made as, then copied) with the Access driver's CREATE_DB where an Access driver
// is installed, its tables in Jet's DDL; anywhere else it makes a SQLite file with the SQLite
// driver (odbc_engine.h: flavourOf).
// Nothing here needs the SQLite library: only the ODBC driver manager.
// Thread use: one thread per object.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/odbc/odbc_engine.h"
#include "backends/sql/data_access.h"
#include "backends/sql/sql_catalog.h"

namespace dossync::odbc {

class OdbcDataAccess : public sql::DataAccess {
 public:
  OdbcDataAccess();
};

class OdbcConnection : public sqlite::DatabaseConnection {
 public:
  // RuntimeError kCannotOpenDatabase naming the file when there is none or it cannot be opened.
  void open(const std::string& connectionString) override;
};

class OdbcCatalog : public sqlite::DatabaseCatalog {
 public:
  std::vector<std::string> tableNames() override;

 protected:
  void createFile(const std::string& path) override;
  std::string tableSql(const store::TableDef& table) override;
};

// The CREATE TABLE statement of a table definition in Jet's DDL: COUNTER (the primary key,
// named PrimaryKey), LONG, TEXT(n), MEMO, DATETIME, BIT, names in brackets.
std::string accessTableSql(const store::TableDef& table);

// Registers OdbcDataAccess, OdbcConnection and OdbcCatalog with the platform (replacing what
// was registered before).
void registerDataAccess();

}  // namespace dossync::odbc
