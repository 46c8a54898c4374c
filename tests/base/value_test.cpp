#include "base/value.h"

#include <gtest/gtest.h>

#include "base/error.h"
#include "test_support.h"

namespace dossync::value {
namespace {

TEST(Value, BlankAndNumeric) {
  EXPECT_TRUE(isBlank(""));
  EXPECT_FALSE(isBlank(" "));
  for (const char* yes : {" 12 ", "-3", "+4", ".5", "7."}) EXPECT_TRUE(isNumeric(yes)) << yes;
  for (const char* no : {"", " ", "1e5", "1,000", "--1", "1.2.3", ".", "12a"})
    EXPECT_FALSE(isNumeric(no)) << no;
}

TEST(Value, WholeNumbersRoundHalfToEvenAndReportErrors) {
  EXPECT_EQ(toLong(" 0012 "), 12);
  EXPECT_EQ(toLong("2.5"), 2);
  EXPECT_EQ(toLong("3.5"), 4);
  EXPECT_EQ(toLong("2147483647"), 2147483647);
  EXPECT_EQ(toLong("-2147483648"), -2147483648LL);
  EXPECT_EQ(toLong("True"), -1);
  EXPECT_EQ(testing::errorOf([] { toLong("2147483648"); }), kOverflow);
  EXPECT_EQ(testing::errorOf([] { toLong(""); }), kTypeMismatch);
  EXPECT_EQ(testing::errorOf([] { toInteger("40000"); }), kOverflow);
}

TEST(Value, Booleans) {
  for (const char* yes : {"True", "tRUE", "-1", "1"}) EXPECT_TRUE(toBoolean(yes)) << yes;
  for (const char* no : {"FALSE", "0"}) EXPECT_FALSE(toBoolean(no)) << no;
  EXPECT_EQ(testing::errorOf([] { toBoolean("yes"); }), kTypeMismatch);
  EXPECT_EQ(testing::errorOf([] { toBoolean(""); }), kTypeMismatch);
  EXPECT_EQ(fromBoolean(true) + fromBoolean(false), "TrueFalse");
}

TEST(Value, DatesParseInEveryAcceptedForm) {
  Date march5{1970, 3, 5};
  for (const char* text : {"1970-03-05", "Mar 5, 1970", "march 5, 1970", "3/5/1970", "03/05/1970"})
    EXPECT_EQ(toDate(text), march5) << text;
  EXPECT_EQ(toDate("1970-03-05 14:30:00"), (Date{1970, 3, 5, 14, 30, 0}));
  EXPECT_EQ(toDate("3/5/1970 2:30 PM"), (Date{1970, 3, 5, 14, 30, 0}));
  for (const char* bad : {"1970-02-30", "2023-02-29", "13/1/2000", "Foo 5, 1970", "5 Mar"})
    EXPECT_FALSE(isDate(bad)) << bad;
  EXPECT_TRUE(isDate("2024-02-29"));
  EXPECT_EQ(testing::errorOf([] { toDate("not a date"); }), kTypeMismatch);
}

TEST(Value, DateTextForms) {
  EXPECT_EQ(toText(Date{1970, 3, 5}), "1970-03-05");
  EXPECT_EQ(toText(Date{1970, 3, 5, 0, 0, 1}), "1970-03-05 00:00:01");
  EXPECT_EQ(formatMmmDYyyy(Date{1970, 3, 5}), "Mar 5, 1970");
  EXPECT_EQ(formatMmmDYyyy(Date{2001, 12, 25}), "Dec 25, 2001");
  EXPECT_EQ(formatAsMmmDYyyy("1970-03-05"), "Mar 5, 1970");
  EXPECT_EQ(formatAsMmmDYyyy("soon"), "soon");  // not a date: left as it is
}

}  // namespace
// The one comparison rule: case folds for every letter that has a case, accents count, and
// bytes that are not UTF-8 compare as themselves, after every character.
TEST(Value, TextComparesWithoutRegardToCase) {
  struct Case {
    std::string a, b;
    int order;
  };
  const Case cases[] = {
      {"Acme Ltd", "ACME LTD", 0}, {"École Dupont", "ÉCOLE DUPONT", 0},
      {"ΣΟΦΊΑ", "σοφία", 0},       {"straße", "STRASSE", 1},
      {"Ecole", "École", -1},      {"apple Co", "Acme", 1},
      {"apple Co", "Beta", -1},    {"ab", "ABC", -1},
      {"\xff\xfe", "\xff\xfe", 0}, {"\xc3", "\xc3\xa9", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.a + " / " + c.b);
    EXPECT_EQ(value::compareText(c.a, c.b), c.order);
    EXPECT_EQ(value::compareText(c.b, c.a), -c.order);
    EXPECT_EQ(value::equalsIgnoreCase(c.a, c.b), c.order == 0);
    EXPECT_EQ(value::foldCase(c.a) == value::foldCase(c.b), c.order == 0);
  }
  EXPECT_EQ(value::foldCase("ÀÉÎ Ltd \xff"), "àéî ltd \xff");
}

}  // namespace dossync::value
