#include "backends/sql/dialect.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "backends/sql/stored.h"
#include "backends/sql/tokenizer.h"
#include "base/value.h"

namespace dossync::sql {

size_t findKeyword(const std::string& s, const std::string& keyword, size_t from) {
  for (size_t i = from; i < s.size();) {
    Token t = tokenAt(s, i);
    if (t.kind == Token::Word && (i == 0 || !isWordChar(s[i - 1])) &&
        i + keyword.size() <= s.size() &&
        value::equalsIgnoreCase(std::string_view(s).substr(i, keyword.size()), keyword) &&
        (i + keyword.size() == s.size() || !isWordChar(s[i + keyword.size()])))
      return i;
    i += t.text.size();
  }
  return std::string::npos;
}

namespace {

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

namespace {

// SQL's own words: never taken for a name, whatever the database calls its tables.
bool isKeyword(std::string_view word) {
  static const std::set<std::string, std::less<>> words = {
      "ALL",    "AND",     "AS",     "ASC",    "BETWEEN",   "BY",     "CASE",   "COLLATE",
      "CREATE", "DEFAULT", "DELETE", "DESC",   "DISTINCT",  "ELSE",   "END",    "EXISTS",
      "FALSE",  "FROM",    "GROUP",  "HAVING", "IN",        "INDEX",  "INNER",  "INSERT",
      "INTO",   "IS",      "JOIN",   "LEFT",   "LIKE",      "LIMIT",  "NOT",    "NULL",
      "ON",     "OR",      "ORDER",  "OUTER",  "RETURNING", "RIGHT",  "SELECT", "SET",
      "TABLE",  "THEN",    "TRUE",   "UNION",  "UNIQUE",    "UPDATE", "VALUES", "VIEW",
      "WHEN",   "WHERE"};
  return words.count(value::upper(word)) > 0;
}

// The functions statements of ours call: before "(", these are not names even where a table
// or column is called so ("INSERT INTO T (...)" names a table).
bool isFunction(std::string_view word) {
  static const std::set<std::string, std::less<>> words = {
      "ABS", "AVG", "COALESCE", "COUNT", "LENGTH", "LOWER", "MAX", "MIN", "NULLIF", "SUM", "UPPER"};
  return words.count(value::upper(word)) > 0;
}

// Splits at commas outside quotes and parentheses.
std::vector<std::string> splitList(const std::string& s) {
  std::vector<std::string> items;
  int depth = 0;
  size_t start = 0;
  for (const Token& t : tokenize(s)) {
    if (t.is("(")) {
      ++depth;
    } else if (t.is(")")) {
      --depth;
    } else if (t.is(",") && depth == 0) {
      items.push_back(value::trim(s.substr(start, t.offset - start)));
      start = t.offset + 1;
    }
  }
  items.push_back(value::trim(s.substr(start)));
  return items;
}

}  // namespace

OrderBy splitOrderBy(const std::string& sql) {
  OrderBy out;
  size_t order = std::string::npos;
  for (size_t at = findKeyword(sql, "ORDER BY"); at != std::string::npos;
       at = findKeyword(sql, "ORDER BY", at + 1))
    order = at;
  size_t end = sql.find_last_not_of("; \t\r\n");
  end = end == std::string::npos ? 0 : end + 1;
  if (order == std::string::npos) {
    out.body = sql.substr(0, end);
    return out;
  }
  out.body = value::trim(sql.substr(0, order));
  for (std::string term : splitList(sql.substr(order + 8, end > order + 8 ? end - order - 8 : 0))) {
    OrderBy::Term t;
    for (const char* word : {"ASC", "DESC"}) {
      size_t at = findKeyword(term, word);
      if (at != std::string::npos && at + std::char_traits<char>::length(word) == term.size()) {
        t.descending = word[0] == 'D';
        term = value::trim(term.substr(0, at));
      }
    }
    t.expression = term;
    out.terms.push_back(std::move(t));
  }
  return out;
}

std::string withTextOrder(const std::string& sql) {
  OrderBy order = splitOrderBy(sql);
  if (order.terms.empty()) return sql;
  std::string out = order.body + " ORDER BY";
  for (size_t k = 0; k < order.terms.size(); ++k) {
    std::string term = order.terms[k].expression;
    if (findKeyword(term, "COLLATE") == std::string::npos) term += " COLLATE dossync_text";
    out += (k == 0 ? " " : ", ") + term + (order.terms[k].descending ? " DESC" : "");
  }
  return out + ";";
}

std::string differs(const std::string& quotedColumn, ColumnKind kind, int parameter) {
  std::string test = quotedColumn + " IS NOT ?" + std::to_string(parameter);
  return kind == ColumnKind::Text || kind == ColumnKind::Memo ? test + " COLLATE BINARY" : test;
}

std::string jetRejects(const std::string& sql) {
  std::vector<Token> tokens;
  for (const Token& t : tokenize(sql))
    if (!t.blank()) tokens.push_back(t);
  auto at = [&](size_t k, std::string_view text) {
    return k < tokens.size() && tokens[k].is(text);
  };
  for (size_t k = 0; k < tokens.size(); ++k) {
    const Token& t = tokens[k];
    if (t.kind == Token::Name && t.is("\"")) return "a double-quoted name";
    if (t.kind == Token::Parameter && t.text.size() > 1) return "a numbered parameter";
    if (t.is("|") && at(k + 1, "|")) return "||";
    if (t.kind != Token::Word) continue;
    if (t.is("IS") && (k + 1 < tokens.size() && tokens[k + 1].kind == Token::Parameter))
      return "IS ?";
    if (t.is("IS") && at(k + 1, "NOT") && k + 2 < tokens.size() &&
        tokens[k + 2].kind == Token::Parameter)
      return "IS NOT ?";
    if (t.is("DEFAULT") && at(k + 1, "VALUES")) return "DEFAULT VALUES";
    if (t.is("INSERT") && at(k + 1, "INTO") && k + 3 < tokens.size() && !tokens[k + 3].is("(") &&
        !tokens[k + 3].is("SELECT") && !tokens[k + 3].is("DEFAULT"))
      return "an INSERT without its column list";
    for (const char* word : {"LIMIT", "OFFSET", "COLLATE", "RETURNING", "SAVEPOINT", "RELEASE",
                             "COALESCE", "IFNULL", "ROWID", "PRAGMA"})
      if (t.is(word)) return word;
  }
  return "";
}

namespace {

// toPostgres; without `calls`, every word before "(" is a name (CREATE INDEX i ON t(c)).
std::string translate(const std::string& sql,
                      const std::function<const std::string*(std::string_view)>& spelling,
                      bool calls) {
  std::string out;
  out.reserve(sql.size() + 32);
  auto name = [&](std::string_view word) {
    const std::string* spelt = spelling(word);
    out += quoteIdentifier(spelt ? *spelt : std::string(word));
  };
  std::vector<Token> tokens = tokenize(sql);
  auto solid = [&](size_t k) {  // the first token from k on that is not blank
    while (k < tokens.size() && tokens[k].kind == Token::Space) ++k;
    return k < tokens.size() ? k : std::string::npos;
  };
  auto is = [&](size_t k, std::string_view text) {
    return k != std::string::npos && tokens[k].is(text);
  };
  for (size_t k = 0; k < tokens.size(); ++k) {
    const Token& t = tokens[k];
    if (t.kind == Token::Name) {
      name(t.name());
    } else if (t.kind == Token::Parameter && t.text.size() > 1) {
      out += "$";
      out += t.text.substr(1);
    } else if (t.kind == Token::Word) {
      size_t next = solid(k + 1);
      if (t.is("IS") && is(next, "NOT")) {
        size_t parameter = solid(next + 1);
        if (parameter != std::string::npos && tokens[parameter].kind == Token::Parameter) {
          // SQLite's null-safe "differs from"
          out += "IS DISTINCT FROM $";
          out += tokens[parameter].text.substr(1);
          k = parameter;
          size_t collate = solid(parameter + 1);
          size_t binary = is(collate, "COLLATE") ? solid(collate + 1) : std::string::npos;
          if (is(binary, "BINARY")) {
            out += "::text COLLATE \"C\"";
            k = binary;
          }
          continue;
        }
      }
      bool call = calls && is(next, "(") && isFunction(t.text);
      if (isKeyword(t.text) || call || (!out.empty() && out.back() == ':')) {  // or a cast's type
        out += t.text;
      } else if (spelling(t.text)) {
        name(t.text);
      } else {
        out += t.text;
      }
    } else {
      out += t.text;
    }
  }
  return out;
}

// Every name of a DDL statement quoted as written, SQL's words left alone.
std::string quoteNames(const std::string& ddl) {
  std::string spelt;
  return translate(
      ddl,
      [&](std::string_view word) -> const std::string* {
        spelt = std::string(word);
        return &spelt;
      },
      false);
}

}  // namespace

std::string toPostgres(const std::string& sql,
                       const std::function<const std::string*(std::string_view)>& spelling) {
  return translate(sql, spelling, true);
}

namespace {

std::string postgresTable(const std::string& statement) {
  size_t open = statement.find('(');
  size_t close = statement.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open)
    return quoteNames(statement);
  std::string head = statement.substr(0, open);
  std::vector<std::string> columns;
  bool keyed = false;
  for (std::string def : splitList(statement.substr(open + 1, close - open - 1))) {
    if (def.empty()) continue;
    size_t blank = def.find_first_of(" \t\r\n");
    std::string name = def.substr(0, blank);
    std::string type = blank == std::string::npos ? "" : value::trim(def.substr(blank));
    std::string up = value::upper(type);
    auto drop = [&](const std::string& words) {
      size_t at = findKeyword(up, words);
      if (at == std::string::npos) return false;
      type.erase(at, words.size());
      up.erase(at, words.size());
      return true;
    };
    drop("COLLATE NOCASE");
    bool autoNumber = drop("AUTOINCREMENT");
    bool key = findKeyword(up, "PRIMARY KEY") != std::string::npos;
    if (key && findKeyword(up, "INTEGER") == 0) {
      keyed = true;
      if (autoNumber) type = "INTEGER GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY";
    }
    if (findKeyword(up, "DATETIME") == 0) type = "TIMESTAMP" + type.substr(8);
    if (findKeyword(up, "REAL") == 0) type = "DOUBLE PRECISION" + type.substr(4);
    if (findKeyword(up, "BOOLEAN") == 0) {
      for (auto [from, to] :
           {std::pair{"DEFAULT 0", "DEFAULT FALSE"}, {"DEFAULT 1", "DEFAULT TRUE"}}) {
        size_t at = findKeyword(value::upper(type), from);
        if (at != std::string::npos) type.replace(at, std::char_traits<char>::length(from), to);
      }
    }
    columns.push_back(quoteIdentifier(name) + " " + value::trim(type));
  }
  if (!keyed) columns.push_back("\"rowid\" BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY");
  std::string out = quoteNames(head) + "(\n";
  for (size_t k = 0; k < columns.size(); ++k)
    out += "  " + columns[k] + (k + 1 < columns.size() ? ",\n" : "\n");
  return out + ")" + statement.substr(close + 1);
}

}  // namespace

std::string postgresSchema(const std::string& sqliteSchema) {
  // Statements without their comments, split at the semicolons between them.
  std::string text;
  for (const Token& t : tokenize(sqliteSchema))
    if (t.kind != Token::Comment) text += t.text;
  std::string out;
  for (const std::string& statement : splitStatements(text)) {
    bool table = findKeyword(statement, "CREATE TABLE") == 0;
    out += (table ? postgresTable(statement) : quoteNames(statement)) + ";\n";
  }
  return out;
}

}  // namespace dossync::sql
