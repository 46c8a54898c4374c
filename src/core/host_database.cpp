#include "core/host_database.h"

#include "core/apartment.h"

namespace dossync::hostdb {

IDataAccess* openHostDatabase(ErrorFrame& f) {
  IDataAccess* open = nullptr;
  f.step([&] {
    auto& db = apartment().hostDb;
    if (db && db->isDatabaseOpen()) open = db.get();
  });
  return open;
}

}  // namespace dossync::hostdb
