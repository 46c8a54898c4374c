// What the files of the ODBC engine share: UTF-16 text for the wide calls, the driver's
// diagnostics, the result columns of a statement and its rows, and the Access flavour's parts
// (odbc_access.cpp) the engine calls.
#pragma once

#ifdef _WIN32
#include <windows.h>
#endif
#include <odbcinst.h>
#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "backends/odbc/odbc_engine.h"
#include "backends/sql/stored.h"
#include "base/utf16.h"

namespace dossync::odbc {

using WString = std::basic_string<SQLWCHAR>;

inline WString wide(const std::string& text) {
  return utf16::widen<SQLWCHAR>(text);
}

using utf16::narrow;

inline SQLWCHAR* wptr(WString& s) {
  return s.data();
}

// What the driver said of the last call on a handle.
struct Diagnostic {
  std::string text;   // every record, "[state] message"
  std::string state;  // the first record's SQLSTATE
  SQLINTEGER native = 0;
};
Diagnostic diagnose(SQLSMALLINT type, SQLHANDLE handle);

struct Column {
  std::string name;
  std::string declType;
  bool text = false;  // read as text whatever it looks like
};
// The result columns of a statement that was prepared or run.
std::vector<Column> describe(SQLHSTMT stmt, Flavour flavour);
// Every row of a statement that ran; false (and the diagnostic) when fetching failed.
bool fetchAll(SQLHSTMT stmt, const std::vector<Column>& columns,
              std::vector<std::vector<sql::Stored>>& rows);

// The rows of a catalog function (SQLColumns and the like) run on a statement of its own.
template <typename Call>
bool catalogRows(OdbcEngine& engine, Call call, std::vector<std::vector<sql::Stored>>& rows) {
  SQLHSTMT stmt = SQL_NULL_HSTMT;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, engine.connection(), &stmt))) return false;
  bool ok = SQL_SUCCEEDED(call(stmt));
  if (ok) {
    std::vector<Column> columns = describe(stmt, Flavour::Access);
    ok = fetchAll(stmt, columns, rows);
  }
  if (!ok) engine.noteError(diagnose(SQL_HANDLE_STMT, stmt).text);
  SQLFreeHandle(SQL_HANDLE_STMT, stmt);
  return ok;
}

inline std::string text(const std::vector<sql::Stored>& row, size_t column) {
  if (column >= row.size()) return "";
  const sql::Stored& v = row[column];
  return v.type == sql::Stored::Text ? v.s : v.type == sql::Stored::Int ? std::to_string(v.i) : "";
}

inline int64_t integer(const std::vector<sql::Stored>& row, size_t column) {
  return column < row.size() && row[column].type == sql::Stored::Int ? row[column].i : 0;
}

// A path in UTF-8 as the file system takes it.
std::filesystem::path filePath(const std::string& path);

// ---- Access (odbc_access.cpp)
// The declared type describeColumn understands, for an Access column.
std::string accessDeclType(SQLSMALLINT type, const std::string& typeName, SQLULEN size);
std::string accessQuote(const std::string& name);
// Makes an empty Access database file through the setup of the driver named.
void createAccessDatabase(const std::string& path, const std::string& driver);
// The table's columns and key from the driver's catalog; nullptr when there is no such table.
std::shared_ptr<sql::TableInfo> describeAccessTable(OdbcEngine& engine, const std::string& name);
// The next key of the table, above those in use and `reserved` (the last one promised).
int64_t reserveAccessKey(OdbcEngine& engine, const sql::TableInfo& table, int64_t& reserved);

}  // namespace dossync::odbc
