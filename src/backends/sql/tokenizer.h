// The one reading of SQL text every dialect and engine shares: where a string, a quoted name or
// a comment starts and ends, so that nothing inside one is taken for a keyword, a parameter, a
// comma or a semicolon. Strings are '..' (a quote doubled inside); names "..", [..] and `..`
// (the closing quote doubled inside, except for ]); comments -- to the end of the line and
// /* .. */; parameters ? and ?N. Text that ends inside a string, name or comment ends it there.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace dossync::sql {

struct Token {
  enum Kind { Word, Number, String, Name, Parameter, Comment, Space, Symbol };
  Kind kind;
  std::string_view text;  // as written, quotes and all
  size_t offset;          // of text in the statement

  // A name's text without its quotes, a doubled closing quote read as one.
  std::string name() const;
  // A parameter's number; 0 for a plain "?".
  int parameter() const;
  // A word, symbol or quoted name's opening quote equal to `s` (words in any case).
  bool is(std::string_view s) const;
  // Whether the token means nothing to the statement (blanks and comments).
  bool blank() const { return kind == Space || kind == Comment; }
};

// The token that starts at `at` (< sql.size()).
Token tokenAt(std::string_view sql, size_t at);

// The tokens of sql from `from` on, in order; together they spell that text exactly.
std::vector<Token> tokenize(std::string_view sql, size_t from = 0);

// The statements of a script, split at the semicolons between them, trimmed and without their
// semicolon; those that hold nothing but blanks and comments are left out.
std::vector<std::string> splitStatements(std::string_view script);

// Whether c may stand in a word (letters, digits, _).
bool isWordChar(char c);

}  // namespace dossync::sql
