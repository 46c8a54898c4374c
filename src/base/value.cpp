#include "base/value.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <cwctype>

#include <locale.h>
#include <wctype.h>
#ifdef _WIN32
#include <windows.h>
#endif

#include "base/error.h"

namespace dossync::value {
namespace {

constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array<const char*, 12> kMonthNames = {
    "January", "February", "March",     "April",   "May",      "June",
    "July",    "August",   "September", "October", "November", "December"};

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// ASCII upper case: the text rules never depend on the C locale.
char asciiUpper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool isLeap(int y) {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

bool valid(const Date& d) {
  return d.year >= 100 && d.year <= 9999 && d.month >= 1 && d.month <= 12 && d.day >= 1 &&
         d.day <= daysInMonth(d.year, d.month) && d.hour >= 0 && d.hour < 24 && d.minute >= 0 &&
         d.minute < 60 && d.second >= 0 && d.second < 60;
}

// A small scanner over the text; every parse below reads it left to right.
struct Scanner {
  std::string_view s;
  size_t i = 0;
  bool done() const { return i >= s.size(); }
  void skipSpaces() {
    while (!done() && isSpace(s[i])) ++i;
  }
  bool number(int& out, size_t minDigits, size_t maxDigits) {
    size_t start = i;
    long v = 0;
    while (!done() && std::isdigit(static_cast<unsigned char>(s[i])) && i - start < maxDigits) {
      v = v * 10 + (s[i] - '0');
      ++i;
    }
    if (i - start < minDigits) return false;
    out = static_cast<int>(v);
    return true;
  }
  bool take(char c) {
    if (!done() && s[i] == c) {
      ++i;
      return true;
    }
    return false;
  }
};

bool parseTime(Scanner& sc, Date& d) {
  sc.skipSpaces();
  if (sc.done()) return true;
  if (!sc.number(d.hour, 1, 2) || !sc.take(':') || !sc.number(d.minute, 2, 2)) return false;
  if (sc.take(':') && !sc.number(d.second, 2, 2)) return false;
  sc.skipSpaces();
  if (!sc.done()) {
    std::string rest = upper(sc.s.substr(sc.i));
    if (rest == "PM" && d.hour < 12)
      d.hour += 12;
    else if (rest == "AM" && d.hour == 12)
      d.hour = 0;
    else if (rest != "AM" && rest != "PM")
      return false;
    sc.i = sc.s.size();
  }
  return true;
}

std::optional<Date> parseIso(std::string_view t) {
  Scanner sc{t};
  Date d;
  if (!sc.number(d.year, 4, 4) || !sc.take('-') || !sc.number(d.month, 1, 2) || !sc.take('-') ||
      !sc.number(d.day, 1, 2))
    return std::nullopt;
  sc.take('T');
  if (!parseTime(sc, d)) return std::nullopt;
  return d;
}

std::optional<Date> parseSlashed(std::string_view t) {
  Scanner sc{t};
  Date d;
  if (!sc.number(d.month, 1, 2) || !sc.take('/') || !sc.number(d.day, 1, 2) || !sc.take('/') ||
      !sc.number(d.year, 4, 4))
    return std::nullopt;
  if (!parseTime(sc, d)) return std::nullopt;
  return d;
}

std::optional<Date> parseMonthName(std::string_view t) {
  Scanner sc{t};
  size_t start = sc.i;
  while (!sc.done() && std::isalpha(static_cast<unsigned char>(t[sc.i]))) ++sc.i;
  std::string word = upper(t.substr(start, sc.i - start));
  Date d;
  for (int m = 0; m < 12; ++m) {
    if (word == upper(kMonths[m]) || word == upper(kMonthNames[m])) d.month = m + 1;
  }
  if (d.month == 0) return std::nullopt;
  sc.take('.');
  sc.skipSpaces();
  if (!sc.number(d.day, 1, 2)) return std::nullopt;
  sc.take(',');
  sc.skipSpaces();
  if (!sc.number(d.year, 4, 4)) return std::nullopt;
  if (!parseTime(sc, d)) return std::nullopt;
  return d;
}

}  // namespace

bool isBlank(std::string_view text) {
  return text.empty();
}

std::string_view trimmed(std::string_view text) {
  size_t b = 0, e = text.size();
  while (b < e && isSpace(text[b])) ++b;
  while (e > b && isSpace(text[e - 1])) --e;
  return text.substr(b, e - b);
}

std::string trim(std::string_view text) {
  return std::string(trimmed(text));
}

std::string upper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = asciiUpper(c);
  return out;
}

namespace {
// A byte that is not part of a valid UTF-8 sequence: kStray + the byte, beyond every code point.
constexpr char32_t kStray = 0x110000;

// The next code point of UTF-8 text at i, advancing i.
char32_t nextCodePoint(std::string_view s, size_t& i) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  unsigned char c = byte(i);
  size_t len = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
  if (len == 1) {
    ++i;
    return c;
  }
  if (len == 0 || i + len > s.size()) {
    ++i;
    return kStray + c;
  }
  char32_t cp = c & (0xFF >> (len + 1));
  for (size_t k = 1; k < len; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) {
      ++i;
      return kStray + c;
    }
    cp = (cp << 6) | (byte(i + k) & 0x3F);
  }
  i += len;
  return cp;
}

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// Unicode simple case folding through the C library's tables for UTF-8 (not the process's
// locale, which may be "C"): lower case of the upper case, so that final sigma and long s fold
// with their letters.
char32_t foldCodePoint(char32_t cp) {
  if (cp < 0x80) return cp >= 'A' && cp <= 'Z' ? cp + 32 : cp;
  if (cp < 0xC0 || cp >= kStray) return cp;  // Latin-1 symbols and stray bytes have no case
#ifdef _WIN32
  // The system's tables, for the Basic Multilingual Plane (which holds every cased letter the
  // comparison meets in names).
  if (cp > 0xFFFF) return cp;
  WCHAR c = static_cast<WCHAR>(cp);
  ::CharUpperBuffW(&c, 1);
  ::CharLowerBuffW(&c, 1);
  return c;
#else
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  if (!utf8) return cp;
  auto wc = static_cast<wint_t>(cp);
  return static_cast<char32_t>(towlower_l(towupper_l(wc, utf8), utf8));
#endif
}

}  // namespace

std::string foldCase(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    if (static_cast<unsigned char>(text[i]) < 0x80) {
      char c = text[i++];
      out += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
      continue;
    }
    char32_t cp = nextCodePoint(text, i);
    if (cp >= kStray) {
      out += static_cast<char>(cp - kStray);  // a stray byte stays as it is
    } else {
      appendUtf8(out, foldCodePoint(cp));
    }
  }
  return out;
}

int compareText(std::string_view a, std::string_view b) {
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    char32_t x = foldCodePoint(nextCodePoint(a, i));
    char32_t y = foldCodePoint(nextCodePoint(b, j));
    if (x != y) return x < y ? -1 : 1;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
  // ASCII on both sides (names of fields and most values): one pass, no decoding.
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char x = a[i], y = b[i];
    if (static_cast<unsigned char>(x) >= 0x80 || static_cast<unsigned char>(y) >= 0x80)
      return compareText(a.substr(i), b.substr(i)) == 0;
    if (x != y && asciiUpper(x) != asciiUpper(y)) return false;
  }
  if (a.size() == b.size()) return true;
  return compareText(a.substr(n), b.substr(n)) == 0;  // a folded letter may change its length
}

size_t characterCount(std::string_view utf8) {
  size_t n = 0;
  for (unsigned char c : utf8) n += (c & 0xC0) != 0x80;
  return n;
}

bool isNumeric(std::string_view text) {
  std::string t = trim(text);
  size_t i = 0;
  if (i < t.size() && (t[i] == '+' || t[i] == '-')) ++i;
  size_t digits = 0;
  while (i < t.size() && std::isdigit(static_cast<unsigned char>(t[i]))) ++i, ++digits;
  if (i < t.size() && t[i] == '.') {
    ++i;
    while (i < t.size() && std::isdigit(static_cast<unsigned char>(t[i]))) ++i, ++digits;
  }
  return digits > 0 && i == t.size();
}

int32_t toLong(std::string_view text) {
  if (!isNumeric(text)) {
    if (auto b = parseBoolean(text)) return *b ? -1 : 0;
    throw RuntimeError(kTypeMismatch,
                       "Type mismatch: '" + std::string(text) + "' is not a whole number");
  }
  double v = std::strtod(trim(text).c_str(), nullptr);
  double r = std::nearbyint(v);  // the default rounding mode rounds halves to even
  if (r > 2147483647.0 || r < -2147483648.0)
    throw RuntimeError(kOverflow, "Overflow: '" + std::string(text) + "' does not fit 32 bits");
  return static_cast<int32_t>(r);
}

int16_t toInteger(std::string_view text) {
  int32_t v = toLong(text);
  if (v > 32767 || v < -32768)
    throw RuntimeError(kOverflow, "Overflow: '" + std::string(text) + "' does not fit 16 bits");
  return static_cast<int16_t>(v);
}

std::string fromLong(int64_t number) {
  return std::to_string(number);
}

std::optional<bool> parseBoolean(std::string_view text) {
  std::string t = trim(text);
  if (equalsIgnoreCase(t, "True")) return true;
  if (equalsIgnoreCase(t, "False")) return false;
  if (isNumeric(t)) return std::strtod(t.c_str(), nullptr) != 0.0;
  return std::nullopt;
}

bool toBoolean(std::string_view text) {
  if (auto b = parseBoolean(text)) return *b;
  throw RuntimeError(kTypeMismatch,
                     "Type mismatch: '" + std::string(text) + "' is not True or False");
}

std::string fromBoolean(bool value) {
  return value ? "True" : "False";
}

int daysInMonth(int y, int m) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && isLeap(y) ? 29 : kDays[m - 1];
}

std::optional<Date> parseDate(std::string_view text) {
  std::string t = trim(text);
  if (t.empty()) return std::nullopt;
  std::optional<Date> d;
  if (std::isdigit(static_cast<unsigned char>(t[0]))) {
    d = t.find('/') != std::string::npos ? parseSlashed(t) : parseIso(t);
  } else {
    d = parseMonthName(t);
  }
  if (d && !valid(*d)) return std::nullopt;
  return d;
}

bool isDate(std::string_view text) {
  return parseDate(text).has_value();
}

Date toDate(std::string_view text) {
  if (auto d = parseDate(text)) return *d;
  throw RuntimeError(kTypeMismatch, "Type mismatch: '" + std::string(text) + "' is not a date");
}

namespace {
void putDigits(char* at, int value, int width) {
  for (int i = width - 1; i >= 0; --i, value /= 10) at[i] = static_cast<char>('0' + value % 10);
}
}  // namespace

std::string toText(const Date& d) {
  auto fits = [](int v, int limit) { return v >= 0 && v < limit; };
  // Written by hand for the usual ranges: dates are formatted for every row and card.
  if (fits(d.year, 10000) && fits(d.month, 100) && fits(d.day, 100) && fits(d.hour, 100) &&
      fits(d.minute, 100) && fits(d.second, 100)) {
    std::string text(d.hasTime() ? 19 : 10, ' ');
    char* p = text.data();
    putDigits(p, d.year, 4);
    p[4] = p[7] = '-';
    putDigits(p + 5, d.month, 2);
    putDigits(p + 8, d.day, 2);
    if (d.hasTime()) {
      putDigits(p + 11, d.hour, 2);
      p[13] = p[16] = ':';
      putDigits(p + 14, d.minute, 2);
      putDigits(p + 17, d.second, 2);
    }
    return text;
  }
  char buf[64];
  if (d.hasTime()) {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", d.year, d.month, d.day, d.hour,
                  d.minute, d.second);
  } else {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", d.year, d.month, d.day);
  }
  return buf;
}

std::string formatMmmDYyyy(const Date& d) {
  return std::string(kMonths[d.month - 1]) + " " + std::to_string(d.day) + ", " +
         std::to_string(d.year);
}

std::string formatAsMmmDYyyy(std::string_view text) {
  if (auto d = parseDate(text)) return formatMmmDYyyy(*d);
  return std::string(text);
}

Date now() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
#ifdef _WIN32
  localtime_s(&tm, &t);
#else
  localtime_r(&t, &tm);
#endif
  return Date{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
}

}  // namespace dossync::value
