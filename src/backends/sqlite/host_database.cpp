#include "backends/sqlite/host_database.h"

#include <filesystem>

#include "backends/sqlite/sqlite_engine.h"
#include "host_schema.h"

namespace dossync::sqlite {

const std::string& hostSchema() {
  static const std::string schema = kHostSchemaSql;
  return schema;
}

void createHostDatabase(const std::string& path) {
  if (std::filesystem::exists(path))
    throw RuntimeError(kFileAlreadyExists, "'" + path + "' already exists; not overwriting it");
  SqliteEngine db(path, true);
  db.exec("PRAGMA journal_mode = WAL;");
  db.exec("BEGIN;" + hostSchema() + "COMMIT;");
}

}  // namespace dossync::sqlite
