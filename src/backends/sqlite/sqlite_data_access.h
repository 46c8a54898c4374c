// The data access object on SQLite files only (sql/data_access.h with the SQLite engine), and
// the ADO-shaped connection and catalog of the synchronisation database (interfaces/catalog.h).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/sql/data_access.h"
#include "backends/sqlite/sqlite_engine.h"
#include "interfaces/catalog.h"

namespace dossync::sqlite {

class SqliteDataAccess : public sql::DataAccess {
 public:
  SqliteDataAccess();
};

class SqliteConnection : public store::IConnection {
 public:
  void setCursorLocation(int32_t location) override { cursorLocation_ = location; }
  void open(const std::string& connectionString) override;
  void close() override { db_.reset(); }
  bool isOpen() const override { return db_ != nullptr; }
  sql::Database* database() const { return db_.get(); }

 protected:
  void adopt(std::unique_ptr<sql::Database> db) { db_ = std::move(db); }

 private:
  int32_t cursorLocation_ = 0;
  std::unique_ptr<sql::Database> db_;
};

// The CREATE TABLE statement of a table definition, in SQLite's words; names unquoted (as the
// host's schema is written, for sql::postgresSchema) when they are plain words.
std::string createTableSql(const store::TableDef& table, bool quoted = true);

class SqliteCatalog : public store::ICatalog {
 public:
  void create(const std::string& connectionString) override;
  void setActiveConnection(std::shared_ptr<store::IConnection> connection) override;
  std::vector<std::string> tableNames() override;
  void appendTable(const store::TableDef& table) override;

 protected:
  sql::Database& active();
  // Makes the new file create() was asked for (the path is checked: given, and free).
  virtual void createFile(const std::string& path);
  // Marks a new, empty SQLite file as a database of ours (on any engine open on it).
  static void markNewFile(sql::Engine& db);
  // The statement that makes the table in the active database.
  virtual std::string tableSql(const store::TableDef& table) { return createTableSql(table); }

 private:
  std::shared_ptr<SqliteConnection> connection_;
};

// Registers the SQLite data access object, connection and catalog with the platform.
void registerSqliteClasses();

}  // namespace dossync::sqlite
