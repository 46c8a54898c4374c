#include "hostdb/host_database.h"

#include "core/apartment.h"

namespace dossync::hostdb {

IDataAccess* openHostDatabase() {
  auto& db = apartment().hostDb;
  return db && db->isDatabaseOpen() ? db.get() : nullptr;
}

}  // namespace dossync::hostdb
