// Text rules: every value crosses the data access object and the object model as text, and
// this module alone decides what such text means.
//   blank    null (absent), or zero-length text
//   numeric  a whole or decimal number, optionally signed, blanks around allowed
//   toLong   numeric text -> 32-bit whole number, rounding halves to even; errors: type
//            mismatch (13) for text that is not numeric, overflow (6) outside 32 bits
//   Boolean  "True"/"False" in any case, or a number (0 is False, anything else True)
//   text     compares without regard to case (foldCase, below)
//   dates    parsed from ISO "yyyy-mm-dd[ hh:mm:ss]", "mmm d, yyyy" and "m/d/yyyy"; the default
//            text form is ISO "yyyy-mm-dd", followed by " hh:mm:ss" only when there is a time
// Pure functions; safe on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dossync::value {

bool isBlank(std::string_view text);
bool isNumeric(std::string_view text);

int32_t toLong(std::string_view text);
int16_t toInteger(std::string_view text);
std::string fromLong(int64_t number);

bool toBoolean(std::string_view text);
std::optional<bool> parseBoolean(std::string_view text);
std::string fromBoolean(bool value);

struct Date {
  int year = 0, month = 0, day = 0;
  int hour = 0, minute = 0, second = 0;
  bool hasTime() const { return hour != 0 || minute != 0 || second != 0; }
  auto operator<=>(const Date&) const = default;
};

int daysInMonth(int year, int month);  // month 1-12, leap years counted
std::optional<Date> parseDate(std::string_view text);
bool isDate(std::string_view text);
Date toDate(std::string_view text);            // throws type mismatch (13)
std::string toText(const Date& date);          // the default text form
std::string formatMmmDYyyy(const Date& date);  // "Mar 5, 1970"
// Format(text, "mmm d, yyyy"): the formatted date when the text is a date, else the text itself.
std::string formatAsMmmDYyyy(std::string_view text);
Date now();

std::string upper(std::string_view text);
std::string trim(std::string_view text);
std::string_view trimmed(std::string_view text);  // trim without a copy
// The comparison rule of every find, filter and sort on text, the way the host's database engine
// and Outlook compare: without regard to case, for every letter that has a case (É = é, Σ = σ),
// accents still count (é != e). Text is UTF-8; a byte that is not part of a valid sequence
// compares as itself, after every character.
//   foldCase     the text every comparison is made on (also the key of a hash or index)
//   compareText  <0, 0, >0 in the order of the folded texts (code point order)
//   equalsIgnoreCase  compareText == 0, without building the folded texts for ASCII
std::string foldCase(std::string_view text);
int compareText(std::string_view a, std::string_view b);
bool equalsIgnoreCase(std::string_view a, std::string_view b);
size_t characterCount(std::string_view utf8);

}  // namespace dossync::value
