#include "backends/sqlite/sqlite_data_access.h"

#include <filesystem>

#include "backends/sqlite/sqlite_engine.h"
#include "base/platform.h"
#include "core/apartment.h"

namespace dossync::sqlite {

SqliteDataAccess::SqliteDataAccess()
    : sql::DataAccess([](const std::string& path) -> std::unique_ptr<sql::Engine> {
        return std::make_unique<SqliteEngine>(path, false);
      }) {}

// ---- Connection and catalog

void SqliteConnection::open(const std::string& connectionString) {
  close();
  std::string path = store::dataSourceOf(connectionString);
  if (!std::filesystem::exists(path))
    throw RuntimeError(kCannotOpenDatabase, "Could not find file '" + path + "'");
  adopt(openSqlite(path));
}

void SqliteCatalog::createFile(const std::string& path) {
  SqliteEngine db(path, true);
  markNewFile(db);
}

void registerSqliteClasses() {
  platform::registerClass(platform::kDataAccess,
                          [] { return std::make_shared<SqliteDataAccess>(); });
  platform::registerClass(platform::kAdoConnection,
                          [] { return std::make_shared<SqliteConnection>(); });
  platform::registerClass(platform::kAdoxCatalog, [] { return std::make_shared<SqliteCatalog>(); });
}

}  // namespace dossync::sqlite
