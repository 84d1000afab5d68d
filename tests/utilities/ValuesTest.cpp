#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/FourCharCode.h"
#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"

namespace tarvo {
namespace {

TEST(Format, HoldsTextOfAnyLength) {
  for (const std::size_t length : {0U, 253U, 254U, 255U, 256U, 100000U}) {
    const std::string text(length, 'x');
    EXPECT_EQ(formatted("<%s>", text.c_str()), "<" + text + ">");
  }
  EXPECT_EQ(fourCharText(0x41001F7F), "A???");
  EXPECT_EQ(fourCharTextReversed(0x410020FF), "? ?A");
}

TEST(PropertyDictionary, GivesTextOnlyWhereThereIsText) {
  const PropertyDictionary dictionary = {{"text", "a"}, {"number", 1}, {"none", nullptr}};
  EXPECT_EQ(textForKey(dictionary, "text"), "a");
  for (const char* key : {"number", "none", "absent"})
    EXPECT_EQ(textForKey(dictionary, key), std::nullopt) << key;
  EXPECT_EQ(textForKey(PropertyDictionary(), "text"), std::nullopt);
  for (const auto& [path, last] : {std::pair("a/b/c.app", "c.app"), {"/a/b///", "b"}, {"//", ""}})
    EXPECT_EQ(lastPathComponent(path), last) << path;
}

TEST(PropertyDictionary, NarrowsWholeNumbersTo32Bits) {
  const std::vector<std::pair<PropertyDictionary, std::optional<std::int32_t>>> rows = {
      {0xFA200000U, -98566144},
      {0x01420000, 0x01420000},
      {-1, -1},
      {std::numeric_limits<std::int64_t>::min(), 0},
      {1.5, std::nullopt},
      {"1", std::nullopt},
      {true, std::nullopt},
      {nullptr, std::nullopt},
  };
  for (const auto& [value, expected] : rows)
    EXPECT_EQ(int32ForKey({{"key", value}}, "key"), expected) << value.dump();
  EXPECT_EQ(int32ForKey({{"key", 1}}, "other"), std::nullopt);
  EXPECT_EQ(int32ForKey(PropertyDictionary({1, 2}), "0"), std::nullopt);
}

/// Why a document is refused; empty where it is not.
std::string refusalOf(const std::string& text) {
  try {
    jsonFromText(text);
    return {};
  } catch (const Exception& exception) {
    return exception.reason();
  }
}

TEST(JSONReader, RefusesWhatIsTooMuchAndNothingElse) {
  const auto times = [](std::size_t count, const std::string& text) {
    std::string all;
    for (std::size_t index = 0; index < count; ++index)
      all += text;
    return all;
  };
  const auto deep = [&](std::size_t levels) { return times(levels, "[") + times(levels, "]"); };
  const auto list = [&](std::size_t count, const std::string& value) {
    return "[" + times(count - 1, value + ",") + value + "]";
  };
  const std::string few(20, ' ');
  const std::string blanks(kLongestJSONText - 10, ' ');
  const std::pair<std::string, const char*> rows[] = {
      {deep(kMostJSONDepth), ""},
      {deep(kMostJSONDepth + 1), "levels deep"},
      {"[" + times(20, "{},[],") + "0]", ""},
      {list(kMostJSONValues - 1, "0"), ""},
      {list(kMostJSONValues, "0"), "values"},
      {list(200000, "{\"a\":{}}"), "MiB"},
      {blanks + "0" + blanks, ""},
      {blanks + "0" + blanks + few, "larger than"},
      {"[\"" + blanks + "\"]", ""},
      {"[\"" + blanks + few + "\"]", "a value of more than"},
      {"[\"" + std::string(100000, 'x'), "parse error"},
      {"", "parse error"}};
  for (const auto& [text, words] : rows) {
    const std::string refusal = refusalOf(text);
    EXPECT_NE(refusal.find(words), std::string::npos) << text.substr(0, 20) << ": " << refusal;
    EXPECT_EQ(refusal.empty(), *words == '\0') << text.substr(0, 20) << ": " << refusal;
    EXPECT_LE(refusal.size(), 200U);
  }
}

TEST(StringConversion, GoesBothWaysForValidText) {
  const std::vector<std::pair<std::string, std::u16string>> rows = {
      {"", u""},
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
  EXPECT_EQ(stringFromUTF16Wstring(L"\x10041\x1F600"), "A\uF600") << "cut to sixteen bits";
}

TEST(StringConversion, ReplacesMalformedText) {
  const std::vector<std::pair<const char*, std::u16string>> rows = {
      {"\xC3", u"\uFFFD"},                                // cut short
      {"\xC3(", u"\uFFFD("},                              // the next character survives
      {"\xF0\x9F\x98\xC3\xA9", u"\uFFFD\u00E9"},          // one for the longest beginning
      {"\xC0\x80", u"\uFFFD\uFFFD"},                      // overlong
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above 0x10FFFF
  };
  for (const auto& [bytes, units] : rows)
    EXPECT_EQ(utf16FromUTF8(bytes), units) << bytes;
  const std::u16string high(1, 0xD83D);
  const std::u16string low(1, 0xDE00);
  EXPECT_EQ(utf8FromUTF16(high + high + low), "\uFFFD\U0001F600");
  EXPECT_EQ(utf8FromUTF16(low + high), "\uFFFD\uFFFD");
}

TEST(StringConversion, ReadsMultibyteTextInTheLocale) {
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
  EXPECT_EQ(string_conversion::wide("gr\u00fcn \U0001F600"), L"gr\u00fcn \U0001F600");
  EXPECT_EQ(string_conversion::wide(std::string("cut\0off", 7)), L"cut");
  EXPECT_THROW(string_conversion::wide("\xC3("), mbcs_to_wide_string_conversion_exception);
  std::setlocale(LC_ALL, "C");
}

TEST(StatusText, PutsAStatusInWordsWithItsNumber) {
  const std::vector<std::pair<Status, const char*>> rows = {
      {0, "no error (0)"},
      {-43, "file not found (-43)"},
      {0x2005, "operation not supported by the device (0x2005)"},
      {status::kIOReturnExclusiveAccess, "in use by another program (0xe00002c5)"},
      {status::ioKitStatus(0xE00003FF), "status 0xe00003ff"},
      {-12345, "status -12345"},
      {0x2FFF, "status 12287 (0x2fff)"}};
  for (const auto& [value, text] : rows)
    EXPECT_EQ(statusText(value), text);
}

}  // namespace
}  // namespace tarvo
