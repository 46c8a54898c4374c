#include "base/utf16.h"

#include <gtest/gtest.h>

namespace dossync {
namespace {

TEST(Utf16Test, RoundTripsEveryPlaneAndReplacesWhatIsBroken) {
  struct {
    std::string utf8;
    std::u16string utf16;
    std::string back;  // what the UTF-16 text reads as
  } rows[] = {
      {"", u"", ""},
      {"Müller & Söhne €", u"Müller & Söhne €", "Müller & Söhne €"},
      {"\xF0\x9F\x98\x80", u"\U0001F600", "\xF0\x9F\x98\x80"},  // a surrogate pair
      {"a\xFF"
       "b",
       u"a\uFFFDb",
       "a\xEF\xBF\xBD"
       "b"},                                   // a byte that starts nothing
      {"a\xC3", u"a\uFFFD", "a\xEF\xBF\xBD"},  // cut short
      {"\xE2\x28\xA1", u"\uFFFD(\uFFFD", "\xEF\xBF\xBD(\xEF\xBF\xBD"},  // a bad continuation
  };
  for (const auto& row : rows) {
    EXPECT_EQ(utf16::widen<char16_t>(row.utf8), row.utf16) << row.utf8;
    EXPECT_EQ(utf16::narrow(row.utf16), row.back) << row.utf8;
  }
  std::u16string lone = {u'x', char16_t(0xD83D)};  // a high surrogate with nothing after it
  EXPECT_EQ(utf16::narrow(lone), "x\xEF\xBF\xBD");
}

}  // namespace
}  // namespace dossync
