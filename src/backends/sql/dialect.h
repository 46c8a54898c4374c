// The SQL the component sends is Jet's (nested INNER JOINs in parentheses, "= True",
// "SELECT T.* FROM T;", ORDER BY on names, names in any case): what the engines need said
// otherwise is translated here, in one place.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backends/sql/stored.h"

namespace dossync::sql {

// Position of a keyword (any case, standing alone) outside quotes, or npos.
size_t findKeyword(const std::string& s, const std::string& keyword, size_t from = 0);

// The parts of a single-table statement "SELECT T.*[, T.col] FROM T [WHERE c] [ORDER BY o]".
struct TableQuery {
  std::string table;
  std::string where;
  std::string orderBy;
};
// Answers the parts when the statement has that form.
std::optional<TableQuery> parseTableQuery(const std::string& sql);

// A statement's last ORDER BY clause taken apart: the statement without it, and its terms.
struct OrderBy {
  std::string body;  // the statement before ORDER BY, without the closing ";"
  struct Term {
    std::string expression;
    bool descending = false;
  };
  std::vector<Term> terms;  // empty: no ORDER BY
};
OrderBy splitOrderBy(const std::string& sql);

// SQLite: the statement with each term of its ORDER BY clause (if any) sorting text by the
// comparison rule of finds (collation "dossync_text"): "apple Co" between "Acme" and "Beta".
std::string withTextOrder(const std::string& sql);

// The test "the column's value differs from parameter N" in the shared dialect: null-safe, and
// for text byte for byte ("IS NOT ?N COLLATE BINARY"), whatever the column's own collation
// (the host's name columns are COLLATE NOCASE): a change of case is a change.
std::string differs(const std::string& quotedColumn, ColumnKind kind, int parameter);

// What of a statement, as sent to the Access driver, Jet would refuse or read otherwise: "" when
// nothing, else the construct ("LIMIT", "IS NOT ?", "DEFAULT VALUES", "a double-quoted name",
// "||", "COLLATE", "a numbered parameter", ...). Jet has no LIMIT/OFFSET (TOP instead), no
// null-safe comparison with a parameter, no DEFAULT VALUES, reads "x" as text not as a name,
// joins text with &, has no collations, no RETURNING, no savepoints, and neither COALESCE nor
// IFNULL; rowid and PRAGMA are SQLite's.
std::string jetRejects(const std::string& sql);

// PostgreSQL: names are respelled as the database spells them and quoted (Jet's names match
// in any case, PostgreSQL's quoted ones only in theirs; `spelling` answers the database's
// spelling of a table or column name, nullptr for a word that is neither), [names] quoted,
// "?N" parameters become "$N", and "IS NOT ?N" (SQLite's null-safe comparison) becomes
// "IS DISTINCT FROM $N", and "IS NOT ?N COLLATE BINARY" compares as text byte for byte
// ("IS DISTINCT FROM $N::text COLLATE \"C\"": neither citext nor a case-blind collation of the
// column decides it).
std::string toPostgres(const std::string& sql,
                       const std::function<const std::string*(std::string_view)>& spelling);

// The host's schema (schema/host.sql, SQLite's DDL) for PostgreSQL: names quoted as written,
// INTEGER PRIMARY KEY AUTOINCREMENT an identity column, Yes/No defaults TRUE/FALSE, DATETIME a
// TIMESTAMP, and a table without an integer key given one named "rowid" (identity), so that
// every table's rows can be named as SQLite names them.
std::string postgresSchema(const std::string& sqliteSchema);

}  // namespace dossync::sql
