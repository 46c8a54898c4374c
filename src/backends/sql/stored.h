// Values and table descriptions shared by the SQL back ends of the data access object: what a
// column is (kind, size, default, auto-number key), a stored value, and the conversions between
// the text every caller sees and what the database stores.
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/hash.h"

namespace dossync::sql {

enum class ColumnKind { Text, Memo, Integer, Real, Boolean, DateTime, Other };

struct ColumnInfo {
  std::string name;
  std::string declaredType;
  ColumnKind kind = ColumnKind::Other;
  int32_t size = 0;  // characters; 0 = unlimited
  bool autoKey = false;
  bool notNull = false;
  std::string defaultSql;  // the declared DEFAULT expression; "" when none
};

// The column's kind and size from its declared type ("VARCHAR(50)", "BOOLEAN", "DATETIME"...).
ColumnInfo describeColumn(const std::string& name, const std::string& declaredType);

// Field names compare without regard to case, as Jet's do; look-ups take any string type.
// Every field read looks its column up by name, so the hash takes eight characters at a time,
// with ASCII letters upper-cased in the word.
struct CaseInsensitiveHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const {
    uint64_t h = hash::kFnvOffset ^ s.size();
    size_t i = 0;
    for (; i + 8 <= s.size(); i += 8) h = mix(h, upperWord(s.data() + i, 8));
    if (i < s.size()) h = mix(h, upperWord(s.data() + i, s.size() - i));
    return static_cast<size_t>(h ^ (h >> 32));
  }
  static uint64_t upperWord(const char* p, size_t n) {
    uint64_t x = 0;
    if (n == 8) {
      std::memcpy(&x, p, 8);
    } else {
      for (size_t k = 0; k < n; ++k) x |= uint64_t{static_cast<unsigned char>(p[k])} << (8 * k);
    }
    constexpr uint64_t kOnes = 0x0101010101010101ULL, kHigh = 0x8080808080808080ULL;
    uint64_t low7 = x & ~kHigh;
    uint64_t atLeastA = low7 + (0x80 - 'a') * kOnes;   // high bit set where the byte >= 'a'
    uint64_t pastZ = low7 + (0x80 - 'z' - 1) * kOnes;  // high bit set where the byte > 'z'
    uint64_t lower = atLeastA & ~pastZ & ~x & kHigh;   // ASCII 'a'..'z'
    return x ^ (lower >> 2);                           // clears their 0x20 bit
  }
  static uint64_t mix(uint64_t h, uint64_t word) {
    h = (h ^ word) * hash::kFnvPrime;
    return h ^ (h >> 29);
  }
};
struct CaseInsensitiveEqual {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};

struct TableInfo {
  std::string name;
  std::vector<ColumnInfo> columns;
  int keyColumn = -1;  // the integer key column that names a row, if any
  // autoKey on that column: the table numbers it itself; otherwise callers set it.
  // The SQL that names a row of the table in statements ("rowid" on SQLite, the quoted key
  // column on PostgreSQL); "" when rows cannot be named (such a table is read whole).
  std::string rowKey;
  std::unordered_map<std::string, int, CaseInsensitiveHash, CaseInsensitiveEqual> byName;
  int find(std::string_view field) const;  // -1 when absent; case-insensitive
  // The auto-number column: the key, or in a table without one its counter column; -1 none.
  int counterColumn() const;
  void add(ColumnInfo column);
};

// A stored value: NULL, an integer, a real or a text.
struct Stored {
  enum Type { Null, Int, Real, Text } type = Null;
  int64_t i = 0;
  double r = 0;
  std::string s;
};

// Text -> stored value by the column's kind (sizes, Booleans, dates, numbers checked);
// stored value -> the text every reader sees.
Stored toStored(const std::string& table, const ColumnInfo& column, const std::string& text);
std::string fromStored(const ColumnInfo& column, const Stored& value);
// What a find compares: the folded text a reader sees (nullopt for NULL, which no find
// matches), and the folded form of a value asked for (Booleans and dates in their text form).
std::optional<std::string> findKey(const ColumnInfo& column, const Stored& value);
std::string findKey(const ColumnInfo& column, const std::string& text);
// The order of ORDER BY: NULL first, then numbers, then text by value::compareText.
int compareStored(const Stored& a, const Stored& b);
// A real in the text form readers see ("12", "0.5").
std::string realText(double r);

std::string quoteIdentifier(const std::string& name);  // "name", quotes inside doubled
std::string quoteText(const std::string& text);        // 'text', quotes inside doubled

}  // namespace dossync::sql
