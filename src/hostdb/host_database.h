// The host database as every host procedure reaches it: the apartment's host data access
// object when its database is open, else nullptr (procedures then answer their initial result
// without touching anything).
#pragma once

#include "hostdb/data_access.h"

namespace dossync::hostdb {

IDataAccess* openHostDatabase();

}  // namespace dossync::hostdb
