#include "backends/postgres/pg_engine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "backends/sql/dialect.h"
#include "base/utility.h"
#include "base/value.h"

namespace dossync::postgres {

using sql::Step;
using sql::Stored;

namespace {

// Type OIDs of the pg_type catalog.
enum : Oid {
  kBool = 16,
  kInt8 = 20,
  kInt2 = 21,
  kInt4 = 23,
  kText = 25,
  kOid = 26,
  kFloat4 = 700,
  kFloat8 = 701,
  kBpchar = 1042,
  kVarchar = 1043,
  kDate = 1082,
  kTimestamp = 1114,
  kTimestampTz = 1184,
  kNumeric = 1700,
};

// A result that frees itself.
struct Result {
  explicit Result(PGresult* r = nullptr) : r(r) {}
  ~Result() { PQclear(r); }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;
  Result& operator=(PGresult* next) {
    PQclear(r);
    r = next;
    return *this;
  }
  bool ok() const {
    auto s = PQresultStatus(r);
    return s == PGRES_COMMAND_OK || s == PGRES_TUPLES_OK;
  }
  std::string text(int row, int column) const { return PQgetvalue(r, row, column); }
  int rows() const { return PQntuples(r); }
  PGresult* r;
};

std::string sqlState(const PGresult* r) {
  const char* s = r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr;
  return s ? s : "";
}

std::string message(PGconn* conn, const PGresult* r) {
  const char* m = r ? PQresultErrorMessage(r) : nullptr;
  std::string text = m && *m ? m : PQerrorMessage(conn);
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

// Runs a statement of the engine's own (already PostgreSQL's SQL) with text parameters.
PGresult* run(PGconn* conn, const std::string& sql, std::vector<std::string> params = {}) {
  std::vector<const char*> values;
  for (auto& p : params) values.push_back(p.c_str());
  return PQexecParams(conn, sql.c_str(), static_cast<int>(values.size()), nullptr,
                      values.empty() ? nullptr : values.data(), nullptr, nullptr, 0);
}

class PgStatement : public sql::EngineStatement {
 public:
  PgStatement(PgEngine& engine, const std::string& sql) : engine_(engine), source_(sql) {
    auto spelling = [&](std::string_view name) { return engine_.spelling(name); };
    for (int attempt = 0; attempt < 2; ++attempt) {
      text_ = sql::toPostgres(sql, spelling);
      name_ = engine_.nextStatementName();
      Result r(PQprepare(engine_.handle(), name_.c_str(), text_.c_str(), 0, nullptr));
      if (r.ok()) break;
      std::string state = sqlState(r.r), why = message(engine_.handle(), r.r);
      engine_.failedInTransaction();
      // A table or column made since the names were read: read them again, once.
      if (attempt == 0 && (state == "42P01" || state == "42703")) {
        engine_.loadNames();
        continue;
      }
      throw RuntimeError(kStatementFailed,
                         "Cannot run \"" + sql + "\" on '" + engine_.name() + "': " + why);
    }
    Result d(PQdescribePrepared(engine_.handle(), name_.c_str()));
    if (d.ok()) {
      for (int i = 0; i < PQnfields(d.r); ++i) {
        names_.push_back(PQfname(d.r, i));
        types_.push_back(PQftype(d.r, i));
        modifiers_.push_back(PQfmod(d.r, i));
      }
    }
    std::string start = value::upper(value::trim(text_).substr(0, 6));
    readOnly_ = start == "SELECT";
  }
  ~PgStatement() override {
    if (PQstatus(engine_.handle()) == CONNECTION_OK &&
        PQtransactionStatus(engine_.handle()) != PQTRANS_INERROR)
      Result(PQexec(engine_.handle(), ("DEALLOCATE " + name_ + ";").c_str()));
  }

  void bind(int index, const Stored& v) override {
    auto i = static_cast<size_t>(index - 1);
    if (params_.size() <= i) params_.resize(i + 1);
    switch (v.type) {
      case Stored::Null:
        params_[i].reset();
        break;
      case Stored::Int:
        params_[i] = std::to_string(v.i);
        break;
      case Stored::Real: {
        char buf[40];
        std::snprintf(buf, sizeof buf, "%.17g", v.r);
        params_[i] = buf;
        break;
      }
      case Stored::Text:
        params_[i] = v.s;
        break;
    }
  }

  Step step() override {
    if (!ran_) {
      ran_ = true;
      row_ = -1;
      std::vector<const char*> values;
      for (auto& p : params_) values.push_back(p ? p->c_str() : nullptr);
      result_ = PQexecPrepared(engine_.handle(), name_.c_str(), static_cast<int>(values.size()),
                               values.empty() ? nullptr : values.data(), nullptr, nullptr, 0);
      if (!result_.ok()) {
        std::string state = sqlState(result_.r);
        error_ = message(engine_.handle(), result_.r);
        engine_.failedInTransaction();
        failed_ = true;
        code_ = state == "40001" || state == "40P01" ? kDatabaseLocked
                : state.rfind("22", 0) == 0          ? kTypeMismatch
                : state == "42501"                   ? kNotUpdatable
                                                     : kStatementFailed;
        return state == "40001" || state == "40P01" ? Step::Stale : Step::Failed;
      }
      if (!readOnly_) engine_.noteWrite();
    }
    if (failed_) return Step::Failed;
    ++row_;
    return row_ < PQntuples(result_.r) ? Step::Row : Step::Done;
  }
  void rewind() override {
    ran_ = false;
    failed_ = false;
    result_ = nullptr;
  }
  void reset() override {
    rewind();
    params_.clear();
  }
  int columnCount() const override { return static_cast<int>(names_.size()); }
  Stored column(int i) const override {
    Stored v;
    if (!result_.r || row_ < 0 || row_ >= PQntuples(result_.r) || PQgetisnull(result_.r, row_, i))
      return v;
    const char* text = PQgetvalue(result_.r, row_, i);
    switch (types_[static_cast<size_t>(i)]) {
      case kBool:
        v.type = Stored::Int;
        v.i = text[0] == 't' ? 1 : 0;
        break;
      case kInt2:
      case kInt4:
      case kInt8:
      case kOid:
        v.type = Stored::Int;
        v.i = std::strtoll(text, nullptr, 10);
        break;
      case kFloat4:
      case kFloat8:
      case kNumeric:
        v.type = Stored::Real;
        v.r = std::strtod(text, nullptr);
        break;
      default:
        v.type = Stored::Text;
        v.s.assign(text, static_cast<size_t>(PQgetlength(result_.r, row_, i)));
    }
    return v;
  }
  std::string columnName(int i) const override { return names_[static_cast<size_t>(i)]; }
  std::string columnDeclType(int i) const override {
    auto c = static_cast<size_t>(i);
    switch (types_[c]) {
      case kBool:
        return "BOOLEAN";
      case kInt2:
      case kInt4:
      case kInt8:
      case kOid:
        return "INTEGER";
      case kFloat4:
      case kFloat8:
      case kNumeric:
        return "REAL";
      case kDate:
      case kTimestamp:
      case kTimestampTz:
        return "DATETIME";
      case kVarchar:
      case kBpchar:
        return modifiers_[c] > 4 ? "VARCHAR(" + std::to_string(modifiers_[c] - 4) + ")" : "VARCHAR";
      case kText:
        return "TEXT";
      default:
        return "";
    }
  }
  bool readOnly() const override { return readOnly_; }
  int32_t errorCode() const override { return code_; }
  std::string errorMessage() const override { return error_; }

 private:
  PgEngine& engine_;
  std::string source_;
  std::string text_;
  std::string name_;
  std::vector<std::string> names_;
  std::vector<Oid> types_;
  std::vector<int> modifiers_;
  bool readOnly_ = false;
  std::vector<std::optional<std::string>> params_;
  bool ran_ = false;
  bool failed_ = false;
  Result result_;
  int row_ = -1;
  int32_t code_ = kStatementFailed;
  std::string error_;
};

}  // namespace

bool isUri(const std::string& location) {
  return isServerLocation(location);
}

std::string displayName(const std::string& uri) {
  std::string out = uri;
  // user:password@ -> user@
  size_t scheme = out.find("://");
  if (scheme != std::string::npos) {
    size_t at = out.find('@', scheme + 3);
    size_t slash = out.find('/', scheme + 3);
    if (at != std::string::npos && (slash == std::string::npos || at < slash)) {
      size_t colon = out.find(':', scheme + 3);
      if (colon != std::string::npos && colon < at) out.erase(colon, at - colon);
    }
  }
  // ...&password=secret -> dropped
  size_t query = out.find('?');
  if (query != std::string::npos) {
    std::string kept;
    size_t start = query + 1;
    while (start <= out.size()) {
      size_t end = out.find('&', start);
      if (end == std::string::npos) end = out.size();
      std::string part = out.substr(start, end - start);
      if (part.rfind("password=", 0) != 0 && !part.empty())
        kept += (kept.empty() ? "" : "&") + part;
      start = end + 1;
    }
    out = out.substr(0, query) + (kept.empty() ? "" : "?" + kept);
  }
  return out;
}

PgEngine::PgEngine(const std::string& uri) : name_(displayName(uri)) {
  conn_ = PQconnectdb(uri.c_str());
  if (!conn_ || PQstatus(conn_) != CONNECTION_OK) {
    std::string why = conn_ ? PQerrorMessage(conn_) : "out of memory";
    while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
    PQfinish(conn_);
    conn_ = nullptr;
    throw RuntimeError(kCannotOpenDatabase, "Cannot open database '" + name_ + "': " + why);
  }
  PQsetNoticeProcessor(
      conn_, [](void*, const char*) {}, nullptr);
  Result r(PQexec(conn_,
                  "SET client_encoding = 'UTF8'; SET DateStyle = 'ISO, YMD'; "
                  "SET extra_float_digits = 1; LISTEN dossync_changed;"));
  if (!r.ok()) {
    std::string why = message(conn_, r.r);
    PQfinish(conn_);
    conn_ = nullptr;
    throw RuntimeError(kCannotOpenDatabase, "Cannot open database '" + name_ + "': " + why);
  }
  installTriggers();
}

PgEngine::~PgEngine() {
  PQfinish(conn_);
}

void PgEngine::installTriggers() {
  // Only what is missing: the function once, a trigger per table. A database whose owner did
  // not give us the right keeps its schema; its indexes are then rebuilt once per snapshot.
  Result r(PQexec(conn_, R"(DO $do$
DECLARE t regclass;
BEGIN
  IF NOT EXISTS (SELECT 1 FROM pg_proc WHERE proname = 'dossync_changed'
                 AND pronamespace = current_schema()::regnamespace) THEN
    CREATE FUNCTION dossync_changed() RETURNS trigger LANGUAGE plpgsql AS
      $f$BEGIN PERFORM pg_notify('dossync_changed', TG_TABLE_NAME); RETURN NULL; END$f$;
  END IF;
  FOR t IN SELECT c.oid::regclass FROM pg_class c
           WHERE c.relnamespace = current_schema()::regnamespace AND c.relkind = 'r'
             AND NOT EXISTS (SELECT 1 FROM pg_trigger g
                             WHERE g.tgrelid = c.oid AND g.tgname = 'dossync_changed') LOOP
    EXECUTE format('CREATE TRIGGER dossync_changed AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE '
                   'ON %s FOR EACH STATEMENT EXECUTE FUNCTION dossync_changed()', t);
  END LOOP;
END
$do$;)"));
  notified_ = r.ok();
}

const std::string* PgEngine::spelling(std::string_view name) {
  if (!namesLoaded_) loadNames();
  auto it = names_.find(name);
  return it == names_.end() ? nullptr : &it->second;
}

void PgEngine::loadNames() {
  namesLoaded_ = true;
  names_.clear();
  Result r(PQexec(conn_,
                  "SELECT c.relname FROM pg_class c WHERE c.relnamespace = "
                  "current_schema()::regnamespace AND c.relkind IN ('r', 'v', 'p', 'm') "
                  "UNION SELECT a.attname FROM pg_attribute a JOIN pg_class c ON c.oid = "
                  "a.attrelid WHERE c.relnamespace = current_schema()::regnamespace AND "
                  "c.relkind IN ('r', 'v', 'p', 'm') AND a.attnum > 0 AND NOT a.attisdropped;"));
  if (!r.ok()) {
    failedInTransaction();
    return;
  }
  for (int i = 0; i < r.rows(); ++i) {
    std::string n = r.text(i, 0);
    names_.emplace(n, n);
  }
}

void PgEngine::failedInTransaction() {
  if (PQtransactionStatus(conn_) != PQTRANS_INERROR) return;
  // The transaction is lost: reads only, and nothing is; writes, and the commit must say so.
  if (wroteInTransaction_) {
    lost_ = true;
    lostReason_ = PQerrorMessage(conn_);
  }
  Result(PQexec(conn_, "ROLLBACK;"));
  wroteInTransaction_ = false;
}

void PgEngine::exec(const std::string& sql) {
  execute(sql);
  namesLoaded_ = false;  // it may have made tables
}

void PgEngine::savepoint(Savepoint step) {
  execute(savepointSql(step));  // makes no table
}

void PgEngine::execute(const std::string& sql) {
  Result r(PQexec(conn_, sql.c_str()));
  if (!r.ok()) {
    std::string why = message(conn_, r.r);
    failedInTransaction();
    throw RuntimeError(kStatementFailed, "\"" + sql + "\" failed on '" + name_ + "': " + why);
  }
}

bool PgEngine::begin() {
  lost_ = false;
  wroteInTransaction_ = false;
  Result r(PQexec(conn_, "BEGIN ISOLATION LEVEL REPEATABLE READ;"));
  // What arrived meanwhile is counted (and libpq lets go of it), with another connection's
  // commit made while this one was idle: that is told to it before the answer to BEGIN (once in
  // the transaction, not before its end), so the snapshot's first look at the data version
  // sees every commit the snapshot may hold.
  dataVersion();
  return r.ok();
}

bool PgEngine::beginWriting() {
  if (inTransaction()) return false;
  auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(sql::kLockWaitMs);
  auto pause = std::chrono::milliseconds(1);
  const std::string take = "SELECT pg_try_advisory_lock(" + std::to_string(kWritersLock) + ");";
  for (;;) {
    Result r(PQexec(conn_, take.c_str()));
    if (!r.ok()) return false;
    if (PQgetvalue(r.r, 0, 0)[0] == 't') break;
    if (std::chrono::steady_clock::now() >= until) return false;
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::milliseconds(16));
  }
  writersLock_ = true;
  if (begin()) return true;
  letWritersGo();
  return false;
}

void PgEngine::letWritersGo() {
  if (!writersLock_ || PQtransactionStatus(conn_) != PQTRANS_IDLE) return;
  writersLock_ = false;
  Result(
      PQexec(conn_, ("SELECT pg_advisory_unlock(" + std::to_string(kWritersLock) + ");").c_str()));
}

Expected<void> PgEngine::commit() {
  Expected<void> done = commitOrRollBack();
  letWritersGo();
  return done;
}

Expected<void> PgEngine::commitOrRollBack() {
  bool lost = lost_;
  lost_ = false;
  // A transaction lost to another connection's change may well go through when made again.
  if (lost) return RuntimeError(kDiskIO, Remedy::kRetryLater, lostReason_);
  if (PQtransactionStatus(conn_) == PQTRANS_IDLE) return {};
  wroteInTransaction_ = false;
  Result r(PQexec(conn_, "COMMIT;"));
  // A transaction that failed answers COMMIT with ROLLBACK.
  if (r.ok() && std::strcmp(PQcmdStatus(r.r), "ROLLBACK") != 0) return {};
  RuntimeError why(kDiskIO, r.ok() ? "the transaction was rolled back" : message(conn_, r.r));
  if (PQtransactionStatus(conn_) != PQTRANS_IDLE) Result(PQexec(conn_, "ROLLBACK;"));
  return why;
}

void PgEngine::rollback() {
  lost_ = false;
  wroteInTransaction_ = false;
  if (PQtransactionStatus(conn_) != PQTRANS_IDLE) Result(PQexec(conn_, "ROLLBACK;"));
  letWritersGo();
}

uint64_t PgEngine::dataVersion() {
  if (!notified_) return ++version_;
  // The server tells an idle connection of another's commit when it gets round to it, which on
  // a busy machine may be well after that commit returned; it tells it at the latest before
  // it answers the connection's next request. Outside a transaction, one empty request makes
  // sure that every commit made before this look is counted (inside one, begin() made it).
  if (PQtransactionStatus(conn_) == PQTRANS_IDLE) Result(PQexec(conn_, ""));
  PQconsumeInput(conn_);
  int self = PQbackendPID(conn_);
  while (PGnotify* n = PQnotifies(conn_)) {
    if (n->be_pid != self) ++version_;
    PQfreemem(n);
  }
  return version_;
}

std::shared_ptr<sql::TableInfo> PgEngine::describeTable(const std::string& name,
                                                        std::string& viewOf) {
  const std::string* spelt = spelling(name);
  if (!spelt) {
    loadNames();
    spelt = spelling(name);
    if (!spelt) return nullptr;
  }
  Result rel(run(conn_,
                 "SELECT c.oid, c.relkind FROM pg_class c WHERE c.relnamespace = "
                 "current_schema()::regnamespace AND c.relname = $1 AND c.relkind IN "
                 "('r', 'v', 'p');",
                 {*spelt}));
  if (!rel.ok()) failedInTransaction();
  if (!rel.ok() || rel.rows() != 1) return nullptr;
  std::string oid = rel.text(0, 0);
  if (rel.text(0, 1) == "v") {
    // A view of one table with all of its columns is that table.
    Result base(run(conn_,
                    "SELECT t.relname FROM pg_depend d JOIN pg_rewrite w ON w.oid = d.objid "
                    "JOIN pg_class t ON t.oid = d.refobjid WHERE w.ev_class = $1::oid AND "
                    "d.refobjid <> $1::oid AND t.relkind = 'r' AND (SELECT count(*) FROM "
                    "pg_attribute a WHERE a.attrelid = t.oid AND a.attnum > 0 AND NOT "
                    "a.attisdropped) = (SELECT count(*) FROM pg_attribute a WHERE a.attrelid = "
                    "$1::oid AND a.attnum > 0 AND NOT a.attisdropped) GROUP BY t.relname;",
                    {oid}));
    if (!base.ok()) failedInTransaction();
    if (base.ok() && base.rows() == 1) viewOf = base.text(0, 0);
    return nullptr;
  }
  Result cols(run(conn_,
                  "SELECT a.attname, upper(format_type(a.atttypid, a.atttypmod)), a.attnotnull, "
                  "coalesce(pg_get_expr(d.adbin, d.adrelid), ''), a.attidentity <> '', "
                  "coalesce((SELECT i.indisprimary AND i.indnatts = 1 FROM pg_index i WHERE "
                  "i.indrelid = a.attrelid AND i.indisprimary AND a.attnum = i.indkey[0]), false) "
                  "FROM pg_attribute a LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND "
                  "d.adnum = a.attnum WHERE a.attrelid = $1::oid AND a.attnum > 0 AND NOT "
                  "a.attisdropped ORDER BY a.attnum;",
                  {oid}));
  if (!cols.ok()) {
    failedInTransaction();
    return nullptr;
  }
  auto info = std::make_shared<sql::TableInfo>();
  info->name = *spelt;
  for (int i = 0; i < cols.rows(); ++i) {
    std::string type = cols.text(i, 1);
    if (type.rfind("CHARACTER VARYING", 0) == 0) type = "VARCHAR" + type.substr(17);
    if (type.rfind("TIMESTAMP", 0) == 0) type = "DATETIME";
    sql::ColumnInfo c = sql::describeColumn(cols.text(i, 0), type);
    c.notNull = cols.text(i, 2) == "t";
    c.defaultSql = cols.text(i, 3);
    bool identity = cols.text(i, 4) == "t";
    bool key = cols.text(i, 5) == "t";
    if (key && c.kind == sql::ColumnKind::Integer) {
      c.autoKey = identity || c.defaultSql.rfind("nextval(", 0) == 0;
      if (c.autoKey) c.defaultSql.clear();
      info->keyColumn = static_cast<int>(info->columns.size());
      info->rowKey = sql::quoteIdentifier(c.name);
    }
    info->add(std::move(c));
  }
  if (info->columns.empty()) return nullptr;
  return info;
}

int64_t PgEngine::reserveKey(const sql::TableInfo& table) {
  // The table's sequence hands the number out once, whatever becomes of this transaction; as
  // SQLite's AUTOINCREMENT does, it is above every key in use, also those given explicitly. A
  // sequence left behind by such keys is moved past them by one connection at a time (two that
  // both moved it to the same place would hand out the same number), and never backwards.
  const std::string& key = table.columns[static_cast<size_t>(table.keyColumn)].name;
  std::string t = sql::quoteIdentifier(table.name);
  std::string top = "(SELECT coalesce(max(" + sql::quoteIdentifier(key) + "), 0) FROM " + t + ")";
  auto fail = [&](const Result& r) {
    std::string why = message(conn_, r.r);
    failedInTransaction();
    throw RuntimeError(kStatementFailed,
                       "Cannot number a new row of " + table.name + " in '" + name_ + "': " + why);
  };
  Result r(run(conn_,
               "SELECT CASE WHEN n.v > " + top +
                   " THEN n.v ELSE 0 END FROM (SELECT nextval(pg_get_serial_sequence($1, $2)) "
                   "AS v) n;",
               {t, key}));
  if (!r.ok()) fail(r);
  int64_t number = std::strtoll(PQgetvalue(r.r, 0, 0), nullptr, 10);
  if (number > 0) return number;
  Result lock(PQexec(conn_, "SELECT pg_advisory_lock(1146311508);"));
  if (!lock.ok()) fail(lock);
  Result moved(run(conn_,
                   "SELECT CASE WHEN n.v > " + top + " THEN n.v ELSE setval(n.s, greatest(" + top +
                       " + 1, n.v)) END FROM (SELECT s, nextval(s) AS v FROM (SELECT "
                       "pg_get_serial_sequence($1, $2) AS s) q) n;",
                   {t, key}));
  std::string why = moved.ok() ? "" : message(conn_, moved.r);
  if (!moved.ok()) failedInTransaction();  // so that the lock can be let go
  Result unlock(PQexec(conn_, "SELECT pg_advisory_unlock(1146311508);"));
  if (!moved.ok())
    throw RuntimeError(kStatementFailed,
                       "Cannot number a new row of " + table.name + " in '" + name_ + "': " + why);
  return std::strtoll(PQgetvalue(moved.r, 0, 0), nullptr, 10);
}

std::string PgEngine::insertSuffix(const sql::TableInfo& table) {
  return table.rowKey.empty() ? "" : " RETURNING " + table.rowKey;
}

int64_t PgEngine::insertedKey(sql::EngineStatement& insert) {
  Stored key = insert.column(0);
  return key.type == Stored::Int ? key.i : 0;
}

std::string PgEngine::lastErrorText() const {
  std::string why = PQerrorMessage(conn_);
  while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
  return why;
}

std::unique_ptr<sql::EngineStatement> PgEngine::prepare(const std::string& sql) {
  return std::make_unique<PgStatement>(*this, sql);
}

std::unique_ptr<sql::Database> openPostgres(const std::string& uri) {
  return std::make_unique<sql::Database>(std::make_unique<PgEngine>(uri));
}

void createHostSchema(const std::string& uri, const std::string& sqliteSchema) {
  PgEngine engine(uri);
  std::string viewOf;
  for (const char* table : {"Companies", "Contacts", "Categories"}) {
    if (engine.describeTable(table, viewOf))
      throw RuntimeError(kTableExists, "'" + engine.name() + "' holds host tables already (" +
                                           table + "); not creating them again");
  }
  engine.exec("BEGIN;\n" + sql::postgresSchema(sqliteSchema) + "COMMIT;");
  // The triggers of the tables just made.
  PgEngine again(uri);
}

}  // namespace dossync::postgres
