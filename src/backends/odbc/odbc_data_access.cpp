#include "backends/odbc/odbc_data_access.h"

#include "base/platform.h"

namespace dossync::odbc {

namespace {

bool onAccess(sql::Database& db) {
  auto* engine = dynamic_cast<OdbcEngine*>(&db.engine());
  return engine && engine->flavour() == Flavour::Access;
}

}  // namespace

OdbcDataAccess::OdbcDataAccess()
    : sql::DataAccess([](const std::string& path) -> std::unique_ptr<sql::Engine> {
        return std::make_unique<OdbcEngine>(path, false);
      }) {}

void OdbcConnection::open(const std::string& connectionString) {
  close();
  std::string path = store::dataSourceOf(connectionString);
  if (!fileExists(path))
    throw RuntimeError(kCannotOpenDatabase, "Could not find file '" + path + "'");
  adopt(openOdbc(path));
}

void OdbcCatalog::createFile(const std::string& path) {
  OdbcEngine db(path, true);  // the driver makes the file
  if (db.flavour() == Flavour::SQLite) markNewFile(db);
}

std::vector<std::string> OdbcCatalog::tableNames() {
  sql::Database& db = active();
  if (!onAccess(db)) return DatabaseCatalog::tableNames();
  return static_cast<OdbcEngine&>(db.engine()).tableNames();
}

std::string OdbcCatalog::tableSql(const store::TableDef& table) {
  if (!onAccess(active())) return DatabaseCatalog::tableSql(table);
  return accessTableSql(table);
}

std::string accessTableSql(const store::TableDef& table) {
  // The auto-number is the primary key, its index named as Access names it, so that the
  // driver's catalog (SQLStatistics) tells it.
  auto bracketed = [](const std::string& n) { return "[" + n + "]"; };
  return sqlite::createTableSql(
      table, sqlite::TableWords{+bracketed, "COUNTER CONSTRAINT PrimaryKey PRIMARY KEY", "LONG",
                                "DATETIME", "BIT", "MEMO", "TEXT"});
}

void registerDataAccess() {
  platform::registerClass(platform::kDataAccess, [] { return std::make_shared<OdbcDataAccess>(); });
  platform::registerClass(platform::kAdoConnection,
                          [] { return std::make_shared<OdbcConnection>(); });
  platform::registerClass(platform::kAdoxCatalog, [] { return std::make_shared<OdbcCatalog>(); });
}

}  // namespace dossync::odbc
