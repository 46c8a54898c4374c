#include "backends/sql/sqlite_schema.h"

#include <algorithm>

#include "base/error.h"
#include "base/value.h"

namespace dossync::sqlite {

using sql::Step;
using sql::Stored;

std::shared_ptr<sql::TableInfo> describeTable(sql::Engine& engine, const std::string& name,
                                              std::string& viewOf) {
  auto info = std::make_shared<sql::TableInfo>();
  bool autoIncrement = false;
  {
    auto n = engine.prepare(
        "SELECT type, name, sql FROM sqlite_master WHERE type IN ('table', 'view') "
        "AND name = ?1 COLLATE NOCASE;");
    n->bind(1, Stored{Stored::Text, 0, 0, name});
    if (n->step() != Step::Row) return nullptr;
    std::string sql = n->column(2).s;
    if (n->column(0).s == "view") {
      std::string up = value::upper(sql);
      size_t at = up.find("SELECT * FROM ");
      if (at == std::string::npos) return nullptr;
      std::string base = value::trim(sql.substr(at + 14));
      while (!base.empty() && (base.back() == ';' || base.back() == ' ')) base.pop_back();
      if (base.find_first_of(" ,()") == std::string::npos) viewOf = base;
      return nullptr;
    }
    info->name = n->column(1).s;
    autoIncrement = value::upper(sql).find("AUTOINCREMENT") != std::string::npos;
  }
  auto st = engine.prepare("PRAGMA table_info(" + sql::quoteIdentifier(info->name) + ");");
  bool any = false;
  while (st->step() == Step::Row) {
    any = true;
    sql::ColumnInfo c = sql::describeColumn(st->column(1).s, st->column(2).s);
    c.notNull = st->column(3).i != 0;
    // Text, though an engine that cannot tell text from numbers may read "1" as a number.
    if (Stored d = st->column(4); d.type != Stored::Null) c.defaultSql = sql::fromStored({}, d);
    bool pk = st->column(5).i == 1;
    if (pk && value::upper(c.declaredType) == "INTEGER") {
      c.autoKey = autoIncrement;
      info->keyColumn = static_cast<int>(info->columns.size());
    }
    info->add(std::move(c));
  }
  if (!any) return nullptr;
  info->rowKey = "rowid";  // every table of ours has one (none is WITHOUT ROWID)
  return info;
}

int64_t KeyReserver::reserve(sql::Engine& engine, const sql::TableInfo& table) {
  // The number is taken in the table's row of sqlite_sequence (made with the first AUTOINCREMENT
  // table), where every connection, of this process or another, draws its next number: a number
  // promised here is not drawn by anybody else, and one left unused is skipped, as with the
  // host's engine. The next number is above the row, every key in use and every number this
  // connection promised; it is taken only if nobody took one meanwhile (else it is read anew).
  const std::string key = value::upper(table.name);
  const std::string name = sql::quoteText(table.name);
  const std::string top =
      "coalesce((SELECT max(rowid) FROM " + sql::quoteIdentifier(table.name) + "), 0)";
  auto& [read, update, insert] = steps_[key];
  if (!read) {
    read = engine.prepare("SELECT (SELECT seq FROM sqlite_sequence WHERE name = " + name + "), " +
                          top + ";");
    update = engine.prepare("UPDATE sqlite_sequence SET seq = ?1 WHERE name = " + name +
                            " AND seq = ?2 AND " + top + " < ?1;");
    insert =
        engine.prepare("INSERT INTO sqlite_sequence (name, seq) SELECT " + name +
                       ", ?1 WHERE NOT EXISTS (SELECT 1 FROM sqlite_sequence WHERE name = " + name +
                       ") AND " + top + " < ?1;");
  }
  int64_t& reserved = reserved_[key];
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    bool hasSeq = false;
    int64_t seq = 0, inUse = 0;
    if (read->step() == Step::Row) {
      Stored s = read->column(0);
      hasSeq = s.type != Stored::Null;
      seq = hasSeq ? s.i : 0;
      inUse = read->column(1).i;
    }
    read->reset();
    int64_t next = std::max({reserved, inUse, seq}) + 1;
    auto& take = hasSeq ? update : insert;
    Stored number;
    number.type = Stored::Int;
    number.i = next;
    take->bind(1, number);
    if (hasSeq) {
      number.i = seq;
      take->bind(2, number);
    }
    Step done = take->step();
    int64_t changed = done == Step::Done ? changed_(*take) : 0;
    take->reset();
    if (done == Step::Stale) throw sql::StaleSnapshot{};
    if (changed == 1) return reserved = next;
  }
  throw RuntimeError(kDatabaseLocked, "Cannot take the next number of " + table.name + " in '" +
                                          engine.name() + "'");
}

}  // namespace dossync::sqlite
