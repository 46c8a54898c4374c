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
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unordered_map>

#include "backends/odbc/odbc_internal.h"
#include "backends/sql/dialect.h"
#include "backends/sql/sqlite_schema.h"
#include "backends/sql/tokenizer.h"
#include "base/error.h"
#include "base/utf16.h"
#include "base/value.h"

namespace dossync::odbc {

using sql::Step;
using sql::Stored;

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

namespace {

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
  std::string_view t = text;
  bool canonical =
      !t.empty() && t != "-" && t != "-0" && (text[text[0] == '-'] != '0' || text.size() == 1);
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

}  // namespace

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

namespace {

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

}  // namespace

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

namespace {

// "?N" parameters become the plain markers ODBC knows, each remembering its number; with
// brackets, names quoted "so" become [so].
std::string plainMarkers(const std::string& sql, std::vector<int>& markers, bool brackets) {
  std::string out;
  out.reserve(sql.size());
  int highest = 0;
  for (const sql::Token& t : sql::tokenize(sql)) {
    if (t.kind == sql::Token::Name && t.is("\"") && brackets) {
      out += "[" + t.name() + "]";  // Jet reads "x" as text: a name is written [x]
    } else if (t.kind == sql::Token::Parameter) {
      int number = t.text.size() > 1 ? t.parameter() : highest + 1;
      highest = std::max(highest, number);
      markers.push_back(number);
      out.push_back('?');
    } else {
      out += t.text;
    }
  }
  return out;
}

// "YYYY-MM-DD[ HH:MM:SS]", as dates are stored, as an ODBC timestamp.
bool timestampOf(const std::string& text, SQL_TIMESTAMP_STRUCT& t) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0;
  char tail = 0;
  int n = std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%c", &y, &mo, &d, &h, &mi, &sec, &tail);
  if (n != 3 && n != 6) return false;
  if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || sec > 59) return false;
  t = SQL_TIMESTAMP_STRUCT{};
  t.year = static_cast<SQLSMALLINT>(y);
  t.month = static_cast<SQLUSMALLINT>(mo);
  t.day = static_cast<SQLUSMALLINT>(d);
  t.hour = static_cast<SQLUSMALLINT>(h);
  t.minute = static_cast<SQLUSMALLINT>(mi);
  t.second = static_cast<SQLUSMALLINT>(sec);
  return true;
}

bool readsOnly(const std::string& sql) {
  std::string up = value::upper(value::trim(sql).substr(0, 8));
  if (up.rfind("PRAGMA", 0) == 0) return sql.find('=') == std::string::npos;
  return up.rfind("SELECT", 0) == 0 || up.rfind("VALUES", 0) == 0 || up.rfind("EXPLAIN", 0) == 0;
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
  // own=true: a statement of this engine's own for its driver (PRAGMA...), not the shared layer's.
  OdbcStatement(OdbcEngine& engine, const std::string& sql, bool mustPrepare = true,
                bool own = true)
      : engine_(engine), flavour_(engine.flavour()), readOnly_(readsOnly(sql)), sql_(sql) {
    std::string sent = plainMarkers(sql, markers_, engine.jetSql());
    if (engine.jetSql() && !own) {
      // Caught here, named, rather than as whatever the Access driver makes of it.
      std::string construct = sql::jetRejects(sent);
      if (!construct.empty())
        throw RuntimeError(kStatementFailed, "Cannot run \"" + sql + "\" on '" + engine.name() +
                                                 "': Jet does not take " + construct);
    }
    WString text = wide(sent);
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

  void bind(int index, const Stored& v) override { bind(index, v, sql::ColumnKind::Other); }
  void bind(int index, const Stored& v, sql::ColumnKind kind) override {
    if (index < 1) return;
    if (params_.size() < static_cast<size_t>(index)) {
      params_.resize(static_cast<size_t>(index));
      kinds_.resize(static_cast<size_t>(index), sql::ColumnKind::Other);
    }
    params_[static_cast<size_t>(index) - 1] = v;
    kinds_[static_cast<size_t>(index) - 1] = kind;
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
    kinds_.clear();
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
  // Every parameter bound by its type: for Jet, integers that fit as SQL_INTEGER (the Access
  // driver has no SQL_BIGINT) and Yes/No values as bits; for an Access file, dates as timestamps. A
  // parameter the driver refuses is an error naming the statement.
  void bindAll() {
    bound_.assign(markers_.size(), Bound{});
    const bool jet = engine_.jetSql();
    for (size_t m = 0; m < markers_.size(); ++m) {
      size_t n = static_cast<size_t>(markers_[m]);
      Bound& b = bound_[m];
      const Stored v = n >= 1 && n <= params_.size() ? params_[n - 1] : Stored{};
      const sql::ColumnKind kind =
          n >= 1 && n <= kinds_.size() ? kinds_[n - 1] : sql::ColumnKind::Other;
      auto number = static_cast<SQLUSMALLINT>(m + 1);
      SQLRETURN rc = SQL_SUCCESS;
      if (jet && v.type == Stored::Int && kind == sql::ColumnKind::Boolean) {
        b.bit = v.i != 0 ? 1 : 0;
        rc = SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_BIT, SQL_BIT, 1, 0, &b.bit, 0,
                              &b.indicator);
      } else if (jet && v.type == Stored::Int && v.i >= INT32_MIN && v.i <= INT32_MAX) {
        b.i32 = static_cast<SQLINTEGER>(v.i);
        rc = SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 10, 0,
                              &b.i32, 0, &b.indicator);
      } else if (jet && v.type == Stored::Int) {  // beyond a Long: Jet keeps it as a Double
        b.r = static_cast<double>(v.i);
        rc = SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 15, 0, &b.r,
                              0, &b.indicator);
      } else if (v.type == Stored::Int) {
        b.i = v.i;
        rc = SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0, 0, &b.i,
                              0, &b.indicator);
      } else if (v.type == Stored::Real) {
        b.r = v.r;
        rc = SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 15, 0, &b.r,
                              0, &b.indicator);
      } else if (flavour_ == Flavour::Access && v.type == Stored::Text &&
                 kind == sql::ColumnKind::DateTime && timestampOf(v.s, b.date)) {
        // (A SQLite file keeps its dates as text.)
        rc = SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_TYPE_TIMESTAMP,
                              SQL_TYPE_TIMESTAMP, 19, 0, &b.date, sizeof b.date, &b.indicator);
      } else {
        b.text = wide(v.s);
        b.indicator = v.type == Stored::Null
                          ? SQL_NULL_DATA
                          : static_cast<SQLLEN>(b.text.size() * sizeof(SQLWCHAR));
        b.text.push_back(0);
        SQLULEN size = std::max<SQLULEN>(1, b.text.size() - 1);
        rc = SQLBindParameter(stmt_, number, SQL_PARAM_INPUT, SQL_C_WCHAR,
                              size > 255 ? SQL_WLONGVARCHAR : SQL_WVARCHAR, size, 0, b.text.data(),
                              static_cast<SQLLEN>(b.text.size() * sizeof(SQLWCHAR)), &b.indicator);
      }
      if (!SQL_SUCCEEDED(rc)) {
        Diagnostic d = diagnose(SQL_HANDLE_STMT, stmt_);
        engine_.noteError(d.text);
        throw RuntimeError(kStatementFailed, "Cannot bind parameter " + std::to_string(n) +
                                                 " of \"" + sql_ + "\" on '" + engine_.name() +
                                                 "': " + d.text);
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
    SQLINTEGER i32 = 0;
    unsigned char bit = 0;
    double r = 0;
    SQL_TIMESTAMP_STRUCT date{};
    WString text;
  };
  OdbcEngine& engine_;
  Flavour flavour_;
  SQLHSTMT stmt_ = SQL_NULL_HSTMT;
  bool readOnly_;
  std::string sql_;
  std::vector<int> markers_;  // the parameter number of each marker, in order
  std::vector<Stored> params_;
  std::vector<sql::ColumnKind> kinds_;  // by parameter: the kind of column it is written to
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

}  // namespace

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
    : OdbcEngine(path, create, flavour, flavour == Flavour::Access) {}

OdbcEngine::OdbcEngine(const std::string& path, bool create, Flavour flavour, bool jetSql)
    : impl_(std::make_unique<Impl>()), path_(path), flavour_(flavour), jet_(jetSql) {
  const bool exists = fileExists(path);
  if (!create && !exists)
    throw RuntimeError(kCannotOpenDatabase,
                       "Cannot open database '" + path + "': there is no such file");
  if (create && exists)
    throw RuntimeError(kFileAlreadyExists, "Database '" + path + "' already exists");
  // Before anything touches the file: without a driver it is left as it is.
  std::string driver;
  try {
    driver = driverName(flavour);
  } catch (const RuntimeError& e) {
    throw RuntimeError(e.number(), "Cannot open database '" + path + "': " + e.description());
  }
  if (create && flavour == Flavour::Access) createAccessDatabase(path, driver);

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
    OdbcStatement timeout(*this, "PRAGMA busy_timeout = " + std::to_string(kBusyTimeoutMs) + ";");
    if (timeout.step() == Step::Failed) fail(kCannotOpenDatabase, timeout.errorMessage());
    OdbcStatement mode(*this, "PRAGMA journal_mode;");
    wal_ = !jet_ && mode.step() == Step::Row && value::equalsIgnoreCase(mode.column(0).s, "wal");
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
  return std::make_unique<OdbcStatement>(*this, sql, true, false);
}

void OdbcEngine::exec(const std::string& sql) {
  for (std::string one : sql::splitStatements(sql)) {
    one += ";";
    OdbcStatement st(*this, one, true, false);
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
  if (jet_) return ++looks_;
  if (!impl_->version)
    impl_->version = std::make_unique<OdbcStatement>(*this, "PRAGMA data_version;");
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
  if (!jet_) return sqlite::describeTable(*this, name, viewOf);
  return describeAccessTable(*this, name);
}

int64_t OdbcEngine::reserveKey(const sql::TableInfo& table) {
  if (!jet_) return impl_->keys.reserve(*this, table);
  return reserveAccessKey(*this, table, impl_->reserved[value::upper(table.name)]);
}

int64_t OdbcEngine::insertedKey(sql::EngineStatement&) {
  if (!impl_->identity)
    impl_->identity = std::make_unique<OdbcStatement>(
        *this, flavour_ == Flavour::Access ? "SELECT @@IDENTITY;" : "SELECT last_insert_rowid();");
  int64_t key = 0;
  if (impl_->identity->step() == Step::Row) key = impl_->identity->column(0).i;
  impl_->identity->reset();
  return key;
}

std::unique_ptr<sql::Database> openOdbc(const std::string& path, bool create) {
  return std::make_unique<sql::Database>(std::make_unique<OdbcEngine>(path, create));
}

}  // namespace dossync::odbc
