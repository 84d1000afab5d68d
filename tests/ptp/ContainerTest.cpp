#include "platform/imagecapture/ptp/Container.h"

#include <gmock/gmock.h>

#include "tests/support/ScriptedUSBDevice.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
namespace wire = test::wire;

TEST(Container, DecodesAHeaderOnlyWhenItIsWholeAndCoversItself) {
  const Bytes whole = wire::container(12, 2, 0x9204, 0xA0B0C0D0);
  EXPECT_EQ(decodeHeader(whole)->transactionID, 0xA0B0C0D0U);
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_FALSE(decodeHeader(std::span(whole).first(size))) << size;
  EXPECT_FALSE(decodeHeader(wire::container(11, 2, 0x9204, 1)));
}

TEST(Container, TakesAResponseWithZeroToFiveParametersAndAByteBehindThem) {
  Transaction answered;
  EXPECT_TRUE(decodeResponse(wire::response(0x2005, 9), 9, answered).done());
  Bytes odd = wire::response(0x2005, 9);
  odd.push_back(std::byte{0});
  odd.front() = static_cast<std::byte>(odd.size());
  EXPECT_TRUE(decodeResponse(odd, 9, answered).done()) << "a byte that belongs to no parameter";
  EXPECT_EQ(answered.responseCode, 0x2005);
  EXPECT_EQ(answered.responseParameterCount, 0U);
  EXPECT_TRUE(decodeResponse(wire::response(0x2001, 9, {1, 2, 3, 4, ~0U}), 9, answered).done());
  EXPECT_THAT(answered.responseParameters, testing::ElementsAre(1, 2, 3, 4, ~0U));
}

TEST(Container, ReadsTheHaltedEndpointsOfADeviceStatusAsFarAsTheyCame) {
  Bytes bytes;
  for (const auto& [value, size] : {std::pair{12, 2}, {0x201F, 2}, {0x81, 4}, {0x02, 4}})
    wire::append(bytes, static_cast<std::uint64_t>(value), size);
  const auto status = decodeDeviceStatus(bytes);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->code, 0x201F);
  ASSERT_EQ(status->haltedCount, 2U);
  EXPECT_EQ(status->haltedEndpoints[1], 0x02);
  EXPECT_EQ(decodeDeviceStatus(std::span(bytes).first(11))->haltedCount, 1U);
  EXPECT_EQ(decodeDeviceStatus(std::span(bytes).first(4))->haltedCount, 0U);
  EXPECT_FALSE(decodeDeviceStatus(std::span(bytes).first(3)));
}

}  // namespace
}  // namespace tarvo::ptp
