// The Access flavour: its column types, names in brackets, new database files made by the
// driver's setup, tables described from the driver's catalog, and keys numbered here.

#include <algorithm>
#include <unordered_map>

#include "backends/odbc/odbc_internal.h"
#include "base/error.h"
#include "base/value.h"

namespace dossync::odbc {

using sql::Step;
using sql::Stored;

// The declared type describeColumn understands, for an Access column.
std::string accessDeclType(SQLSMALLINT type, const std::string& typeName, SQLULEN size) {
  if (value::equalsIgnoreCase(typeName, "COUNTER")) return "INTEGER";  // an auto-number
  switch (type) {
    case SQL_BIT:
      return "BOOLEAN";
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT:
      return "INTEGER";
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE:
    case SQL_NUMERIC:
    case SQL_DECIMAL:
      return "REAL";
    case SQL_DATETIME:
    case SQL_TIMESTAMP:
    case SQL_TYPE_TIMESTAMP:
    case SQL_TYPE_DATE:
      return "DATETIME";
    case SQL_CHAR:
    case SQL_VARCHAR:
    case SQL_WCHAR:
    case SQL_WVARCHAR:
      return "VARCHAR(" + std::to_string(size) + ")";
    case SQL_LONGVARCHAR:
    case SQL_WLONGVARCHAR:
      return "TEXT";
    default:
      return typeName;
  }
}

std::string accessQuote(const std::string& name) {
  return "[" + name + "]";
}

// Makes an empty Access database file through the driver's setup.
void createAccessDatabase(const std::string& path, const std::string& driverName) {
  WString driver = wide(driverName);
  WString attributes = wide("CREATE_DB=\"" + driverPath(path) + "\" General");
  attributes.push_back(0);
  attributes.push_back(0);
  if (!SQLConfigDataSourceW(nullptr, ODBC_ADD_DSN, wptr(driver), wptr(attributes))) {
    DWORD code = 0;
    SQLWCHAR message[512] = {};
    WORD length = 0;
    std::string reason = "the driver's setup refused";
    if (SQLInstallerErrorW(1, &code, message, static_cast<WORD>(std::size(message)), &length) ==
        SQL_SUCCESS)
      reason = narrow(message, std::min<size_t>(length, std::size(message) - 1));
    throw RuntimeError(kCannotOpenDatabase, "Cannot create database '" + path + "': " + reason);
  }
}

namespace {

// Whether the driver says the column numbers its rows itself (SQL_DESC_AUTO_UNIQUE_VALUE): the
// SQLite driver's INTEGER PRIMARY KEY, whose catalog names it only INTEGER.
bool autoNumbered(OdbcEngine& engine, const std::string& table, const std::string& column) {
  SQLHSTMT stmt = SQL_NULL_HSTMT;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, engine.connection(), &stmt))) return false;
  WString sql =
      wide("SELECT " + accessQuote(column) + " FROM " + accessQuote(table) + " WHERE 1 = 0;");
  SQLLEN autoUnique = SQL_FALSE;
  bool ok = SQL_SUCCEEDED(SQLPrepareW(stmt, wptr(sql), SQL_NTS)) &&
            SQL_SUCCEEDED(SQLColAttributeW(stmt, 1, SQL_DESC_AUTO_UNIQUE_VALUE, nullptr, 0, nullptr,
                                           &autoUnique));
  SQLFreeHandle(SQL_HANDLE_STMT, stmt);
  return ok && autoUnique == SQL_TRUE;
}

}  // namespace

std::shared_ptr<sql::TableInfo> describeAccessTable(OdbcEngine& engine, const std::string& name) {
  // Access: the columns (SQLColumns: 3 TABLE_NAME, 4 COLUMN_NAME, 5 DATA_TYPE, 6 TYPE_NAME,
  // 7 COLUMN_SIZE, 11 NULLABLE, 13 COLUMN_DEF), then the primary key.
  WString table = wide(name);
  std::vector<std::vector<Stored>> columns;
  if (!catalogRows(
          engine,
          [&](SQLHSTMT h) {
            return SQLColumnsW(h, nullptr, 0, nullptr, 0, wptr(table), SQL_NTS, nullptr, 0);
          },
          columns) ||
      columns.empty())
    return nullptr;
  std::vector<std::vector<Stored>> keys;
  bool primary = catalogRows(
      engine,
      [&](SQLHSTMT h) { return SQLPrimaryKeysW(h, nullptr, 0, nullptr, 0, wptr(table), SQL_NTS); },
      keys);
  std::vector<std::string> keyNames;
  if (primary) {
    for (const auto& row : keys) keyNames.push_back(text(row, 3));
  } else {
    // The Access driver has no SQLPrimaryKeys: its primary key is the index named PrimaryKey.
    keys.clear();
    if (catalogRows(
            engine,
            [&](SQLHSTMT h) {
              return SQLStatisticsW(h, nullptr, 0, nullptr, 0, wptr(table), SQL_NTS,
                                    SQL_INDEX_UNIQUE, SQL_QUICK);
            },
            keys))
      for (const auto& row : keys)
        if (value::equalsIgnoreCase(text(row, 5), "PrimaryKey")) keyNames.push_back(text(row, 8));
  }
  auto info = std::make_shared<sql::TableInfo>();
  info->name = text(columns[0], 2);
  for (const auto& row : columns) {
    auto type = static_cast<SQLSMALLINT>(integer(row, 4));
    std::string typeName = text(row, 5);
    sql::ColumnInfo c = sql::describeColumn(
        text(row, 3), accessDeclType(type, typeName, static_cast<SQLULEN>(integer(row, 6))));
    c.notNull = integer(row, 10) == SQL_NO_NULLS;
    // No default: NULL, or (some drivers) the word NULL.
    if (row.size() > 12 && row[12].type != Stored::Null &&
        !value::equalsIgnoreCase(value::trim(text(row, 12)), "NULL"))
      c.defaultSql = text(row, 12);
    bool key = keyNames.size() == 1 && value::equalsIgnoreCase(keyNames[0], c.name) &&
               c.kind == sql::ColumnKind::Integer;
    // An auto-number, whether or not it is the key (the original component's tables have a
    // COUNTER column and no key).
    c.autoKey = c.kind == sql::ColumnKind::Integer &&
                (value::equalsIgnoreCase(typeName, "COUNTER") ||
                 value::upper(typeName).find("AUTOINCREMENT") != std::string::npos ||
                 (key && autoNumbered(engine, info->name, c.name)));
    if (key) {
      info->keyColumn = static_cast<int>(info->columns.size());
      info->rowKey = accessQuote(c.name);
    }
    info->add(std::move(c));
  }
  return info;
}

int64_t reserveAccessKey(OdbcEngine& engine, const sql::TableInfo& table, int64_t& reserved) {
  int counter = table.counterColumn();
  if (counter < 0) counter = table.keyColumn;
  if (counter < 0)
    throw RuntimeError(kStatementFailed,
                       "Table " + table.name + " in '" + engine.name() + "' has no key");
  const std::string& key = table.columns[static_cast<size_t>(counter)].name;
  auto top =
      engine.prepare("SELECT MAX(" + accessQuote(key) + ") FROM " + accessQuote(table.name) + ";");
  int64_t inUse = 0;
  if (top->step() == Step::Row) {
    Stored v = top->column(0);
    inUse = v.type == Stored::Int    ? v.i
            : v.type == Stored::Real ? static_cast<int64_t>(v.r)
            : v.type == Stored::Text ? value::toLong(v.s)
                                     : 0;
  }
  return reserved = std::max(reserved, inUse) + 1;
}

}  // namespace dossync::odbc
