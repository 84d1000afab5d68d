#include "NativeServices/PictureDevice/XTUInt128.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/Raised.h"

namespace tarvo {
namespace {

using test::raised;

const std::string kDigits = "00ff10a9b8c7d6e5f403122130405060";
const XTUInt128 kValue = {0x00, 0xff, 0x10, 0xa9, 0xb8, 0xc7, 0xd6, 0xe5,
                          0xf4, 0x03, 0x12, 0x21, 0x30, 0x40, 0x50, 0x60};

TEST(UInt128, ShowsTwoLowerCaseDigitsAByteAndNothingForZero) {
  EXPECT_EQ(XTUInt128AsHexString(kValue), kDigits);
  EXPECT_EQ(XTUInt128AsHexString({}), "");
  for (std::size_t i = 0; i < 16; ++i) {
    XTUInt128 single = {};
    single[i] = 1;
    std::string expected(32, '0');
    expected[2 * i + 1] = '1';
    EXPECT_EQ(XTUInt128AsHexString(single), expected);
  }
}

TEST(UInt128, ReadsThirtyTwoDigitsOfEitherCase) {
  for (const auto& digits : {kDigits, std::string("00FF10A9B8C7D6E5F403122130405060")}) {
    XTUInt128 digest = {};
    EXPECT_TRUE(XTHexStringAsUInt128(digits, &digest));
    EXPECT_EQ(digest, kValue);
  }
}

TEST(UInt128, RefusesEveryOtherText) {
  std::vector<std::string> refused = {"",
                                      kDigits.substr(1),
                                      kDigits + "0",
                                      "0x" + kDigits,
                                      " " + kDigits.substr(1),
                                      kDigits.substr(1) + "\n"};
  for (const char wrong : {'g', 'G', '/', ':', '@', '`', ' ', '-', '\0', '\x80'}) {
    for (const std::size_t at : {0U, 1U, 31U}) {
      refused.push_back(kDigits);
      refused.back()[at] = wrong;
    }
  }
  for (const auto& text : refused) {
    XTUInt128 digest = {};
    EXPECT_FALSE(XTHexStringAsUInt128(text, &digest)) << text;
  }
}

TEST(UInt128, KeepsTheBytesBeforeAWrongDigit) {
  XTUInt128 digest;
  digest.fill(0xEE);
  EXPECT_FALSE(XTHexStringAsUInt128("00ff1x" + kDigits.substr(6), &digest));
  EXPECT_EQ(digest[0], 0x00);
  EXPECT_EQ(digest[1], 0xff);
  EXPECT_EQ(digest[2], 0xEE);
}

TEST(UInt128, NamesAMissingArgument) {
  XTUInt128 digest = {};
  const std::string prefix = "NSInternalInconsistencyException: Invalid parameter not satisfying: ";
  EXPECT_EQ(raised([&] { XTHexStringAsUInt128(std::nullopt, &digest); }), prefix + "hexString");
  EXPECT_EQ(raised([&] { XTHexStringAsUInt128(kDigits, nullptr); }), prefix + "digest");
}

}  // namespace
}  // namespace tarvo
