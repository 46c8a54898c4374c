#include "app/databases.h"

#include <filesystem>

#include "backends/postgres/pg_engine.h"
#include "backends/sql/dialect.h"
#include "backends/sqlite/host_database.h"
#include "backends/sqlite/sqlite_engine.h"
#include "base/platform.h"

namespace dossync::databases {

bool isServer(const std::string& location) {
  return postgres::isUri(location);
}

std::string displayName(const std::string& location) {
  return isServer(location) ? postgres::displayName(location) : location;
}

std::unique_ptr<sql::Engine> openEngine(const std::string& location) {
  if (isServer(location)) return std::make_unique<postgres::PgEngine>(location);
  return std::make_unique<sqlite::SqliteEngine>(location, false);
}

std::unique_ptr<sql::Database> open(const std::string& location) {
  return std::make_unique<sql::Database>(openEngine(location));
}

bool hostDatabaseExists(const std::string& location) {
  if (!isServer(location)) return std::filesystem::exists(location);
  try {
    postgres::PgEngine engine(location);
    std::string viewOf;
    return engine.describeTable("Companies", viewOf) != nullptr;
  } catch (const RuntimeError&) {
    return false;
  }
}

void createHostDatabase(const std::string& location) {
  if (isServer(location)) return postgres::createHostSchema(location, sqlite::hostSchema());
  sqlite::createHostDatabase(location);
}

RoutedDataAccess::RoutedDataAccess() : sql::DataAccess(openEngine) {}

namespace {
int serverConnections = 0;  // RoutedConnections of this process open on a server
}  // namespace

void RoutedConnection::open(const std::string& connectionString) {
  close();
  std::string location = store::dataSourceOf(connectionString);
  if (!isServer(location)) return SqliteConnection::open(connectionString);
  std::unique_ptr<sql::Database> db = databases::open(location);
  // Released when this connection ends.
  if (serverConnections == 0) db->exec("SELECT pg_advisory_lock(1146311507);");
  adopt(std::move(db));
  server_ = true;
  ++serverConnections;
}

void RoutedConnection::close() {
  SqliteConnection::close();
  if (server_) --serverConnections;
  server_ = false;
}

void RoutedCatalog::create(const std::string& connectionString) {
  std::string location = store::dataSourceOf(connectionString);
  if (!isServer(location)) return SqliteCatalog::create(connectionString);
  postgres::PgEngine reached(location);  // throws, naming it, when it cannot be reached
}

std::vector<std::string> RoutedCatalog::tableNames() {
  sql::Database& db = active();
  if (!isServer(db.path())) return SqliteCatalog::tableNames();
  sql::Statement st(db,
                    "SELECT table_name FROM information_schema.tables WHERE table_schema = "
                    "current_schema() AND table_type = 'BASE TABLE' ORDER BY table_name;");
  std::vector<std::string> names;
  while (st.step()) names.push_back(st.column(0).s);
  return names;
}

std::string RoutedCatalog::tableSql(const store::TableDef& table) {
  if (!isServer(active().path())) return SqliteCatalog::tableSql(table);
  return sql::postgresSchema(sqlite::createTableSql(table, false));
}

void registerDataAccess() {
  platform::registerClass(platform::kDataAccess,
                          [] { return std::make_shared<RoutedDataAccess>(); });
  platform::registerClass(platform::kAdoConnection,
                          [] { return std::make_shared<RoutedConnection>(); });
  platform::registerClass(platform::kAdoxCatalog, [] { return std::make_shared<RoutedCatalog>(); });
}

}  // namespace dossync::databases
