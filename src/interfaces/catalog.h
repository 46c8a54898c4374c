// The database catalog and connection through which the synchronisation database is created
// and checked, shaped like ADO's Connection and ADOX's Catalog: the component builds the same
// connection strings and table definitions whatever engine answers. The host registers the
// engine under platform::kAdoConnection and platform::kAdoxCatalog.
// Failures throw RuntimeError naming the database file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/object.h"

namespace dossync::store {

enum DataTypeEnum : int32_t {
  adInteger = 3,
  adDate = 7,
  adBoolean = 11,
  adVarWChar = 202,
  adLongVarWChar = 203
};
enum CursorLocationEnum : int32_t { adUseServer = 2, adUseClient = 3 };

struct ColumnDef {
  std::string name;
  int32_t type = adInteger;
  int32_t definedSize = 0;
  std::vector<std::pair<std::string, bool>> properties;  // in the order they were set
  bool property(const std::string& name) const {
    for (const auto& [n, v] : properties)
      if (n == name) return v;
    return false;
  }
};

struct TableDef {
  std::string name;
  std::vector<ColumnDef> columns;
};

class IConnection : public Object {
 public:
  virtual void setCursorLocation(int32_t location) = 0;
  virtual void open(const std::string& connectionString) = 0;
  virtual void close() = 0;
  virtual bool isOpen() const = 0;
};

class ICatalog : public Object {
 public:
  // Creates a new, empty database file; fails when the file exists.
  virtual void create(const std::string& connectionString) = 0;
  virtual void setActiveConnection(std::shared_ptr<IConnection> connection) = 0;
  virtual std::vector<std::string> tableNames() = 0;
  virtual void appendTable(const TableDef& table) = 0;
};

// The path behind "Data Source=" in a connection string.
std::string dataSourceOf(const std::string& connectionString);

}  // namespace dossync::store
