#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

struct Row {
  std::string utf8;
  std::u16string units;
};

TEST(StringConversion, GoesBothWaysForValidText) {
  const std::vector<Row> rows = {
      {"", u""},
      {"a", u"a"},
      {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
      {"\x7f\u0080\u07ff\u0800", u"\x7f\u0080\u07ff\u0800"},
      {"\ud7ff\ue000\uffff", u"\ud7ff\ue000\uffff"},
      {"\U00010000\U0001F600\U0010FFFF", u"\U00010000\U0001F600\U0010FFFF"},
  };
  for (const auto& row : rows) {
    for (const auto& other : rows) {
      EXPECT_EQ(utf16FromUTF8(row.utf8) == other.units, &row == &other);
      EXPECT_EQ(utf8FromUTF16(row.units) == other.utf8, &row == &other);
    }
    const std::wstring wide = stdWStringUTF16(row.utf8);
    EXPECT_EQ(wide, std::wstring(row.units.begin(), row.units.end()));
    EXPECT_EQ(stringFromUTF16Wstring(wide), row.utf8);
  }
}

TEST(StringConversion, ReplacesMalformedUTF8) {
  struct Malformed {
    const char* bytes;
    std::u16string units;
  };
  const std::vector<Malformed> rows = {
      {"\x80", u"\uFFFD"},                                // no lead
      {"\xC3", u"\uFFFD"},                                // cut short
      {"\xC3(", u"\uFFFD("},                              // the next character survives
      {"\xE2\x82", u"\uFFFD"},                            // one for the longest beginning
      {"\xE2\x82x", u"\uFFFDx"},                          //
      {"\xF0\x9F\x98", u"\uFFFD"},                        //
      {"\xF0\x9F\x98\xC3\xA9", u"\uFFFD\u00E9"},          // followed by a good one
      {"\xC0\x80", u"\uFFFD\uFFFD"},                      // overlong
      {"\xE0\x80\x80", u"\uFFFD\uFFFD\uFFFD"},            //
      {"\xF0\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  //
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above 0x10FFFF
      {"\xF8\xFF", u"\uFFFD\uFFFD"},                      //
  };
  for (const auto& row : rows)
    EXPECT_EQ(utf16FromUTF8(row.bytes), row.units) << &row - rows.data();
}

TEST(StringConversion, ReplacesUnpairedSurrogates) {
  const std::u16string high(1, 0xD83D);
  const std::u16string low(1, 0xDE00);
  EXPECT_EQ(utf8FromUTF16(high), "\uFFFD");
  EXPECT_EQ(utf8FromUTF16(low), "\uFFFD");
  EXPECT_EQ(utf8FromUTF16(high + u"a"), "\uFFFDa");
  EXPECT_EQ(utf8FromUTF16(high + high + low), "\uFFFD\U0001F600");
  EXPECT_EQ(utf8FromUTF16(low + high), "\uFFFD\uFFFD");
  EXPECT_EQ(utf8FromUTF16(high + low + low), "\U0001F600\uFFFD");
}

TEST(StringConversion, CutsWideElementsToTheirLowSixteenBits) {
  EXPECT_EQ(stringFromUTF16Wstring(L"\x10041"), "A");
  EXPECT_EQ(stringFromUTF16Wstring(L"\x1F600"), "\uF600");
  EXPECT_EQ(stringFromUTF16Wstring(L""), "");
}

/// The process's locale for the life of a test.
class LocaleFor {
 public:
  explicit LocaleFor(const char* name) : set_(std::setlocale(LC_ALL, name) != nullptr) {}
  ~LocaleFor() { std::setlocale(LC_ALL, "C"); }
  bool isSet() const { return set_; }

 private:
  bool set_;
};

TEST(StringConversion, ReadsMultibyteTextInTheLocale) {
  EXPECT_EQ(string_conversion::wide(""), L"");
  EXPECT_EQ(string_conversion::wide("plain"), L"plain");
  const LocaleFor locale("C.UTF-8");
  ASSERT_TRUE(locale.isSet());
  EXPECT_EQ(string_conversion::wide("gr\u00fcn \U0001F600"), L"gr\u00fcn \U0001F600");
  EXPECT_EQ(string_conversion::wide(std::string("cut\0off", 7)), L"cut");
  EXPECT_THROW(string_conversion::wide("\xC3("), mbcs_to_wide_string_conversion_exception);
  EXPECT_THROW(string_conversion::wide("a\xFF"), string_conversion_exception);
}

}  // namespace
}  // namespace tarvo
