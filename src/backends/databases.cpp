#include "backends/databases.h"

#include <filesystem>

#include "backends/postgres/pg_engine.h"
#include "backends/sqlite/host_database.h"
#include "backends/sqlite/sqlite_engine.h"
#include "core/platform.h"

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

void registerDataAccess() {
  platform::registerClass(platform::kDataAccess,
                          [] { return std::make_shared<RoutedDataAccess>(); });
}

}  // namespace dossync::databases
