#include "backends/sql/stored.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "base/error.h"
#include "base/value.h"

namespace dossync::sql {

namespace {
// The text between `quote`s, each quote inside doubled.
std::string quoted(const std::string& text, char quote) {
  std::string out(1, quote);
  for (char c : text) {
    if (c == quote) out += quote;
    out += c;
  }
  return out + quote;
}

}  // namespace

std::string quoteText(const std::string& text) {
  return quoted(text, '\'');
}

std::string quoteIdentifier(const std::string& name) {
  return quoted(name, '"');
}

ColumnInfo describeColumn(const std::string& name, const std::string& declaredType) {
  ColumnInfo c;
  c.name = name;
  c.declaredType = declaredType;
  std::string t = value::upper(declaredType);
  auto has = [&](const char* w) { return t.find(w) != std::string::npos; };
  size_t paren = t.find('(');
  if (has("BOOL") || has("YESNO") || t == "BIT") {
    c.kind = ColumnKind::Boolean;
  } else if (has("DATE") || has("TIME")) {
    c.kind = ColumnKind::DateTime;
  } else if (has("CHAR") || (paren != std::string::npos && has("TEXT"))) {
    c.kind = ColumnKind::Text;
    if (paren != std::string::npos) c.size = std::atoi(t.c_str() + paren + 1);
  } else if (has("TEXT") || has("MEMO") || has("CLOB")) {
    c.kind = ColumnKind::Memo;
  } else if (has("INT") || has("COUNTER") || has("LONG")) {
    c.kind = ColumnKind::Integer;
  } else if (has("REAL") || has("FLOA") || has("DOUB") || has("NUMERIC") || has("DECIMAL") ||
             has("CURRENCY") || has("MONEY")) {
    c.kind = ColumnKind::Real;
  }
  return c;
}

bool CaseInsensitiveEqual::operator()(std::string_view a, std::string_view b) const {
  return a == b || value::equalsIgnoreCase(a, b);
}

int TableInfo::find(std::string_view field) const {
  auto it = byName.find(field);
  return it == byName.end() ? -1 : it->second;
}

int TableInfo::counterColumn() const {
  if (keyColumn >= 0) return columns[static_cast<size_t>(keyColumn)].autoKey ? keyColumn : -1;
  for (size_t i = 0; i < columns.size(); ++i)
    if (columns[i].autoKey) return static_cast<int>(i);
  return -1;
}

void TableInfo::add(ColumnInfo column) {
  byName.emplace(column.name, static_cast<int>(columns.size()));
  columns.push_back(std::move(column));
}

Stored toStored(const std::string& table, const ColumnInfo& column, const std::string& text) {
  Stored v;
  auto mismatch = [&](const char* what) {
    throw RuntimeError(kTypeMismatch, "Data type mismatch: " + table + "." + column.name +
                                          " takes " + what + ", not '" + text + "'");
  };
  switch (column.kind) {
    case ColumnKind::Text:
      if (column.size > 0 && value::characterCount(text) > static_cast<size_t>(column.size)) {
        throw RuntimeError(kFieldTooSmall,
                           "The field is too small to accept the amount of data you attempted "
                           "to add: " +
                               table + "." + column.name + " holds at most " +
                               std::to_string(column.size) + " characters, the value has " +
                               std::to_string(value::characterCount(text)));
      }
      [[fallthrough]];
    case ColumnKind::Memo:
    case ColumnKind::Other:
      v.type = Stored::Text;
      v.s = text;
      return v;
    case ColumnKind::Integer:
      if (value::isBlank(text)) return v;
      if (!value::isNumeric(text) && !value::parseBoolean(text)) mismatch("a whole number");
      v.type = Stored::Int;
      v.i = value::toLong(text);
      return v;
    case ColumnKind::Real:
      if (value::isBlank(text)) return v;
      if (!value::isNumeric(text)) mismatch("a number");
      v.type = Stored::Real;
      v.r = std::strtod(value::trim(text).c_str(), nullptr);
      return v;
    case ColumnKind::Boolean: {
      v.type = Stored::Int;
      if (value::isBlank(text)) return v;
      auto b = value::parseBoolean(text);
      if (!b) mismatch("True or False");
      v.i = *b ? 1 : 0;
      return v;
    }
    case ColumnKind::DateTime: {
      if (value::isBlank(text)) return v;
      auto d = value::parseDate(text);
      if (!d) mismatch("a date");
      v.type = Stored::Text;
      v.s = value::toText(*d);
      return v;
    }
  }
  return v;
}

std::string realText(double r) {
  if (std::isfinite(r) && r == std::floor(r) && std::fabs(r) < 1e15)
    return std::to_string(static_cast<int64_t>(r));
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15g", r);
  return buf;
}

std::optional<std::string> findKey(const ColumnInfo& column, const Stored& value) {
  if (value.type == Stored::Null) return std::nullopt;
  return value::foldCase(fromStored(column, value));
}

std::string findKey(const ColumnInfo& column, const std::string& text) {
  if (column.kind == ColumnKind::Boolean) {
    if (auto b = value::parseBoolean(text)) return value::foldCase(value::fromBoolean(*b));
  } else if (column.kind == ColumnKind::DateTime) {
    if (auto d = value::parseDate(text)) return value::foldCase(value::toText(*d));
  }
  return value::foldCase(text);
}

std::string fromStored(const ColumnInfo& column, const Stored& v) {
  if (column.kind == ColumnKind::Boolean) {
    switch (v.type) {
      case Stored::Null:
        return "False";
      case Stored::Int:
        return value::fromBoolean(v.i != 0);
      case Stored::Real:
        return value::fromBoolean(v.r != 0);
      case Stored::Text: {
        auto b = value::parseBoolean(v.s);
        return b ? value::fromBoolean(*b) : v.s;
      }
    }
  }
  switch (v.type) {
    case Stored::Null:
      return "";
    case Stored::Int:
      return std::to_string(v.i);
    case Stored::Real:
      return realText(v.r);
    case Stored::Text:
      if (column.kind == ColumnKind::DateTime) {
        if (auto d = value::parseDate(v.s)) return value::toText(*d);
      }
      return v.s;
  }
  return "";
}

int compareStored(const Stored& a, const Stored& b) {
  auto rank = [](const Stored& v) {
    return v.type == Stored::Null ? 0 : v.type == Stored::Text ? 2 : 1;
  };
  if (rank(a) != rank(b)) return rank(a) < rank(b) ? -1 : 1;
  switch (rank(a)) {
    case 0:
      return 0;
    case 1: {
      double x = a.type == Stored::Int ? static_cast<double>(a.i) : a.r;
      double y = b.type == Stored::Int ? static_cast<double>(b.i) : b.r;
      if (a.type == Stored::Int && b.type == Stored::Int) return a.i < b.i ? -1 : a.i > b.i;
      return x < y ? -1 : x > y;
    }
    default:
      return value::compareText(a.s, b.s);
  }
}

}  // namespace dossync::sql
