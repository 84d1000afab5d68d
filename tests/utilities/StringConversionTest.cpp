#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

TEST(StringConversion, GoesBothWaysForValidText) {
  const std::vector<std::pair<std::string, std::u16string>> rows = {
      {"", u""},
      {"a", u"a"},
      {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
      {"\x7f\u0080\u07ff\u0800", u"\x7f\u0080\u07ff\u0800"},
      {"\ud7ff\ue000\uffff", u"\ud7ff\ue000\uffff"},
      {"\U00010000\U0001F600\U0010FFFF", u"\U00010000\U0001F600\U0010FFFF"},
  };
  for (const auto& [utf8, units] : rows) {
    EXPECT_EQ(utf16FromUTF8(utf8), units);
    EXPECT_EQ(utf8FromUTF16(units), utf8);
    const std::wstring wide = stdWStringUTF16(utf8);
    EXPECT_EQ(wide, std::wstring(units.begin(), units.end()));
    EXPECT_EQ(stringFromUTF16Wstring(wide), utf8);
  }
}

TEST(StringConversion, ReplacesMalformedUTF8) {
  const std::vector<std::pair<const char*, std::u16string>> rows = {
      {"\x80", u"\uFFFD"},                                // no lead
      {"\xC3", u"\uFFFD"},                                // cut short
      {"\xC3(", u"\uFFFD("},                              // the next character survives
      {"\xE2\x82x", u"\uFFFDx"},                          // one for the longest beginning
      {"\xF0\x9F\x98\xC3\xA9", u"\uFFFD\u00E9"},          // followed by a good one
      {"\xC0\x80", u"\uFFFD\uFFFD"},                      // overlong
      {"\xE0\x80\x80", u"\uFFFD\uFFFD\uFFFD"},            //
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above 0x10FFFF
      {"\xF8\xFF", u"\uFFFD\uFFFD"},                      //
  };
  for (const auto& [bytes, units] : rows)
    EXPECT_EQ(utf16FromUTF8(bytes), units) << bytes;
}

TEST(StringConversion, ReplacesUnpairedSurrogates) {
  const std::u16string high(1, 0xD83D);
  const std::u16string low(1, 0xDE00);
  EXPECT_EQ(utf8FromUTF16(high + u"a"), "\uFFFDa");
  EXPECT_EQ(utf8FromUTF16(high + high + low), "\uFFFD\U0001F600");
  EXPECT_EQ(utf8FromUTF16(low + high), "\uFFFD\uFFFD");
  EXPECT_EQ(utf8FromUTF16(high + low + low), "\U0001F600\uFFFD");
}

TEST(StringConversion, CutsWideElementsToTheirLowSixteenBits) {
  EXPECT_EQ(stringFromUTF16Wstring(L"\x10041\x1F600"), "A\uF600");
}

TEST(StringConversion, ReadsMultibyteTextInTheLocale) {
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
  EXPECT_EQ(string_conversion::wide("gr\u00fcn \U0001F600"), L"gr\u00fcn \U0001F600");
  EXPECT_EQ(string_conversion::wide(std::string("cut\0off", 7)), L"cut");
  EXPECT_THROW(string_conversion::wide("\xC3("), mbcs_to_wide_string_conversion_exception);
  std::setlocale(LC_ALL, "C");
}

}  // namespace
}  // namespace tarvo
