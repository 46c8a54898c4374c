// Creating host databases from the schema text (schema/host.sql, built into the program).
#pragma once

#include <string>

namespace dossync::sqlite {

// The schema of the host database, as shipped in schema/host.sql.
const std::string& hostSchema();

// Creates a new host database at path with every table of the schema. Fails (RuntimeError 58)
// when the file exists.
void createHostDatabase(const std::string& path);

}  // namespace dossync::sqlite
