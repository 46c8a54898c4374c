#include "backends/odbc/odbc_engine.h"

#ifdef _WIN32
#include <windows.h>
#endif
#include <odbcinst.h>
#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unordered_map>

#include "backends/sql/sqlite_schema.h"
#include "base/error.h"
#include "base/value.h"

namespace dossync::odbc {

using sql::Step;
using sql::Stored;

namespace {

using WString = std::basic_string<SQLWCHAR>;

WString wide(const std::string& text) {
  WString out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    auto b = static_cast<unsigned char>(text[i]);
    uint32_t cp = 0xFFFD;
    size_t n = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > text.size()) {
      ++i;
    } else {
      cp = n == 1 ? b : b & (0x7F >> n);
      bool ok = true;
      for (size_t k = 1; k < n; ++k) {
        auto c = static_cast<unsigned char>(text[i + k]);
        ok = ok && (c >> 6) == 2;
        cp = (cp << 6) | (c & 0x3F);
      }
      if (!ok || cp > 0x10FFFF) cp = 0xFFFD;
      i += ok ? n : 1;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<SQLWCHAR>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<SQLWCHAR>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<SQLWCHAR>(cp));
    }
  }
  return out;
}

std::string narrow(const SQLWCHAR* text, size_t size) {
  std::string out;
  out.reserve(size);
  for (size_t i = 0; i < size; ++i) {
    uint32_t cp = text[i];
    if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < size && text[i + 1] >= 0xDC00 &&
        text[i + 1] < 0xE000) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp < 0xE000) {
      cp = 0xFFFD;
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

SQLWCHAR* wptr(WString& s) {
  return s.data();
}

// What the driver said of the last call on a handle.
struct Diagnostic {
  std::string text;   // every record, "[state] message"
  std::string state;  // the first record's SQLSTATE
  SQLINTEGER native = 0;
};

Diagnostic diagnose(SQLSMALLINT type, SQLHANDLE handle) {
  Diagnostic d;
  for (SQLSMALLINT record = 1;; ++record) {
    SQLWCHAR state[6] = {};
    SQLWCHAR message[1024] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    SQLRETURN rc = SQLGetDiagRecW(type, handle, record, state, &native, message,
                                  static_cast<SQLSMALLINT>(std::size(message)), &length);
    if (!SQL_SUCCEEDED(rc)) break;
    std::string s = narrow(state, 5);
    size_t n = std::min<size_t>(static_cast<size_t>(std::max<SQLSMALLINT>(length, 0)),
                                std::size(message) - 1);
    if (record == 1) {
      d.state = s;
      d.native = native;
    }
    if (!d.text.empty()) d.text += "; ";
    d.text += "[" + s + "] " + narrow(message, n);
  }
  if (d.text.empty()) d.text = "the driver gave no reason";
  return d;
}

bool isTextType(SQLSMALLINT type) {
  switch (type) {
    case SQL_CHAR:
    case SQL_VARCHAR:
    case SQL_LONGVARCHAR:
    case SQL_WCHAR:
    case SQL_WVARCHAR:
    case SQL_WLONGVARCHAR:
      return true;
    default:
      return false;
  }
}

// The declared type describeColumn understands, for an Access column.
std::string accessDeclType(SQLSMALLINT type, const std::string& typeName, SQLULEN size) {
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

// SQLite's rule for a column that keeps text as text: its declared type names CHAR, CLOB or TEXT
// and not INT.
bool textAffinity(const std::string& declared) {
  std::string up = value::upper(declared);
  if (up.find("INT") != std::string::npos) return false;
  return up.find("CHAR") != std::string::npos || up.find("CLOB") != std::string::npos ||
         up.find("TEXT") != std::string::npos;
}

// Text read from a column that is not a text column: the number it spells, as SQLite prints
// numbers, else the text.
Stored typed(std::string text) {
  Stored v;
  const char* b = text.data();
  const char* e = b + text.size();
  bool canonical = !text.empty() && text != "-" && text != "-0" &&
                   (text[text[0] == '-'] != '0' || text.size() == 1);
  if (canonical && std::from_chars(b, e, v.i).ptr == e) {
    v.type = Stored::Int;
    return v;
  }
  if (!text.empty() && text.find_first_of(".eE") != std::string::npos &&
      std::from_chars(b, e, v.r).ptr == e) {
    v.type = Stored::Real;
    return v;
  }
  v.i = 0;
  v.r = 0;
  v.type = Stored::Text;
  v.s = std::move(text);
  return v;
}

struct Column {
  std::string name;
  std::string declType;
  bool text = false;  // read as text whatever it looks like
};

// The result columns of a statement that was prepared or run.
std::vector<Column> describe(SQLHSTMT stmt, Flavour flavour) {
  std::vector<Column> columns;
  SQLSMALLINT count = 0;
  if (!SQL_SUCCEEDED(SQLNumResultCols(stmt, &count))) return columns;
  for (SQLUSMALLINT c = 1; c <= count; ++c) {
    SQLWCHAR name[256] = {};
    SQLSMALLINT nameLength = 0, type = 0, digits = 0, nullable = 0;
    SQLULEN size = 0;
    SQLDescribeColW(stmt, c, name, static_cast<SQLSMALLINT>(std::size(name)), &nameLength, &type,
                    &size, &digits, &nullable);
    SQLWCHAR typeName[128] = {};
    SQLSMALLINT typeLength = 0;
    SQLColAttributeW(stmt, c, SQL_DESC_TYPE_NAME, typeName, sizeof typeName, &typeLength, nullptr);
    Column col;
    col.name =
        narrow(name, std::min<size_t>(static_cast<size_t>(std::max<SQLSMALLINT>(nameLength, 0)),
                                      std::size(name) - 1));
    std::string tn = narrow(typeName, std::char_traits<SQLWCHAR>::length(typeName));
    if (flavour == Flavour::Access) {
      col.declType = accessDeclType(type, tn, size);
      col.text = isTextType(type);
    } else {
      // The SQLite driver names a declared type as it was written, without its size, and
      // guesses one in lower case for an expression (from its first value): that is no
      // declared type.
      bool declared =
          std::any_of(tn.begin(), tn.end(), [](char ch) { return ch >= 'A' && ch <= 'Z'; });
      if (declared) {
        col.declType = tn;
        if ((type == SQL_VARCHAR || type == SQL_CHAR || type == SQL_WVARCHAR ||
             type == SQL_WCHAR) &&
            tn.find('(') == std::string::npos && size > 0)
          col.declType += "(" + std::to_string(size) + ")";
        col.text = textAffinity(col.declType);
      }
    }
    columns.push_back(std::move(col));
  }
  return columns;
}

// One column of the fetched row, whole (long text is read in parts).
bool readValue(SQLHSTMT stmt, SQLUSMALLINT column, bool text, Stored& v) {
  WString all;
  SQLWCHAR buffer[4096];
  for (;;) {
    SQLLEN indicator = 0;
    SQLRETURN rc = SQLGetData(stmt, column, SQL_C_WCHAR, buffer, sizeof buffer, &indicator);
    if (rc == SQL_NO_DATA) break;
    if (!SQL_SUCCEEDED(rc)) return false;
    if (indicator == SQL_NULL_DATA) {
      v = Stored{};
      return true;
    }
    const size_t room = std::size(buffer) - 1;  // characters, before the terminating zero
    bool more =
        rc == SQL_SUCCESS_WITH_INFO &&
        (indicator == SQL_NO_TOTAL || static_cast<size_t>(indicator) / sizeof(SQLWCHAR) > room);
    size_t got = more ? room : static_cast<size_t>(indicator) / sizeof(SQLWCHAR);
    all.append(buffer, std::min(got, room));
    if (!more) break;
  }
  std::string utf8 = narrow(all.data(), all.size());
  if (text) {
    v = Stored{};
    v.type = Stored::Text;
    v.s = std::move(utf8);
  } else {
    v = typed(std::move(utf8));
  }
  return true;
}

// Every row of a statement that ran; false (and the diagnostic) when fetching failed.
bool fetchAll(SQLHSTMT stmt, const std::vector<Column>& columns,
              std::vector<std::vector<Stored>>& rows) {
  for (;;) {
    SQLRETURN rc = SQLFetch(stmt);
    if (rc == SQL_NO_DATA) return true;
    if (!SQL_SUCCEEDED(rc)) return false;
    std::vector<Stored> row(columns.size());
    for (size_t c = 0; c < columns.size(); ++c)
      if (!readValue(stmt, static_cast<SQLUSMALLINT>(c + 1), columns[c].text, row[c])) return false;
    rows.push_back(std::move(row));
  }
}

// "?N" parameters become the plain markers ODBC knows, each remembering its number; with
// brackets, names quoted "so" become [so].
std::string plainMarkers(const std::string& sql, std::vector<int>& markers, bool brackets) {
  std::string out;
  out.reserve(sql.size());
  int highest = 0;
  for (size_t i = 0; i < sql.size(); ++i) {
    char c = sql[i];
    if (c == '\'' || c == '"' || c == '`' || c == '[') {
      char close = c == '[' ? ']' : c;
      size_t end = sql.find(close, i + 1);
      if (end == std::string::npos) end = sql.size() - 1;
      if (c == '"' && brackets) {  // Jet reads "x" as text: a name is written [x]
        out += "[" + sql.substr(i + 1, end - i - 1) + "]";
        i = end;
        continue;
      }
      out.append(sql, i, end - i + 1);
      i = end;
      continue;
    }
    if (c == '-' && i + 1 < sql.size() && sql[i + 1] == '-') {
      size_t end = sql.find('\n', i);
      if (end == std::string::npos) end = sql.size() - 1;
      out.append(sql, i, end - i + 1);
      i = end;
      continue;
    }
    if (c != '?') {
      out.push_back(c);
      continue;
    }
    size_t digits = i + 1;
    while (digits < sql.size() && sql[digits] >= '0' && sql[digits] <= '9') ++digits;
    int number =
        digits > i + 1 ? std::atoi(sql.substr(i + 1, digits - i - 1).c_str()) : highest + 1;
    highest = std::max(highest, number);
    markers.push_back(number);
    out.push_back('?');
    i = digits - 1;
  }
  return out;
}

// Statements run by Engine::exec, one at a time: split at semicolons outside quotes.
std::vector<std::string> splitStatements(const std::string& sql) {
  std::vector<std::string> out;
  std::vector<int> ignored;
  size_t start = 0;
  char quote = 0;
  for (size_t i = 0; i <= sql.size(); ++i) {
    char c = i < sql.size() ? sql[i] : ';';
    if (quote) {
      if (c == quote) quote = 0;
      continue;
    }
    if (c == '\'' || c == '"' || c == '`') {
      quote = c;
    } else if (c == '[') {
      quote = ']';
    } else if (c == ';') {
      std::string one = value::trim(sql.substr(start, i - start));
      if (!one.empty()) out.push_back(one + ";");
      start = i + 1;
    }
  }
  return out;
}

bool readsOnly(const std::string& sql) {
  std::string up = value::upper(value::trim(sql).substr(0, 8));
  if (up.rfind("PRAGMA", 0) == 0) return sql.find('=') == std::string::npos;
  return up.rfind("SELECT", 0) == 0 || up.rfind("VALUES", 0) == 0 || up.rfind("EXPLAIN", 0) == 0;
}

std::string accessQuote(const std::string& name) {
  return "[" + name + "]";
}

std::string connectionValue(const std::string& value) {
  if (value.find_first_of(";{}") == std::string::npos && value == value::trim(value)) return value;
  std::string out = "{";
  for (char c : value) {
    out.push_back(c);
    if (c == '}') out.push_back('}');
  }
  return out + "}";
}

class OdbcStatement : public sql::EngineStatement {
 public:
  // mustPrepare=false: a statement the driver refuses is not thrown but fails at its first step.
  OdbcStatement(OdbcEngine& engine, const std::string& sql, bool mustPrepare = true)
      : engine_(engine), flavour_(engine.flavour()), readOnly_(readsOnly(sql)) {
    WString text = wide(plainMarkers(sql, markers_, flavour_ == Flavour::Access));
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, engine.connection(), &stmt)))
      throw RuntimeError(kStatementFailed,
                         "Cannot run \"" + sql + "\" on '" + engine.name() +
                             "': " + diagnose(SQL_HANDLE_DBC, engine.connection()).text);
    stmt_ = stmt;
    if (!SQL_SUCCEEDED(SQLPrepareW(stmt_, wptr(text), static_cast<SQLINTEGER>(text.size())))) {
      Diagnostic d = diagnose(SQL_HANDLE_STMT, stmt_);
      engine.noteError(d.text);
      if (!mustPrepare) {
        native_ = d.native;
        state_ = d.state;
        message_ = d.text;
        unprepared_ = true;
        return;
      }
      SQLFreeHandle(SQL_HANDLE_STMT, stmt_);
      const std::string& msg = d.text;
      throw RuntimeError(kStatementFailed,
                         "Cannot run \"" + sql + "\" on '" + engine.name() + "': " + msg);
    }
    columns_ = describe(stmt_, flavour_);
  }
  ~OdbcStatement() override { SQLFreeHandle(SQL_HANDLE_STMT, stmt_); }

  void bind(int index, const Stored& v) override {
    if (index < 1) return;
    if (params_.size() < static_cast<size_t>(index)) params_.resize(static_cast<size_t>(index));
    params_[static_cast<size_t>(index) - 1] = v;
  }

  Step step() override {
    if (unprepared_) return busy() ? Step::Stale : Step::Failed;
    if (!ran_) {
      ran_ = true;
      Step s = run();
      if (s != Step::Done) return s;
    }
    if (next_ < rows_.size()) {
      current_ = std::move(rows_[next_++]);
      return Step::Row;
    }
    current_.clear();
    return Step::Done;
  }
  void rewind() override {
    SQLFreeStmt(stmt_, SQL_CLOSE);
    ran_ = false;
    rows_.clear();
    current_.clear();
    next_ = 0;
  }
  void reset() override {
    rewind();
    params_.clear();
  }
  int columnCount() const override { return static_cast<int>(columns_.size()); }
  Stored column(int i) const override {
    return i >= 0 && static_cast<size_t>(i) < current_.size() ? current_[static_cast<size_t>(i)]
                                                              : Stored{};
  }
  std::string columnName(int i) const override {
    return i >= 0 && static_cast<size_t>(i) < columns_.size()
               ? columns_[static_cast<size_t>(i)].name
               : "";
  }
  std::string columnDeclType(int i) const override {
    return i >= 0 && static_cast<size_t>(i) < columns_.size()
               ? columns_[static_cast<size_t>(i)].declType
               : "";
  }
  bool readOnly() const override { return readOnly_; }
  int32_t errorCode() const override {
    if (flavour_ == Flavour::Access)
      return state_ == "HYT00" || state_ == "HYT01" || state_ == "40001" ? kDatabaseLocked
                                                                         : kStatementFailed;
    int rc = native_ & 0xff;
    return (rc == 5 || rc == 6) ? kDatabaseLocked  // SQLITE_BUSY, SQLITE_LOCKED
           : rc == 8            ? kNotUpdatable    // SQLITE_READONLY
           : rc == 26           ? kNotADatabase    // SQLITE_NOTADB
           : rc == 10           ? kDiskIO          // SQLITE_IOERR
                                : kStatementFailed;
  }
  std::string errorMessage() const override { return message_; }
  int64_t changedRows() const { return changed_; }

 private:
  bool busy() const {
    return flavour_ == Flavour::Access ? state_ == "40001" : (native_ & 0xff) == 5;
  }
  Step failed() {
    Diagnostic d = diagnose(SQL_HANDLE_STMT, stmt_);
    native_ = d.native;
    state_ = d.state;
    message_ = d.text;
    engine_.noteError(message_);
    SQLFreeStmt(stmt_, SQL_CLOSE);
    return busy() ? Step::Stale : Step::Failed;
  }
  void bindAll() {
    bound_.assign(markers_.size(), Bound{});
    for (size_t m = 0; m < markers_.size(); ++m) {
      size_t n = static_cast<size_t>(markers_[m]);
      Bound& b = bound_[m];
      const Stored v = n >= 1 && n <= params_.size() ? params_[n - 1] : Stored{};
      auto number = static_cast<SQLUSMALLINT>(m + 1);
      switch (v.type) {
        case Stored::Int:
          b.i = v.i;
          SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0, 0, &b.i, 0,
                           &b.indicator);
          break;
        case Stored::Real:
          b.r = v.r;
          SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 0, 0, &b.r, 0,
                           &b.indicator);
          break;
        case Stored::Text:
        case Stored::Null: {
          b.text = wide(v.s);
          b.indicator = v.type == Stored::Null
                            ? SQL_NULL_DATA
                            : static_cast<SQLLEN>(b.text.size() * sizeof(SQLWCHAR));
          b.text.push_back(0);
          SQLULEN size = std::max<SQLULEN>(1, b.text.size() - 1);
          SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_WCHAR,
                           size > 255 ? SQL_WLONGVARCHAR : SQL_WVARCHAR, size, 0, b.text.data(),
                           static_cast<SQLLEN>(b.text.size() * sizeof(SQLWCHAR)), &b.indicator);
          break;
        }
      }
    }
  }
  Step run() {
    SQLFreeStmt(stmt_, SQL_CLOSE);
    SQLFreeStmt(stmt_, SQL_RESET_PARAMS);
    bindAll();
    rows_.clear();
    next_ = 0;
    changed_ = 0;
    SQLRETURN rc = SQLExecute(stmt_);
    // A statement of its own (no transaction open) that found the file busy for the whole busy
    // timeout has done nothing: it is tried again, a bounded number of times.
    for (int retry = 0; !SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA && !engine_.inTransaction() &&
                        retry < OdbcEngine::kBusyRetries;
         ++retry) {
      Diagnostic d = diagnose(SQL_HANDLE_STMT, stmt_);
      native_ = d.native;
      state_ = d.state;
      if (!busy()) break;
      SQLFreeStmt(stmt_, SQL_CLOSE);
      rc = SQLExecute(stmt_);
    }
    if (rc == SQL_NO_DATA) return Step::Done;  // a searched UPDATE or DELETE that met no row
    if (!SQL_SUCCEEDED(rc)) return failed();
    SQLLEN count = 0;
    if (SQL_SUCCEEDED(SQLRowCount(stmt_, &count))) changed_ = count;
    SQLSMALLINT width = 0;
    SQLNumResultCols(stmt_, &width);
    if (width > 0) {
      // The driver tells declared types for certain once the statement ran.
      if (!described_) {
        columns_ = describe(stmt_, flavour_);
        described_ = true;
      }
      // Rows are read whole at once: the cursor is not left open for another statement of
      // the connection to meet (some drivers run one statement at a time).
      if (!fetchAll(stmt_, columns_, rows_)) return failed();
    }
    SQLFreeStmt(stmt_, SQL_CLOSE);
    return Step::Done;
  }

  struct Bound {
    SQLLEN indicator = 0;
    int64_t i = 0;
    double r = 0;
    WString text;
  };
  OdbcEngine& engine_;
  Flavour flavour_;
  SQLHSTMT stmt_ = SQL_NULL_HSTMT;
  bool readOnly_;
  std::vector<int> markers_;  // the parameter number of each marker, in order
  std::vector<Stored> params_;
  std::vector<Bound> bound_;
  std::vector<Column> columns_;
  bool described_ = false;
  bool unprepared_ = false;
  bool ran_ = false;
  std::vector<std::vector<Stored>> rows_;
  size_t next_ = 0;
  std::vector<Stored> current_;
  int64_t changed_ = 0;
  SQLINTEGER native_ = 0;
  std::string state_;
  std::string message_;
};

// The rows of a catalog function (SQLColumns and the like) run on a statement of its own.
template <typename Call>
bool catalogRows(OdbcEngine& engine, Call call, std::vector<std::vector<Stored>>& rows) {
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

std::string text(const std::vector<Stored>& row, size_t column) {
  if (column >= row.size()) return "";
  const Stored& v = row[column];
  return v.type == Stored::Text ? v.s : v.type == Stored::Int ? std::to_string(v.i) : "";
}

int64_t integer(const std::vector<Stored>& row, size_t column) {
  return column < row.size() && row[column].type == Stored::Int ? row[column].i : 0;
}

// Makes an empty Access database file through the driver's setup.
void createAccessDatabase(const std::string& path) {
  WString driver = wide(driverName(Flavour::Access));
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

}  // namespace

// ---- Flavours and drivers

std::filesystem::path filePath(const std::string& path) {
  return std::filesystem::path(std::u8string(path.begin(), path.end()));
}

bool fileExists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(filePath(path), error);
}

Flavour flavourOf(const std::string& path) {
  size_t slash = path.find_last_of("/\\");
  std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = file.rfind('.');
  std::string ext = dot == std::string::npos ? "" : value::upper(file.substr(dot));
  if (ext != ".MDB" && ext != ".ACCDB") return Flavour::SQLite;
  std::filesystem::path p = filePath(path);
  std::error_code error;
  if (!std::filesystem::exists(p, error))
    return value::equalsIgnoreCase(file, "Temp.mdb") ? Flavour::SQLite : Flavour::Access;
  if (std::filesystem::file_size(p, error) == 0 && !error) return Flavour::SQLite;
  char header[16] = {};
  std::ifstream in(p, std::ios::binary);
  in.read(header, sizeof header);
  return in.gcount() == 16 && std::string(header, 16) == std::string("SQLite format 3\0", 16)
             ? Flavour::SQLite
             : Flavour::Access;
}

std::string driverName(Flavour flavour) {
  if (flavour == Flavour::Access) return "Microsoft Access Driver (*.mdb, *.accdb)";
  const char* name = std::getenv("DOSSYNC_ODBC_SQLITE_DRIVER");
  if (name && *name) return name;
#ifdef _WIN32
  // The SQLite ODBC driver's installer for Windows names it so; under Wine, the drivers are the
  // host's unixODBC ones, where Debian names it "SQLite3".
  static const bool windowsName = driverInstalled("SQLite3 ODBC Driver");
  if (windowsName) return "SQLite3 ODBC Driver";
#endif
  return "SQLite3";
}

bool driverInstalled(const std::string& name) {
  SQLHENV env = SQL_NULL_HENV;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env))) return false;
  SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  bool found = false;
  SQLWCHAR description[512], attributes[2048];
  SQLSMALLINT descriptionLength = 0, attributesLength = 0;
  for (SQLUSMALLINT direction = SQL_FETCH_FIRST; SQL_SUCCEEDED(SQLDriversW(
           env, direction, description, static_cast<SQLSMALLINT>(std::size(description)),
           &descriptionLength, attributes, static_cast<SQLSMALLINT>(std::size(attributes)),
           &attributesLength));
       direction = SQL_FETCH_NEXT) {
    size_t n = std::min<size_t>(static_cast<size_t>(std::max<SQLSMALLINT>(descriptionLength, 0)),
                                std::size(description) - 1);
    if (value::equalsIgnoreCase(narrow(description, n), name)) found = true;
  }
  SQLFreeHandle(SQL_HANDLE_ENV, env);
  return found;
}

#ifdef _WIN32
std::string driverPath(const std::string& path) {
  // Wine's kernel32 alone has it: char* wine_get_unix_file_name(const WCHAR*), the Unix path in
  // UTF-8, allocated on the process heap.
  using UnixName = char*(__cdecl*)(const WCHAR*);
  static const auto unixName = reinterpret_cast<UnixName>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  if (!unixName) return path;
  int n = MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, nullptr, 0);
  if (n <= 0) return path;
  std::wstring dos(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, dos.data(), n);
  char* unix = unixName(dos.c_str());
  if (!unix) return path;
  std::string result = unix;
  HeapFree(GetProcessHeap(), 0, unix);
  return result;
}
#else
std::string driverPath(const std::string& path) {
  return path;
}
#endif

// ---- The engine

struct OdbcEngine::Impl {
  Impl()
      : keys([](sql::EngineStatement& st) {
          return static_cast<OdbcStatement&>(st).changedRows();
        }) {}
  sqlite::KeyReserver keys;                           // SQLite
  std::unordered_map<std::string, int64_t> reserved;  // Access: the numbers promised, by table
  std::unique_ptr<sql::EngineStatement> version, identity;
};

OdbcEngine::OdbcEngine(const std::string& path, bool create)
    : OdbcEngine(path, create, flavourOf(path)) {}

OdbcEngine::OdbcEngine(const std::string& path, bool create, Flavour flavour)
    : impl_(std::make_unique<Impl>()), path_(path), flavour_(flavour) {
  const bool exists = fileExists(path);
  if (!create && !exists)
    throw RuntimeError(kCannotOpenDatabase,
                       "Cannot open database '" + path + "': there is no such file");
  if (create && exists)
    throw RuntimeError(kFileAlreadyExists, "Database '" + path + "' already exists");
  if (create && flavour == Flavour::Access) createAccessDatabase(path);

  auto fail = [&](int32_t code, const std::string& reason) {
    impl_.reset();
    if (dbc_) {
      SQLDisconnect(dbc_);
      SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
    }
    if (env_) SQLFreeHandle(SQL_HANDLE_ENV, env_);
    dbc_ = env_ = nullptr;
    throw RuntimeError(code, "Cannot open database '" + path + "': " + reason);
  };
  SQLHENV env = SQL_NULL_HENV;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env)))
    fail(kCannotOpenDatabase, "no ODBC driver manager");
  env_ = env;
  SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  SQLHDBC dbc = SQL_NULL_HDBC;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc)))
    fail(kCannotOpenDatabase, diagnose(SQL_HANDLE_ENV, env).text);
  dbc_ = dbc;
  const std::string driver = driverName(flavour);
  std::string connection = "DRIVER={" + driver + "};";
  if (flavour == Flavour::SQLite)
    connection += "Database=" + connectionValue(driverPath(path)) + ";Timeout=1;SyncPragma=NORMAL;";
  else
    connection += "DBQ=" + connectionValue(driverPath(path)) + ";";
  WString text = wide(connection);
  SQLRETURN rc = SQLDriverConnectW(dbc, nullptr, wptr(text), static_cast<SQLSMALLINT>(text.size()),
                                   nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
  if (!SQL_SUCCEEDED(rc)) {
    Diagnostic d = diagnose(SQL_HANDLE_DBC, dbc);
    if (create && flavour == Flavour::SQLite) {
      std::error_code ignored;
      std::filesystem::remove(filePath(path), ignored);
    }
    fail(kCannotOpenDatabase, "driver \"" + driver + "\": " + d.text);
  }
  if (flavour == Flavour::SQLite) {
    // A file that is not a database connects all the same: the first statement tells.
    OdbcStatement check(*this, "SELECT count(*) FROM sqlite_master;", false);
    if (check.step() != Step::Row)
      fail(check.errorCode() == kNotADatabase ? kNotADatabase : kCannotOpenDatabase,
           check.errorMessage());
    // The driver's own wait on a busy database (its Timeout, given as 1 ms above) also waits
    // out a write that can never join a snapshot another connection's write made stale; SQLite's
    // wait, set here, ends such a write at once and waits only for locks.
    exec("PRAGMA busy_timeout = " + std::to_string(kBusyTimeoutMs) + ";");
    OdbcStatement mode(*this, "PRAGMA journal_mode;");
    wal_ = mode.step() == Step::Row && value::equalsIgnoreCase(mode.column(0).s, "wal");
  }
}

OdbcEngine::~OdbcEngine() {
  impl_.reset();
  if (dbc_) {
    if (inTransaction_) SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_ROLLBACK);
    SQLDisconnect(dbc_);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
  }
  if (env_) SQLFreeHandle(SQL_HANDLE_ENV, env_);
}

std::unique_ptr<sql::EngineStatement> OdbcEngine::prepare(const std::string& sql) {
  return std::make_unique<OdbcStatement>(*this, sql);
}

void OdbcEngine::exec(const std::string& sql) {
  for (const std::string& one : splitStatements(sql)) {
    OdbcStatement st(*this, one);
    Step s;
    while ((s = st.step()) == Step::Row) {
    }
    if (s != Step::Done)
      throw RuntimeError(kStatementFailed,
                         "\"" + one + "\" failed on '" + path_ + "': " + st.errorMessage());
  }
}

bool OdbcEngine::begin() {
  if (inTransaction_) return false;
  SQLRETURN rc = SQLSetConnectAttrW(dbc_, SQL_ATTR_AUTOCOMMIT,
                                    reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0);
  if (!SQL_SUCCEEDED(rc)) {
    lastError_ = diagnose(SQL_HANDLE_DBC, dbc_).text;
    return false;
  }
  inTransaction_ = true;
  return true;
}

Expected<void> OdbcEngine::commit() {
  if (!inTransaction_) return {};
  Expected<void> done;
  if (!SQL_SUCCEEDED(SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_COMMIT))) {
    lastError_ = diagnose(SQL_HANDLE_DBC, dbc_).text;
    done = RuntimeError(kDiskIO, lastError_);
    SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_ROLLBACK);
  }
  SQLSetConnectAttrW(dbc_, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0);
  inTransaction_ = false;
  return done;
}

void OdbcEngine::rollback() {
  if (!inTransaction_) return;
  SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_ROLLBACK);
  SQLSetConnectAttrW(dbc_, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0);
  inTransaction_ = false;
}

uint64_t OdbcEngine::dataVersion() {
  if (flavour_ == Flavour::Access) return ++looks_;
  if (!impl_->version) impl_->version = prepare("PRAGMA data_version;");
  uint64_t version = 0;
  if (impl_->version->step() == Step::Row)
    version = static_cast<uint64_t>(impl_->version->column(0).i);
  impl_->version->reset();
  return version;
}

std::vector<std::string> OdbcEngine::tableNames() {
  std::vector<std::vector<Stored>> rows;
  WString type = wide("TABLE");
  if (!catalogRows(
          *this,
          [&](SQLHSTMT h) {
            return SQLTablesW(h, nullptr, 0, nullptr, 0, nullptr, 0, wptr(type), SQL_NTS);
          },
          rows))
    throw RuntimeError(kStatementFailed,
                       "Cannot list the tables of '" + path_ + "': " + lastError_);
  std::vector<std::string> names;
  for (const auto& row : rows) {
    std::string name = text(row, 2);
    if (flavour_ == Flavour::SQLite && value::upper(name).rfind("SQLITE_", 0) == 0) continue;
    names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::shared_ptr<sql::TableInfo> OdbcEngine::describeTable(const std::string& name,
                                                          std::string& viewOf) {
  if (flavour_ == Flavour::SQLite) return sqlite::describeTable(*this, name, viewOf);
  // Access: the columns (SQLColumns: 3 TABLE_NAME, 4 COLUMN_NAME, 5 DATA_TYPE, 6 TYPE_NAME,
  // 7 COLUMN_SIZE, 11 NULLABLE, 13 COLUMN_DEF), then the primary key.
  WString table = wide(name);
  std::vector<std::vector<Stored>> columns;
  if (!catalogRows(
          *this,
          [&](SQLHSTMT h) {
            return SQLColumnsW(h, nullptr, 0, nullptr, 0, wptr(table), SQL_NTS, nullptr, 0);
          },
          columns) ||
      columns.empty())
    return nullptr;
  std::vector<std::vector<Stored>> keys;
  bool primary = catalogRows(
      *this,
      [&](SQLHSTMT h) { return SQLPrimaryKeysW(h, nullptr, 0, nullptr, 0, wptr(table), SQL_NTS); },
      keys);
  std::vector<std::string> keyNames;
  if (primary) {
    for (const auto& row : keys) keyNames.push_back(text(row, 3));
  } else {
    // The Access driver has no SQLPrimaryKeys: its primary key is the index named PrimaryKey.
    keys.clear();
    if (catalogRows(
            *this,
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
    if (row.size() > 12 && row[12].type != Stored::Null) c.defaultSql = text(row, 12);
    if (keyNames.size() == 1 && value::equalsIgnoreCase(keyNames[0], c.name) &&
        c.kind == sql::ColumnKind::Integer) {
      c.autoKey = value::equalsIgnoreCase(typeName, "COUNTER") ||
                  value::upper(typeName).find("AUTOINCREMENT") != std::string::npos;
      info->keyColumn = static_cast<int>(info->columns.size());
      info->rowKey = accessQuote(c.name);
    }
    info->add(std::move(c));
  }
  return info;
}

int64_t OdbcEngine::reserveKey(const sql::TableInfo& table) {
  if (flavour_ == Flavour::SQLite) return impl_->keys.reserve(*this, table);
  if (table.keyColumn < 0)
    throw RuntimeError(kStatementFailed, "Table " + table.name + " in '" + path_ + "' has no key");
  const std::string& key = table.columns[static_cast<size_t>(table.keyColumn)].name;
  OdbcStatement top(*this,
                    "SELECT max(" + accessQuote(key) + ") FROM " + accessQuote(table.name) + ";");
  int64_t inUse = 0;
  if (top.step() == Step::Row) inUse = top.column(0).type == Stored::Int ? top.column(0).i : 0;
  int64_t& reserved = impl_->reserved[value::upper(table.name)];
  return reserved = std::max(reserved, inUse) + 1;
}

int64_t OdbcEngine::insertedKey(sql::EngineStatement&) {
  if (!impl_->identity)
    impl_->identity =
        prepare(flavour_ == Flavour::Access ? "SELECT @@IDENTITY;" : "SELECT last_insert_rowid();");
  int64_t key = 0;
  if (impl_->identity->step() == Step::Row) key = impl_->identity->column(0).i;
  impl_->identity->reset();
  return key;
}

std::unique_ptr<sql::Database> openOdbc(const std::string& path, bool create) {
  return std::make_unique<sql::Database>(std::make_unique<OdbcEngine>(path, create));
}

}  // namespace dossync::odbc
