// The host database as every host procedure reaches it: the apartment's host data access
// object when its database is open, else nullptr (procedures then answer their initial result
// without touching anything). Asking is a step of the procedure's frame: a data access object
// that fails to answer is that procedure's error, and counts as not open.
#pragma once

#include "core/error_frame.h"
#include "interfaces/data_access.h"

namespace dossync::hostdb {

IDataAccess* openHostDatabase(ErrorFrame& f);

// The whole-table statements the host procedures open, and their error-location prefix.
inline constexpr const char* kCompanies = "SELECT Companies.* FROM Companies;";
inline constexpr const char* kContacts = "SELECT Contacts.* FROM Contacts;";
inline constexpr const char* kClientData = "SELECT ClientData.* FROM ClientData;";
inline constexpr const char* kCategories = "SELECT Categories.* FROM Categories;";
inline constexpr const char* kHostCategory = "SELECT HostCategory.* FROM HostCategory;";
inline constexpr const char* kDbLoc = "Dossiera.exe-modDatabaseFunctions-";

}  // namespace dossync::hostdb
