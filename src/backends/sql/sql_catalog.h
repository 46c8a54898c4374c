// The ADO-shaped connection and catalog of the synchronisation database (interfaces/catalog.h)
// over a connection of the shared SQL layer to a file in SQLite's words, whatever engine opens
// it (the native SQLite engine, or SQLite through ODBC): what they do once the file is open, and
// the checks before a new file is made. Nothing here needs the SQLite library itself.
// Thread use: one thread per object.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/sql/database.h"
#include "interfaces/catalog.h"

namespace dossync::sqlite {

class DatabaseConnection : public store::IConnection {
 public:
  void setCursorLocation(int32_t location) override { cursorLocation_ = location; }
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
// The words a CREATE TABLE statement is written with in one dialect.
struct TableWords {
  std::string (*name)(const std::string&);  // a table's or column's name as written
  const char* autoKey;                      // an auto-number primary key column
  const char* integer;
  const char* date;
  const char* boolean;
  const char* memo;              // text of any length
  const char* text = "VARCHAR";  // text of at most n characters, as text(n)
};
std::string createTableSql(const store::TableDef& table, const TableWords& words);

class DatabaseCatalog : public store::ICatalog {
 public:
  // Checks that "Data Source=" names a file that is not there yet, then makes it (createFile).
  void create(const std::string& connectionString) override;
  void setActiveConnection(std::shared_ptr<store::IConnection> connection) override;
  std::vector<std::string> tableNames() override;
  void appendTable(const store::TableDef& table) override;

 protected:
  sql::Database& active();
  // Makes the new file create() was asked for (the path is checked: given, and free).
  virtual void createFile(const std::string& path) = 0;
  // Marks a new, empty SQLite file as a database of ours (on any engine open on it).
  static void markNewFile(sql::Engine& db);
  // The statement that makes the table in the active database.
  virtual std::string tableSql(const store::TableDef& table) { return createTableSql(table); }

 private:
  std::shared_ptr<DatabaseConnection> connection_;
};

}  // namespace dossync::sqlite
