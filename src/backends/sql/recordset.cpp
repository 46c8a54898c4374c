#include "backends/sqlite/recordset.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <set>

#include "core/value.h"

namespace dossync::sqlite {
namespace {

bool isWordChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// Position of a keyword (upper case, surrounded by blanks) outside quotes, or npos.
size_t findKeyword(const std::string& s, const std::string& keyword, size_t from = 0) {
  char quote = 0;
  for (size_t i = from; i < s.size(); ++i) {
    char c = s[i];
    if (quote) {
      if (c == quote) quote = 0;
      continue;
    }
    if (c == '\'' || c == '"') {
      quote = c;
      continue;
    }
    if ((i == 0 || !isWordChar(s[i - 1])) && i + keyword.size() <= s.size() &&
        value::equalsIgnoreCase(std::string_view(s).substr(i, keyword.size()), keyword) &&
        (i + keyword.size() == s.size() || !isWordChar(s[i + keyword.size()])))
      return i;
  }
  return std::string::npos;
}

std::string identifier(std::string text) {
  text = value::trim(text);
  if (text.size() >= 2 &&
      ((text.front() == '[' && text.back() == ']') || (text.front() == '"' && text.back() == '"')))
    text = text.substr(1, text.size() - 2);
  return text;
}

bool isIdentifier(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isWordChar);
}

}  // namespace

std::optional<TableQuery> parseTableQuery(const std::string& statement) {
  std::string sql = value::trim(statement);
  while (!sql.empty() && (sql.back() == ';' || sql.back() == ' ')) sql.pop_back();
  if (findKeyword(sql, "SELECT") != 0) return std::nullopt;
  size_t from = findKeyword(sql, "FROM");
  if (from == std::string::npos) return std::nullopt;
  std::string list = sql.substr(6, from - 6);
  std::string rest = sql.substr(from + 4);
  size_t where = findKeyword(rest, "WHERE");
  size_t order = findKeyword(rest, "ORDER BY");
  size_t tableEnd = std::min(where, order);
  TableQuery q;
  q.table = identifier(rest.substr(0, tableEnd == std::string::npos ? rest.size() : tableEnd));
  if (!isIdentifier(q.table)) return std::nullopt;  // joins, lists of tables, sub-queries
  if (where != std::string::npos) {
    size_t end = order != std::string::npos && order > where ? order : rest.size();
    q.where = value::trim(rest.substr(where + 5, end - where - 5));
  }
  if (order != std::string::npos) q.orderBy = value::trim(rest.substr(order + 8));
  // Every item of the select list must be T.* or T.column (the first one T.*).
  size_t start = 0;
  bool first = true;
  while (start <= list.size()) {
    size_t comma = list.find(',', start);
    std::string item = value::trim(
        list.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
    size_t dot = item.find('.');
    if (dot == std::string::npos) {
      if (!(first && item == "*")) return std::nullopt;
    } else {
      if (!value::equalsIgnoreCase(identifier(item.substr(0, dot)), q.table)) return std::nullopt;
      std::string col = identifier(item.substr(dot + 1));
      if (first ? col != "*" : !isIdentifier(col)) return std::nullopt;
    }
    first = false;
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return q;
}

std::string withTextOrder(const std::string& sql) {
  size_t order = std::string::npos;
  for (size_t at = findKeyword(sql, "ORDER BY"); at != std::string::npos;
       at = findKeyword(sql, "ORDER BY", at + 1))
    order = at;
  if (order == std::string::npos) return sql;
  size_t start = order + 8;
  size_t end = sql.find_last_not_of("; \t\r\n");
  end = end == std::string::npos || end < start ? start : end + 1;
  // The terms, split at commas outside quotes and parentheses.
  std::vector<std::string> terms;
  int depth = 0;
  char quote = 0;
  size_t termStart = start;
  for (size_t i = start; i <= end; ++i) {
    char c = i < end ? sql[i] : ',';
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"' || c == '[') {
      quote = c == '[' ? ']' : c;
    } else if (c == '(') {
      ++depth;
    } else if (c == ')') {
      --depth;
    } else if (c == ',' && depth == 0) {
      terms.push_back(value::trim(sql.substr(termStart, i - termStart)));
      termStart = i + 1;
    }
  }
  std::string out = sql.substr(0, start);
  for (size_t k = 0; k < terms.size(); ++k) {
    std::string term = terms[k];
    std::string direction;
    for (const char* word : {"ASC", "DESC"}) {
      size_t at = findKeyword(term, word);
      if (at != std::string::npos && at + std::char_traits<char>::length(word) == term.size()) {
        direction = " " + term.substr(at);
        term = value::trim(term.substr(0, at));
      }
    }
    if (findKeyword(term, "COLLATE") == std::string::npos) term += " COLLATE dossync_text";
    out += (k == 0 ? " " : ", ") + term + direction;
  }
  return out + sql.substr(end);
}

// ---- TableRecordset

CursorShape::CursorShape(std::shared_ptr<const TableInfo> info, const TableQuery& q)
    : table(std::move(info)) {
  std::string t = quoteIdentifier(table->name);
  wherePrefix = q.where.empty() ? "" : "(" + q.where + ") AND ";
  nextSql =
      "SELECT rowid FROM " + t + " WHERE " + wherePrefix + "rowid > ?1 ORDER BY rowid LIMIT 1;";
  holdsSql = "SELECT 1 FROM " + t + " WHERE " + wherePrefix + "rowid = ?1;";
  if (!q.orderBy.empty())
    orderSql =
        withTextOrder("SELECT rowid FROM " + t + (q.where.empty() ? "" : " WHERE " + q.where) +
                      " ORDER BY " + q.orderBy + ", rowid;");
}

TableRecordset::TableRecordset(Database& db, std::shared_ptr<CursorShape> shape, bool readOnly)
    : db_(db), shape_(std::move(shape)), table_(*shape_->table), readOnly_(readOnly) {
  if (!shape_->orderSql.empty()) {
    ordered_ = true;
    Statement st(db, shape_->orderSql);
    while (st.step()) order_.push_back(st.columnInt(0));
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

void TableRecordset::moveAfter(int64_t rowid) const {
  StatementUse st(db_.cached(shape_->nextSql));
  st->bind(1, rowid);
  moveTo(st->step() ? std::optional<int64_t>(st->columnInt(0)) : std::nullopt);
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
    std::string c = quoteIdentifier(table->columns[static_cast<size_t>(column)].name);
    sql = "UPDATE " + quoteIdentifier(table->name) + " SET " + c + " = ?1 WHERE rowid = ?2 AND " +
          c + " IS NOT ?1;";
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
  wantedSql += " FROM " + quoteIdentifier(table->name) + " WHERE rowid = ?1;";
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
    if (!row_) {
      row_ = std::make_shared<Database::LoadedRow>();
      row_->values.resize(table_.columns.size());
      row_->loaded.assign(table_.columns.size(), false);
    }
    cacheValid_ = true;
  }
  if (row_->loaded[column]) return;
  shape_->want(static_cast<int>(column));
  {
    StatementUse st(db_.cached(shape_->wantedSql));
    st->bind(1, rowid_);
    if (!st->step()) {
      cacheValid_ = false;
      throw RuntimeError(kNoCurrentRecord,
                         "The current record of " + table_.name + " has been deleted");
    }
    for (size_t k = 0; k < shape_->wanted.size(); ++k) {
      auto c = static_cast<size_t>(shape_->wanted[k]);
      if (row_->loaded[c]) continue;
      row_->values[c] = st->column(static_cast<int>(k));
      row_->loaded[c] = true;
    }
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
  return fromStored(c, row_->values[i]);
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
  cacheValid_ = false;
  if (db_.groupsWrites()) {  // joined with the row's next writes into one UPDATE
    db_.indexUpdate(table_, i, rowid_, v);
    db_.deferUpdate(table_, i, rowid_, std::move(v));
    return;
  }
  StatementUse st(db_.cached(shape_->update(i)));
  st->bind(1, v);
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

void TableRecordset::saveNew() {
  if (state_ != State::Pending)
    throw RuntimeError(kNoCurrentRecord, "No new row of " + table_.name + " to save");
  // Once a number of this table was handed out ahead, every new row takes the next one that
  // way, so a row the database would number cannot take a number promised to another.
  bool numbered =
      table_.keyColumn >= 0 && table_.columns[static_cast<size_t>(table_.keyColumn)].autoKey;
  if (numbered && reservedKey_ == 0 && db_.hasReservedKeys(table_))
    reservedKey_ = db_.reserveKey(table_);
  std::string cols, params;
  std::vector<Stored> values;
  for (size_t i = 0; i < table_.columns.size(); ++i) {
    const ColumnInfo& c = table_.columns[i];
    std::optional<Stored> v = pending_[i];
    if (c.autoKey && reservedKey_ != 0) v = Stored{Stored::Int, reservedKey_, 0, {}};
    // A column left alone takes the database's default; a Yes/No column without one is False
    // rather than Null, as the host's engine has it.
    if (!v && c.kind == ColumnKind::Boolean && c.notNull && c.defaultSql.empty())
      v = Stored{Stored::Int, 0, 0, {}};
    if (!v) continue;
    if (!cols.empty()) cols += ", ", params += ", ";
    cols += quoteIdentifier(c.name);
    params += "?" + std::to_string(values.size() + 1);
    values.push_back(*v);
  }
  std::string sql =
      "INSERT INTO " + quoteIdentifier(table_.name) +
      (cols.empty() ? " DEFAULT VALUES;" : " (" + cols + ") VALUES (" + params + ");");
  {
    StatementUse st(db_.cached(sql));
    for (size_t i = 0; i < values.size(); ++i) st->bind(static_cast<int>(i + 1), values[i]);
    st->step();
  }
  int64_t rowid = reservedKey_ != 0 ? reservedKey_ : sqlite3_last_insert_rowid(db_.handle());
  db_.indexInsert(table_, rowid);
  pending_.clear();
  if (ordered_) {
    order_.push_back(rowid);
    index_ = order_.size() - 1;
    if (!position_.empty()) position_[rowid] = index_;
  }
  moveTo(rowid);
}

bool TableRecordset::rowHolds(int64_t rowid) {
  StatementUse st(db_.cached(shape_->holdsSql));
  st->bind(1, rowid);
  return st->step();
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
  StatementUse st(db_.cached("DELETE FROM " + quoteIdentifier(table_.name) + " WHERE rowid = ?1;"));
  st->bind(1, rowid_);
  st->step();
  db_.indexDelete(table_, rowid_);
  state_ = State::Deleted;
  cacheValid_ = false;
}

// ---- ResultRecordset

ResultRecordset::ResultRecordset(Database& db, const std::string& sql) : sql_(sql) {
  Statement st(db, withTextOrder(sql));
  int n = st.columnCount();
  for (int i = 0; i < n; ++i)
    columns_.push_back(describeColumn(st.columnName(i), st.columnDeclType(i)));
  while (st.step()) {
    std::vector<Stored> row;
    row.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) row.push_back(st.column(i));
    rows_.push_back(std::move(row));
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

void ResultRecordset::moveNext() {
  if (isEOF())
    throw RuntimeError(kNoCurrentRecord, "Either BOF or EOF is True: no row after the last one");
  ++index_;
}

std::string ResultRecordset::read(const std::string& field) {
  int c = column(field);
  if (c < 0)
    throw RuntimeError(kItemNotFound, "Item cannot be found in the collection: no field '" + field +
                                          "' in \"" + sql_ + "\"");
  if (isEOF()) throw RuntimeError(kNoCurrentRecord, "Either BOF or EOF is True");
  return fromStored(columns_[static_cast<size_t>(c)], rows_[index_][static_cast<size_t>(c)]);
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
  auto pos = std::lower_bound(it->second.begin(), it->second.end(), start);
  if (pos == it->second.end()) return std::nullopt;
  return *pos;
}

bool ResultRecordset::findFirst(const std::string& field, const std::string& value) {
  findColumn_ = column(field);
  if (findColumn_ >= 0) findValue_ = findKey(columns_[static_cast<size_t>(findColumn_)], value);
  auto found = findColumn_ < 0 ? std::nullopt : findFrom(0);
  index_ = found ? *found : rows_.size();
  return found.has_value();
}

void ResultRecordset::findNext() {
  if (findColumn_ < 0 || isEOF()) {
    index_ = rows_.size();
    return;
  }
  auto found = findFrom(index_ + 1);
  index_ = found ? *found : rows_.size();
}

}  // namespace dossync::sqlite
