#include "backends/sql/tokenizer.h"

#include <cctype>

#include "base/value.h"

namespace dossync::sql {

bool isWordChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

std::string Token::name() const {
  if (kind != Name) return std::string(text);
  char close = text.front() == '[' ? ']' : text.front();
  size_t end = text.size() >= 2 && text.back() == close ? text.size() - 1 : text.size();
  std::string out;
  for (size_t i = 1; i < end; ++i) {
    out += text[i];
    if (close != ']' && text[i] == close && i + 1 < end) ++i;  // "" inside "..": one quote
  }
  return out;
}

int Token::parameter() const {
  int n = 0;
  for (char c : text.substr(1)) n = n * 10 + (c - '0');
  return n;
}

bool Token::is(std::string_view s) const {
  if (kind == Name) return text.substr(0, 1) == s;
  return kind == Word ? value::equalsIgnoreCase(text, s) : text == s;
}

namespace {

// The end of a quoted string or name opening at i: after its closing quote, or the text's end.
size_t quotedEnd(std::string_view sql, size_t i, char close, bool doubled) {
  for (size_t k = i + 1; k < sql.size(); ++k) {
    if (sql[k] != close) continue;
    if (doubled && k + 1 < sql.size() && sql[k + 1] == close) {
      ++k;
      continue;
    }
    return k + 1;
  }
  return sql.size();
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

Token tokenAt(std::string_view sql, size_t i) {
  char c = sql[i];
  char next = i + 1 < sql.size() ? sql[i + 1] : '\0';
  Token::Kind kind = Token::Symbol;
  size_t end = i + 1;
  if (c == '\'') {
    kind = Token::String;
    end = quotedEnd(sql, i, '\'', true);
  } else if (c == '"' || c == '`' || c == '[') {
    kind = Token::Name;
    end = c == '[' ? quotedEnd(sql, i, ']', false) : quotedEnd(sql, i, c, true);
  } else if (c == '-' && next == '-') {
    kind = Token::Comment;
    end = sql.find('\n', i);
    if (end == std::string_view::npos) end = sql.size();
  } else if (c == '/' && next == '*') {
    kind = Token::Comment;
    end = sql.find("*/", i + 2);
    end = end == std::string_view::npos ? sql.size() : end + 2;
  } else if (c == '?') {
    kind = Token::Parameter;
    while (end < sql.size() && isDigit(sql[end])) ++end;
  } else if (std::isspace(static_cast<unsigned char>(c))) {
    kind = Token::Space;
    while (end < sql.size() && std::isspace(static_cast<unsigned char>(sql[end]))) ++end;
  } else if (isDigit(c)) {
    kind = Token::Number;
    while (end < sql.size() && (isWordChar(sql[end]) || sql[end] == '.')) ++end;
  } else if (isWordChar(c)) {
    kind = Token::Word;
    while (end < sql.size() && isWordChar(sql[end])) ++end;
  }
  return {kind, sql.substr(i, end - i), i};
}

std::vector<Token> tokenize(std::string_view sql, size_t from) {
  std::vector<Token> out;
  for (size_t i = from; i < sql.size(); i += out.back().text.size()) out.push_back(tokenAt(sql, i));
  return out;
}

std::vector<std::string> splitStatements(std::string_view script) {
  std::vector<std::string> out;
  size_t start = 0;
  bool solid = false;
  for (size_t i = 0; i <= script.size();) {
    Token t = i < script.size() ? tokenAt(script, i) : Token{Token::Symbol, ";", i};
    if (t.kind == Token::Symbol && t.text == ";") {
      if (solid) out.push_back(value::trim(std::string(script.substr(start, i - start))));
      start = i + 1;
      solid = false;
    } else if (!t.blank()) {
      solid = true;
    }
    i += t.text.size();
  }
  return out;
}

}  // namespace dossync::sql
