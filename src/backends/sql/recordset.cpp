#include "backends/sql/recordset.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <set>

#include "backends/sql/dialect.h"
#include "base/value.h"

namespace dossync::sql {

namespace {
// Byte for byte the same stored value (a change of case is a change).
bool sameStored(const Stored& a, const Stored& b) {
  if (a.type != b.type) return false;
  switch (a.type) {
    case Stored::Null:
      return true;
    case Stored::Int:
      return a.i == b.i;
    case Stored::Real:
      return a.r == b.r;
    case Stored::Text:
      return a.s == b.s;
  }
  return false;
}
}  // namespace

// ---- TableRecordset

CursorShape::CursorShape(std::shared_ptr<const TableInfo> info, const TableQuery& q, bool jet)
    : table(std::move(info)), jet(jet) {
  std::string t = quoteIdentifier(table->name);
  const std::string& key = table->rowKey;
  wherePrefix = q.where.empty() ? "" : "(" + q.where + ") AND ";
  if (jet) {  // Jet has no LIMIT; the lowest key is one row (NULL when there is none)
    nextSql = "SELECT MIN(" + key + ") FROM " + t + " WHERE " + wherePrefix + key + " > ?1;";
    firstSql =
        "SELECT MIN(" + key + ") FROM " + t + (q.where.empty() ? "" : " WHERE " + q.where) + ";";
  } else {
    nextSql = "SELECT " + key + " FROM " + t + " WHERE " + wherePrefix + key + " > ?1 ORDER BY " +
              key + " LIMIT 1;";
    firstSql = "SELECT " + key + " FROM " + t + (q.where.empty() ? "" : " WHERE " + q.where) +
               " ORDER BY " + key + " LIMIT 1;";
  }
  holdsSql = "SELECT 1 FROM " + t + " WHERE " + wherePrefix + key + " = ?1;";
  if (!q.orderBy.empty())
    orderSql = "SELECT " + key + " FROM " + t + (q.where.empty() ? "" : " WHERE " + q.where) +
               " ORDER BY " + q.orderBy + ", " + key + ";";
}

namespace {
// Every row of a statement, sorted by its ORDER BY clause the way finds compare text: by the
// engine's collation, or here when the engine has none (the statement then reads its sort keys
// as extra columns after its own). With `columns`, the columns' descriptions too.
std::vector<std::vector<Stored>> readOrdered(Database& db, const std::string& sql,
                                             std::vector<ColumnInfo>* columns = nullptr) {
  OrderBy order;
  std::string run = sql;
  if (db.engine().collatesText()) {
    run = withTextOrder(sql);
  } else {
    order = splitOrderBy(sql);
    if (!order.terms.empty()) {
      size_t from = findKeyword(order.body, "FROM");
      std::string keys;
      for (size_t k = 0; k < order.terms.size(); ++k)
        keys += ", " + order.terms[k].expression + " AS dossync_order_" + std::to_string(k);
      run = order.body.substr(0, from) + keys + " " + order.body.substr(from) + ";";
    }
  }
  Statement st(db, run);
  size_t all = static_cast<size_t>(st.columnCount());
  size_t width = all - order.terms.size();
  if (columns) {
    for (size_t i = 0; i < width; ++i) {
      int c = static_cast<int>(i);
      columns->push_back(describeColumn(st.columnName(c), st.columnDeclType(c)));
    }
  }
  std::vector<std::vector<Stored>> rows;
  while (st.step()) {
    std::vector<Stored> row;
    row.reserve(all);
    for (size_t i = 0; i < all; ++i) row.push_back(st.column(static_cast<int>(i)));
    rows.push_back(std::move(row));
  }
  if (order.terms.empty()) return rows;
  std::stable_sort(rows.begin(), rows.end(), [&](const auto& x, const auto& y) {
    for (size_t k = 0; k < order.terms.size(); ++k) {
      int d = compareStored(x[width + k], y[width + k]);
      if (d != 0) return order.terms[k].descending ? d > 0 : d < 0;
    }
    return false;
  });
  for (auto& row : rows) row.resize(width);
  return rows;
}
}  // namespace

TableRecordset::TableRecordset(Database& db, std::shared_ptr<CursorShape> shape, bool readOnly)
    : db_(db), shape_(std::move(shape)), table_(*shape_->table), readOnly_(readOnly) {
  if (!shape_->orderSql.empty()) {
    ordered_ = true;
    for (auto& row : readOrdered(db, shape_->orderSql))
      order_.push_back(row[0].type == Stored::Int ? row[0].i : 0);
    index_ = 0;
    moveTo(order_.empty() ? std::nullopt : std::optional<int64_t>(order_[0]));
  }
}

void TableRecordset::moveTo(std::optional<int64_t> rowid) const {
  positioned_ = true;
  cacheValid_ = false;
  if (rowid) {
    state_ = State::Row;
    rowid_ = *rowid;
  } else {
    state_ = State::End;
  }
}

void TableRecordset::moveAfter(std::optional<int64_t> rowid) const {
  // Inside a snapshot a walk reads the next row's wanted columns with its key: one statement.
  const bool withColumns = rowid && !shape_->nextWantedSql.empty() && db_.memo();
  StatementUse st(db_.cached(withColumns ? shape_->nextWantedSql
                             : rowid     ? shape_->nextSql
                                         : shape_->firstSql));
  if (rowid) st->bind(1, *rowid);
  bool found = st->step() && st->column(0).type != Stored::Null;
  std::optional<int64_t> next = found ? std::optional<int64_t>(st->columnInt(0)) : std::nullopt;
  if (next && withColumns) remember(*next, *st, 1);
  moveTo(next);
}

void TableRecordset::moveNext() {
  position();
  if (state_ == State::Pending) {  // a pending new row is dropped, as a move cancels it
    state_ = stateBeforeAdd_;
    rowid_ = rowidBeforeAdd_;
    pending_.clear();
  }
  if (state_ == State::End)
    throw RuntimeError(kNoCurrentRecord,
                       "Either BOF or EOF is True: no row after the last one of " + table_.name);
  if (ordered_) {
    ++index_;
    moveTo(index_ < order_.size() ? std::optional<int64_t>(order_[index_]) : std::nullopt);
  } else {
    moveAfter(rowid_);
  }
}

const ColumnInfo& TableRecordset::column(const std::string& field) const {
  int i = table_.find(field);
  if (i < 0)
    throw RuntimeError(kItemNotFound, "Item cannot be found in the collection: table " +
                                          table_.name + " has no field '" + field + "'");
  return table_.columns[static_cast<size_t>(i)];
}

void TableRecordset::requireWritable() const {
  if (readOnly_)
    throw RuntimeError(kNotUpdatable, "Current Recordset does not support updating: " +
                                          table_.name + " was opened read-only");
}

void TableRecordset::requireRow() const {
  position();
  if (state_ != State::Row)
    throw RuntimeError(kNoCurrentRecord, "Either BOF or EOF is True, or the current record of " +
                                             table_.name + " has been deleted");
}

// A field that holds the value already is left alone: nothing to write, nothing to commit.
const std::string& CursorShape::update(int column) {
  if (updateSql.empty()) updateSql.resize(table->columns.size());
  std::string& sql = updateSql[static_cast<size_t>(column)];
  if (sql.empty()) {
    const ColumnInfo& info = table->columns[static_cast<size_t>(column)];
    std::string c = quoteIdentifier(info.name);
    sql = "UPDATE " + quoteIdentifier(table->name) + " SET " + c + " = ?1 WHERE " + table->rowKey +
          " = ?2" + (jet ? "" : " AND " + differs(c, info.kind, 1)) + ";";
  }
  return sql;
}

void CursorShape::want(int column) {
  if (isWanted.empty()) isWanted.assign(table->columns.size(), false);
  if (isWanted[static_cast<size_t>(column)]) return;
  isWanted[static_cast<size_t>(column)] = true;
  wanted.push_back(column);
  wantedSql = "SELECT ";
  for (size_t k = 0; k < wanted.size(); ++k) {
    if (k > 0) wantedSql += ", ";
    wantedSql += quoteIdentifier(table->columns[static_cast<size_t>(wanted[k])].name);
  }
  std::string from = " FROM " + quoteIdentifier(table->name) + " WHERE ";
  std::string columns = wantedSql.substr(7);
  wantedSql += from + table->rowKey + " = ?1;";
  holdsWantedSql = "SELECT " + columns + from + wherePrefix + table->rowKey + " = ?1;";
  if (!jet)
    nextWantedSql = "SELECT " + table->rowKey + ", " + columns + from + wherePrefix +
                    table->rowKey + " > ?1 ORDER BY " + table->rowKey + " LIMIT 1;";
}

// The current row's column, read (with every other column this query reads) unless the row
// already holds it: this recordset's own copy, or one read in the same snapshot.
void TableRecordset::loadColumn(size_t column) {
  if (!cacheValid_) {
    row_ = nullptr;
    if (auto* memo = db_.memo()) {
      auto table = memo->rows.find(&table_);
      if (table != memo->rows.end()) {
        auto it = table->second.find(rowid_);
        if (it != table->second.end()) row_ = it->second;
      }
    }
    if (!row_) row_ = std::make_shared<Database::LoadedRow>();
    cacheValid_ = true;
  }
  if (row_->find(column)) return;
  shape_->want(static_cast<int>(column));
  {
    StatementUse st(db_.cached(shape_->wantedSql));
    st->bind(1, rowid_);
    if (!st->step()) {
      cacheValid_ = false;
      throw RuntimeError(kNoCurrentRecord,
                         "The current record of " + table_.name + " has been deleted");
    }
    row_->take(shape_->wanted, [&](int k) { return st->column(k); });
  }
  if (auto* memo = db_.memo()) memo->rows[&table_].emplace(rowid_, row_);
}

std::string TableRecordset::read(const std::string& field) {
  const ColumnInfo& c = column(field);
  size_t i = static_cast<size_t>(&c - table_.columns.data());
  if (state_ == State::Pending) {
    if (c.autoKey) {
      // The new row's number, reserved the first time it is asked for (else the insert draws it).
      if (reservedKey_ == 0) reservedKey_ = db_.reserveKey(table_);
      return std::to_string(reservedKey_);
    }
    if (!pending_[i]) pending_[i] = db_.defaultValue(table_, static_cast<int>(i));
    return fromStored(c, *pending_[i]);
  }
  requireRow();
  loadColumn(i);
  return fromStored(c, *row_->find(i));
}

void TableRecordset::write(const std::string& field, const std::string& value) {
  if (state_ == State::Pending) return setNew(field, value);
  requireWritable();
  const ColumnInfo& c = column(field);
  requireRow();
  if (c.autoKey)
    throw RuntimeError(kFieldNotUpdatable, "Field cannot be updated: " + table_.name + "." +
                                               c.name + " is the auto-number key");
  Stored v = toStored(table_.name, c, value);
  int i = static_cast<int>(&c - table_.columns.data());
  // Jet cannot tell in its statement whether the field holds the value already: the value read
  // tells, when the row was read.
  if (shape_->jet && cacheValid_ && row_) {
    const Stored* held = row_->find(static_cast<size_t>(i));
    if (held && sameStored(*held, v)) return;
  }
  cacheValid_ = false;
  if (db_.groupsWrites()) {  // joined with the row's next writes into one UPDATE
    db_.indexUpdate(table_, i, rowid_, v);
    db_.deferUpdate(table_, i, rowid_, std::move(v));
    return;
  }
  StatementUse st(db_.cached(shape_->update(i)));
  st->bind(1, v, c.kind);
  st->bind(2, rowid_);
  st->step();
  db_.indexUpdate(table_, i, rowid_, v);
}

void TableRecordset::addNew() {
  requireWritable();
  position();
  if (state_ != State::Pending) {
    stateBeforeAdd_ = state_;
    rowidBeforeAdd_ = rowid_;
  }
  state_ = State::Pending;
  pending_.assign(table_.columns.size(), std::nullopt);
  reservedKey_ = 0;
}

void TableRecordset::setNew(const std::string& field, const std::string& value) {
  if (state_ != State::Pending) return write(field, value);
  const ColumnInfo& c = column(field);
  if (c.autoKey)
    throw RuntimeError(kFieldNotUpdatable, "Field cannot be updated: " + table_.name + "." +
                                               c.name + " is the auto-number key");
  pending_[static_cast<size_t>(&c - table_.columns.data())] = toStored(table_.name, c, value);
}

namespace {

// Inserts a row of the table: the columns given (nullopt: left to the database's default; a
// Yes/No column without one is False rather than Null, as the host's engine has it). The
// statement is answered after its run, for the engine to tell the new row's key.
// `shape`, when given, keeps the statement's text for the next row that names the same columns.
Statement& insertRow(Database& db, const TableInfo& table,
                     const std::vector<std::optional<Stored>>& row, CursorShape* shape = nullptr) {
  static const Stored kFalse{Stored::Int, 0, 0, {}};
  std::vector<std::pair<const Stored*, ColumnKind>> values;
  std::vector<bool> named(table.columns.size(), false);
  for (size_t i = 0; i < table.columns.size(); ++i) {
    const ColumnInfo& c = table.columns[i];
    const Stored* v = row[i] ? &*row[i] : nullptr;
    if (!v && c.kind == ColumnKind::Boolean && c.notNull && c.defaultSql.empty()) v = &kFalse;
    if (!v) continue;
    named[i] = true;
    values.emplace_back(v, c.kind);
  }
  auto bindAndRun = [&](Statement& st) -> Statement& {
    try {
      for (size_t i = 0; i < values.size(); ++i)
        st.bind(static_cast<int>(i + 1), *values[i].first, values[i].second);
      st.step();
    } catch (...) {
      st.reset();
      throw;
    }
    return st;
  };
  if (shape && shape->table.get() == &table && !shape->insertSql.empty() &&
      shape->insertColumns == named)
    return bindAndRun(db.cached(shape->insertSql));
  std::string cols, params;
  for (size_t i = 0, n = 0; i < table.columns.size(); ++i) {
    if (!named[i]) continue;
    if (!cols.empty()) cols += ", ", params += ", ";
    cols += quoteIdentifier(table.columns[i].name);
    params += "?" + std::to_string(++n);
  }
  if (cols.empty() && db.engine().jetSql()) {
    // Jet has no DEFAULT VALUES: a column the database numbers or defaults itself is named Null.
    for (const ColumnInfo& c : table.columns) {
      if (c.autoKey) continue;
      cols = quoteIdentifier(c.name);
      params = "NULL";
      break;
    }
  }
  std::string sql = "INSERT INTO " + quoteIdentifier(table.name) +
                    (cols.empty() ? " DEFAULT VALUES" : " (" + cols + ") VALUES (" + params + ")") +
                    db.engine().insertSuffix(table) + ";";
  if (shape) {
    shape->insertColumns = std::move(named);
    shape->insertSql = sql;
  }
  return bindAndRun(db.cached(sql));
}

}  // namespace

void TableRecordset::saveNew() {
  if (state_ != State::Pending)
    throw RuntimeError(kNoCurrentRecord, "No new row of " + table_.name + " to save");
  // Once a number of this table was handed out ahead, every new row takes the next one that
  // way, so a row the database would number cannot take a number promised to another.
  bool numbered =
      table_.keyColumn >= 0 && table_.columns[static_cast<size_t>(table_.keyColumn)].autoKey;
  if (numbered && reservedKey_ == 0 &&
      (db_.hasReservedKeys(table_) || db_.engine().reservesEveryKey()))
    reservedKey_ = db_.reserveKey(table_);
  std::vector<std::optional<Stored>> row = pending_;
  if (numbered && reservedKey_ != 0)
    row[static_cast<size_t>(table_.keyColumn)] = Stored{Stored::Int, reservedKey_, 0, {}};
  int64_t rowid = reservedKey_;
  {
    Statement& st = insertRow(db_, table_, row, shape_.get());
    StatementUse use(st);
    if (rowid == 0) rowid = db_.engine().insertedKey(st.engineStatement());
  }
  db_.indexInsert(table_, rowid, &row);
  pending_.clear();
  if (ordered_) {
    order_.push_back(rowid);
    index_ = order_.size() - 1;
    if (!position_.empty()) position_[rowid] = index_;
  }
  moveTo(rowid);
}

bool TableRecordset::rowHolds(int64_t rowid) {
  // With snapshot reads on, the check's statement begins a snapshot when none is open (a
  // look-up's recordset is often the first of its procedure), so it reads the row for the memo.
  auto* open = db_.memo();
  if (open && shape_->wherePrefix.empty()) {
    // A row read in this snapshot exists still: a delete ends what the memo holds.
    auto table = open->rows.find(&table_);
    if (table != open->rows.end() && table->second.count(rowid)) return true;
  }
  bool snapshot = open != nullptr || db_.snapshotReads();
  if (!snapshot || shape_->wanted.empty()) {
    StatementUse st(db_.cached(shape_->holdsSql));
    st->bind(1, rowid);
    return st->step();
  }
  // Inside a snapshot the row found is read next: the check reads what its readers want of it
  // (one statement where a server answers each in a round trip).
  StatementUse st(db_.cached(shape_->holdsWantedSql));
  st->bind(1, rowid);
  if (!st->step()) return false;
  remember(rowid, *st, 0);
  return true;
}

void TableRecordset::remember(int64_t rowid, const Statement& st, int first) const {
  auto* memo = db_.memo();  // the statement may have begun a snapshot anew
  if (!memo) return;
  Database::SnapshotMemo::Row& row = memo->rows[&table_][rowid];
  if (!row) row = std::make_shared<Database::LoadedRow>();
  row->take(shape_->wanted, [&](int k) { return st.column(first + k); });
}

// Finds look rows up in the column's in-process index (the key column is the rowid itself),
// then keep those this cursor shows: for an ordered cursor its list of rows, otherwise the rows
// that meet its WHERE clause.
std::optional<int64_t> TableRecordset::findFrom(bool next) {
  std::set<int64_t> single;
  const std::set<int64_t>* candidates = nullptr;
  if (findColumn_ == table_.keyColumn) {
    int64_t id = 0;
    const char* end = findKey_.data() + findKey_.size();
    auto [p, ec] = std::from_chars(findKey_.data(), end, id);
    if (ec == std::errc() && p == end && std::to_string(id) == findKey_) single.insert(id);
    candidates = &single;
  } else {
    candidates = db_.columnIndex(table_, findColumn_).find(findKey_);
  }
  if (!candidates) return std::nullopt;
  if (!ordered_) {
    bool check = !shape_->wherePrefix.empty() || candidates == &single;
    auto it = next ? candidates->upper_bound(rowid_) : candidates->begin();
    for (; it != candidates->end(); ++it) {
      if (!check || rowHolds(*it)) return *it;
    }
    return std::nullopt;
  }
  if (position_.empty()) {
    for (size_t i = 0; i < order_.size(); ++i) position_.emplace(order_[i], i);
  }
  std::optional<size_t> best;
  size_t floor = next ? index_ + 1 : 0;
  for (int64_t rowid : *candidates) {
    auto it = position_.find(rowid);
    if (it != position_.end() && it->second >= floor && (!best || it->second < *best))
      best = it->second;
  }
  if (!best) return std::nullopt;
  index_ = *best;
  return order_[*best];
}

bool TableRecordset::findFirst(const std::string& field, const std::string& value) {
  if (state_ == State::Pending) {
    state_ = stateBeforeAdd_;
    pending_.clear();
  }
  findColumn_ = table_.find(field);
  if (findColumn_ < 0) {  // a field the table does not have matches no row
    moveTo(std::nullopt);
    return false;
  }
  findKey_ = findKey(table_.columns[static_cast<size_t>(findColumn_)], value);
  moveTo(findFrom(false));
  return state_ == State::Row;
}

void TableRecordset::findNext() {
  position();
  if (findColumn_ < 0 || state_ == State::End) {
    moveTo(std::nullopt);
    return;
  }
  moveTo(findFrom(true));
}

void TableRecordset::deleteCurrent() {
  requireWritable();
  requireRow();
  StatementUse st(db_.cached("DELETE FROM " + quoteIdentifier(table_.name) + " WHERE " +
                             table_.rowKey + " = ?1;"));
  st->bind(1, rowid_);
  st->step();
  db_.indexDelete(table_, rowid_);
  state_ = State::Deleted;
  cacheValid_ = false;
}

// ---- ResultRecordset

ResultRecordset::ResultRecordset(Database& db, const std::string& sql,
                                 std::shared_ptr<const TableInfo> table, bool readOnlyLock)
    : db_(&db), sql_(sql), table_(std::move(table)), writable_(table_ && !readOnlyLock) {
  rows_ = readOrdered(db, sql, &columns_);
  deleted_.assign(rows_.size(), false);
  if (table_) {
    for (const ColumnInfo& c : table_->columns) resultColumn_.push_back(column(c.name));
  }
}

void ResultRecordset::readOnly() const {
  throw RuntimeError(kNotUpdatable,
                     "Current Recordset does not support updating: \"" + sql_ + "\" is read-only");
}

int ResultRecordset::column(const std::string& field) const {
  for (size_t i = 0; i < columns_.size(); ++i) {
    if (value::equalsIgnoreCase(columns_[i].name, field)) return static_cast<int>(i);
  }
  return -1;
}

const ColumnInfo& ResultRecordset::tableColumn(const std::string& field) const {
  int i = table_->find(field);
  if (i < 0)
    throw RuntimeError(kItemNotFound, "Item cannot be found in the collection: table " +
                                          table_->name + " has no field '" + field + "'");
  return table_->columns[static_cast<size_t>(i)];
}

void ResultRecordset::requireRow() const {
  if (index_ >= rows_.size() || deleted_[index_])
    throw RuntimeError(kNoCurrentRecord, "Either BOF or EOF is True, or the current record of \"" +
                                             sql_ + "\" has been deleted");
}

void ResultRecordset::moveNext() {
  if (!pending_.empty()) {  // a pending new row is dropped, as a move cancels it
    pending_.clear();
  }
  if (isEOF())
    throw RuntimeError(kNoCurrentRecord, "Either BOF or EOF is True: no row after the last one");
  ++index_;
}

std::string ResultRecordset::read(const std::string& field) {
  if (!pending_.empty()) {
    const ColumnInfo& c = tableColumn(field);
    auto i = static_cast<size_t>(&c - table_->columns.data());
    if (c.autoKey) {
      if (reservedKey_ == 0) reservedKey_ = db_->reserveKey(*table_);
      return std::to_string(reservedKey_);
    }
    if (!pending_[i]) pending_[i] = db_->defaultValue(*table_, static_cast<int>(i));
    return fromStored(c, *pending_[i]);
  }
  int c = column(field);
  if (c < 0)
    throw RuntimeError(kItemNotFound, "Item cannot be found in the collection: no field '" + field +
                                          "' in \"" + sql_ + "\"");
  requireRow();
  return fromStored(columns_[static_cast<size_t>(c)], rows_[index_][static_cast<size_t>(c)]);
}

// The current row named by all its old values (a memo is left out: Jet compares only its start),
// its parameters numbered from `first`.
std::string ResultRecordset::namedRow(std::vector<std::pair<Stored, ColumnKind>>& values) {
  auto where = [&](int first, std::vector<std::pair<Stored, ColumnKind>>* out) {
    std::string sql;
    int n = first;
    for (size_t k = 0; k < table_->columns.size(); ++k) {
      const ColumnInfo& c = table_->columns[k];
      int r = resultColumn_[k];
      if (r < 0 || c.kind == ColumnKind::Memo) continue;
      const Stored& old = rows_[index_][static_cast<size_t>(r)];
      if (!sql.empty()) sql += " AND ";
      if (old.type == Stored::Null) {
        sql += quoteIdentifier(c.name) + " IS NULL";
      } else {
        sql += quoteIdentifier(c.name) + " = ?" + std::to_string(n++);
        if (out) out->emplace_back(old, c.kind);
      }
    }
    return sql;
  };
  std::vector<std::pair<Stored, ColumnKind>> own;
  std::string test = where(1, &own);
  if (test.empty()) readOnly();
  int64_t matches = 0;
  {
    StatementUse st(db_->cached("SELECT COUNT(*) FROM " + quoteIdentifier(table_->name) +
                                " WHERE " + test + ";"));
    for (size_t i = 0; i < own.size(); ++i)
      st->bind(static_cast<int>(i + 1), own[i].first, own[i].second);
    if (st->step()) matches = st->columnInt(0);
  }
  if (matches == 0)
    throw RuntimeError(kNoCurrentRecord, "The current record of " + table_->name +
                                             " was changed or deleted since it was read");
  if (matches > 1)
    throw RuntimeError(kNotUpdatable, "Cannot write the current record of " + table_->name + ": " +
                                          std::to_string(matches) +
                                          " rows hold the same values and the table has no key "
                                          "to tell them apart");
  std::string named = where(static_cast<int>(values.size() + 1), nullptr);
  values.insert(values.end(), own.begin(), own.end());
  return named;
}

void ResultRecordset::run(const std::string& sql,
                          const std::vector<std::pair<Stored, ColumnKind>>& values) {
  StatementUse st(db_->cached(sql));
  for (size_t i = 0; i < values.size(); ++i)
    st->bind(static_cast<int>(i + 1), values[i].first, values[i].second);
  st->step();
}

void ResultRecordset::write(const std::string& field, const std::string& value) {
  if (!pending_.empty()) return setNew(field, value);
  if (!writable_) readOnly();
  const ColumnInfo& c = tableColumn(field);
  requireRow();
  if (c.autoKey)
    throw RuntimeError(kFieldNotUpdatable, "Field cannot be updated: " + table_->name + "." +
                                               c.name + " is the auto-number key");
  int r = resultColumn_[static_cast<size_t>(&c - table_->columns.data())];
  if (r < 0) readOnly();
  Stored v = toStored(table_->name, c, value);
  Stored& old = rows_[index_][static_cast<size_t>(r)];
  if (sameStored(old, v)) return;
  std::vector<std::pair<Stored, ColumnKind>> values{{v, c.kind}};
  std::string where = namedRow(values);
  run("UPDATE " + quoteIdentifier(table_->name) + " SET " + quoteIdentifier(c.name) +
          " = ?1 WHERE " + where + ";",
      values);
  old = std::move(v);
  hash_.erase(r);
}

void ResultRecordset::deleteCurrent() {
  if (!writable_) readOnly();
  requireRow();
  std::vector<std::pair<Stored, ColumnKind>> values;
  std::string where = namedRow(values);
  run("DELETE FROM " + quoteIdentifier(table_->name) + " WHERE " + where + ";", values);
  deleted_[index_] = true;
}

void ResultRecordset::addNew() {
  if (!writable_) readOnly();
  pending_.assign(table_->columns.size(), std::nullopt);
  reservedKey_ = 0;
}

void ResultRecordset::setNew(const std::string& field, const std::string& value) {
  if (pending_.empty()) return write(field, value);
  const ColumnInfo& c = tableColumn(field);
  if (c.autoKey)
    throw RuntimeError(kFieldNotUpdatable, "Field cannot be updated: " + table_->name + "." +
                                               c.name + " is the auto-number key");
  pending_[static_cast<size_t>(&c - table_->columns.data())] = toStored(table_->name, c, value);
}

void ResultRecordset::saveNew() {
  if (pending_.empty())
    throw RuntimeError(kNoCurrentRecord, "No new row of \"" + sql_ + "\" to save");
  std::vector<std::optional<Stored>> row = pending_;
  int counter = table_->counterColumn();
  if (counter >= 0) {  // numbered here, so that the row read back holds its number
    if (reservedKey_ == 0) reservedKey_ = db_->reserveKey(*table_);
    row[static_cast<size_t>(counter)] = Stored{Stored::Int, reservedKey_, 0, {}};
  }
  StatementUse inserted(insertRow(*db_, *table_, row));
  // The new row joins the rows read, as the database stores it.
  std::vector<Stored> stored(columns_.size());
  for (size_t k = 0; k < table_->columns.size(); ++k) {
    int r = resultColumn_[k];
    if (r < 0) continue;
    const ColumnInfo& c = table_->columns[k];
    std::optional<Stored> v = row[k];
    if (!v) v = db_->defaultValue(*table_, static_cast<int>(k));
    if (v->type == Stored::Null && c.kind == ColumnKind::Boolean && c.notNull)
      v = Stored{Stored::Int, 0, 0, {}};
    stored[static_cast<size_t>(r)] = *v;
  }
  rows_.push_back(std::move(stored));
  deleted_.push_back(false);
  index_ = rows_.size() - 1;
  pending_.clear();
  hash_.clear();
}

std::optional<size_t> ResultRecordset::findFrom(size_t start) {
  auto& byValue = hash_[findColumn_];
  if (byValue.empty()) {
    const ColumnInfo& c = columns_[static_cast<size_t>(findColumn_)];
    for (size_t r = 0; r < rows_.size(); ++r) {
      if (auto key = findKey(c, rows_[r][static_cast<size_t>(findColumn_)]))
        byValue[*key].push_back(r);
    }
  }
  auto it = byValue.find(findValue_);
  if (it == byValue.end()) return std::nullopt;
  for (auto pos = std::lower_bound(it->second.begin(), it->second.end(), start);
       pos != it->second.end(); ++pos)
    if (!deleted_[*pos]) return *pos;
  return std::nullopt;
}

bool ResultRecordset::findFirst(const std::string& field, const std::string& value) {
  pending_.clear();
  findColumn_ = column(field);
  if (findColumn_ >= 0) findValue_ = findKey(columns_[static_cast<size_t>(findColumn_)], value);
  auto found = findColumn_ < 0 ? std::nullopt : findFrom(0);
  index_ = found ? *found : rows_.size();
  return found.has_value();
}

void ResultRecordset::findNext() {
  pending_.clear();
  if (findColumn_ < 0 || isEOF()) {
    index_ = rows_.size();
    return;
  }
  auto found = findFrom(index_ + 1);
  index_ = found ? *found : rows_.size();
}

}  // namespace dossync::sql
