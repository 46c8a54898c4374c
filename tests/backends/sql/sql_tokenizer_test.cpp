#include "backends/sql/tokenizer.h"

#include <gtest/gtest.h>

#include "backends/sql/dialect.h"

namespace dossync::sql {
namespace {

// The tokens other than blanks, each as "kind:text".
std::string shape(std::string_view sql) {
  static const char* kinds[] = {"w", "n", "s", "q", "p", "c", "_", "y"};
  std::string out;
  for (const Token& t : tokenize(sql))
    if (t.kind != Token::Space)
      out += (out.empty() ? "" : " ") + std::string(kinds[t.kind]) + ":" + std::string(t.text);
  return out;
}

// The texts on which the scanners of the dialects and engines used to disagree.
TEST(SqlTokenizerTest, QuotesCommentsAndParameters) {
  struct {
    const char* sql;
    const char* tokens;
  } rows[] = {
      {"SELECT [Order By], `From` FROM t", "w:SELECT q:[Order By] y:, q:`From` w:FROM w:t"},
      {"'it''s; ?' \"a\"\"b\" [x]]", "s:'it''s; ?' q:\"a\"\"b\" q:[x] y:]"},
      {"a -- it's; ?\n;b", "w:a c:-- it's; ? y:; w:b"},
      {"/* ? ; 'x */ ?2 ?", "c:/* ? ; 'x */ p:?2 p:?"},
      {"x=?12,1.5e3 _a1", "w:x y:= p:?12 y:, n:1.5e3 w:_a1"},
      {"'open [x", "s:'open [x"},
      {"[open 'x", "q:[open 'x"},
      {"-1/2", "y:- n:1 y:/ n:2"},
  };
  for (const auto& row : rows) EXPECT_EQ(shape(row.sql), row.tokens) << row.sql;

  EXPECT_EQ(tokenize("\"a\"\"b\"")[0].name(), "a\"b");
  EXPECT_EQ(tokenize("[a b]")[0].name(), "a b");
  EXPECT_EQ(tokenize("?12")[0].parameter(), 12);
}

TEST(SqlTokenizerTest, DialectsSkipWhatIsQuotedOrCommentedOut) {
  EXPECT_EQ(findKeyword("SELECT [order by] FROM t ORDER BY x", "ORDER BY"), 25u);
  EXPECT_EQ(findKeyword("SELECT x -- ORDER BY\nFROM t", "ORDER BY"), std::string::npos);
  EXPECT_EQ(splitOrderBy("SELECT * FROM t ORDER BY [a, b], 'x,y' DESC;").terms.size(), 2u);

  EXPECT_EQ(splitStatements("INSERT INTO t VALUES ('a;b'); -- don't; stop\n"
                            "/* ; */ UPDATE t SET x = 1 ; -- the end"),
            (std::vector<std::string>{"INSERT INTO t VALUES ('a;b')",
                                      "-- don't; stop\n/* ; */ UPDATE t SET x = 1"}));

  auto none = [](std::string_view) -> const std::string* { return nullptr; };
  EXPECT_EQ(toPostgres("SELECT `a b`, [c] FROM t WHERE x = '?1' AND y = ?1 -- ?2", none),
            "SELECT \"a b\", \"c\" FROM t WHERE x = '?1' AND y = $1 -- ?2");
}

}  // namespace
}  // namespace dossync::sql
