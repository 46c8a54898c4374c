#include "backends/sql/sql_catalog.h"

#include <filesystem>

#include "base/error.h"

namespace dossync::sqlite {

void DatabaseCatalog::create(const std::string& connectionString) {
  std::string path = store::dataSourceOf(connectionString);
  if (path.empty())
    throw RuntimeError(kCannotOpenDatabase, "No Data Source in the connection string");
  if (std::filesystem::exists(path))
    throw RuntimeError(kFileAlreadyExists, "Database '" + path + "' already exists");
  createFile(path);
}

void DatabaseCatalog::markNewFile(sql::Engine& db) {
  // Marks the file as ours and writes its header, so it is a database even before it has tables.
  db.exec("PRAGMA application_id = 1146311507; PRAGMA journal_mode = WAL;");
}

void DatabaseCatalog::setActiveConnection(std::shared_ptr<store::IConnection> connection) {
  connection_ = std::dynamic_pointer_cast<DatabaseConnection>(connection);
}

sql::Database& DatabaseCatalog::active() {
  if (!connection_ || !connection_->database())
    throw RuntimeError(kObjectClosed,
                       "Operation is not allowed when the object is closed: the "
                       "catalog has no open connection");
  return *connection_->database();
}

std::vector<std::string> DatabaseCatalog::tableNames() {
  sql::Database& db = active();
  sql::Statement st(
      db,
      "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' "
      "ORDER BY name;");
  std::vector<std::string> names;
  while (st.step()) names.push_back(st.column(0).s);
  return names;
}

std::string createTableSql(const store::TableDef& table, const TableWords& words) {
  const auto name = words.name;
  std::string sql = "CREATE TABLE " + name(table.name) + " (";
  bool first = true;
  for (const store::ColumnDef& c : table.columns) {
    if (!first) sql += ", ";
    first = false;
    sql += name(c.name) + " ";
    if (c.property("AutoIncrement")) {
      sql += words.autoKey;
      continue;
    }
    switch (c.type) {
      case store::adInteger:
        sql += words.integer;
        break;
      case store::adDate:
        sql += words.date;
        break;
      case store::adBoolean:
        sql += words.boolean;
        break;
      case store::adVarWChar:
        sql += std::string(words.text) + "(" + std::to_string(c.definedSize) + ")";
        break;
      default:
        sql += words.memo;
        break;
    }
    if (!c.property("NullAble")) sql += " NOT NULL";
  }
  return sql + ");";
}

std::string createTableSql(const store::TableDef& table, bool quoted) {
  auto plain = [](const std::string& n) { return n; };
  auto quote = [](const std::string& n) { return sql::quoteIdentifier(n); };
  return createTableSql(
      table, TableWords{quoted ? +quote : +plain, "INTEGER PRIMARY KEY AUTOINCREMENT", "INTEGER",
                        "DATETIME", "BOOLEAN", "TEXT"});
}

void DatabaseCatalog::appendTable(const store::TableDef& table) {
  sql::Database& db = active();
  if (db.table(table.name))
    throw RuntimeError(kTableExists,
                       "Table '" + table.name + "' already exists in '" + db.path() + "'");
  db.exec(tableSql(table));
  db.forgetSchema();
}

}  // namespace dossync::sqlite
