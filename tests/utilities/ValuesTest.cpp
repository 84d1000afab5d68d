#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/Format.h"
#include "Utilities/FourCharCode.h"
#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"

namespace tarvo {
namespace {

TEST(Format, HoldsTextOfAnyLength) {
  for (const std::size_t length : {0U, 253U, 254U, 255U, 256U, 257U, 100000U}) {
    const std::string text(length, 'x');
    EXPECT_EQ(formatted("<%s>", text.c_str()), "<" + text + ">");
  }
}

TEST(FourCharCode, HasItsFirstCharacterOnTop) {
  static_assert(fourCharCode("icdv") == 0x69636476);
  EXPECT_EQ(fourCharText(0x41001F7F), "A???");
  EXPECT_EQ(fourCharTextReversed(0x410020FF), "? ?A");
}

TEST(PropertyDictionary, GivesTextOnlyWhereThereIsText) {
  const PropertyDictionary dictionary = {{"text", "a"}, {"number", 1}, {"none", nullptr}};
  EXPECT_EQ(textForKey(dictionary, "text"), "a");
  for (const char* key : {"number", "none", "absent"})
    EXPECT_EQ(textForKey(dictionary, key), std::nullopt) << key;
  EXPECT_EQ(textForKey(PropertyDictionary(), "text"), std::nullopt);
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

TEST(PropertyDictionary, FindsTheLastPathComponent) {
  const std::vector<std::pair<const char*, const char*>> rows = {
      {"a/b/c.app", "c.app"}, {"/a/b///", "b"}, {"", ""}, {"//", ""}, {"/a", "a"}};
  for (const auto& [path, expected] : rows)
    EXPECT_EQ(lastPathComponent(path), expected) << path;
}

TEST(StatusText, PutsAStatusInWordsWithItsNumber) {
  const std::vector<std::pair<Status, const char*>> rows = {
      {0, "no error (0)"},
      {-43, "file not found (-43)"},
      {0x2005, "operation not supported by the device (0x2005)"},
      {0x10000005, "e-mail address too long (0x10000005)"},
      {status::kIOReturnExclusiveAccess, "in use by another program (0xe00002c5)"},
      {status::ioKitStatus(0xE00003FF), "status 0xe00003ff"},
      {-12345, "status -12345"},
      {0x2FFF, "status 12287 (0x2fff)"},
      {-2147483647 - 1, "status -2147483648"},
  };
  for (const auto& [value, text] : rows)
    EXPECT_EQ(statusText(value), text);
}

TEST(StatusText, NeverSaysTheSameOfTwoStatuses) {
  std::set<std::string> texts;
  std::size_t count = 0;
  for (Status value = -10000; value <= 0x2100; ++value, ++count)
    texts.insert(statusText(value));
  for (Status value = status::ioKitStatus(0xE0000280); value < status::ioKitStatus(0xE0000380);
       ++value, ++count)
    texts.insert(statusText(value));
  for (Status value = 0x10000000; value <= 0x10000020; ++value, ++count)
    texts.insert(statusText(value));
  EXPECT_EQ(texts.size(), count);
}

}  // namespace
}  // namespace tarvo
