#include "platform/imagecapture/ptp/Container.h"

#include <gmock/gmock.h>

#include "platform/imagecapture/ptp/TransactionIDs.h"
#include "tests/support/ScriptedUSBDevice.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
namespace wire = test::wire;

TEST(Container, EncodesACommandWithAsManyParametersAsItHas) {
  Transaction transaction{.operation = 0x1007, .parameters = {0xFFFFFFFF, 0xB203, 7, 8, 9}};
  const std::vector<Bytes> expected = {
      wire::command(0x1007, 3),
      wire::command(0x1007, 3, {0xFFFFFFFF}),
      wire::command(0x1007, 3, {0xFFFFFFFF, 0xB203}),
      wire::command(0x1007, 3, {0xFFFFFFFF, 0xB203, 7}),
      wire::command(0x1007, 3, {0xFFFFFFFF, 0xB203, 7, 8}),
      wire::command(0x1007, 3, {0xFFFFFFFF, 0xB203, 7, 8, 9}),
  };
  for (unsigned count = 0; count < expected.size(); ++count) {
    transaction.parameterCount = count;
    const CommandBlock block = encodeCommand(transaction, 3);
    EXPECT_EQ(Bytes(block.bytes.begin(), block.bytes.begin() + block.size), expected[count]);
  }
}

TEST(Container, DecodesAHeaderOnlyWhenItIsWholeAndCoversItself) {
  const Bytes whole = wire::container(0x01020304, 2, 0x9204, 0xA0B0C0D0);
  const auto header = decodeHeader(whole);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->length, 0x01020304U);
  EXPECT_EQ(header->type, kDataBlock);
  EXPECT_EQ(header->code, 0x9204);
  EXPECT_EQ(header->transactionID, 0xA0B0C0D0U);
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_FALSE(decodeHeader(std::span(whole).first(size))) << size;
  EXPECT_FALSE(decodeHeader(wire::container(11, 2, 0x9204, 1)));
}

TEST(Container, TakesAResponseWithZeroToFiveParameters) {
  Transaction transaction;
  EXPECT_TRUE(decodeResponse(wire::response(0x2005, 9), 9, transaction).done());
  EXPECT_EQ(transaction.responseCode, 0x2005);
  EXPECT_EQ(transaction.responseParameterCount, 0U);
  EXPECT_TRUE(
      decodeResponse(wire::response(0x2001, 9, {1, 2, 3, 4, 0xFFFFFFFF}), 9, transaction).done());
  EXPECT_EQ(transaction.responseParameterCount, 5U);
  EXPECT_THAT(transaction.responseParameters, testing::ElementsAre(1, 2, 3, 4, 0xFFFFFFFF));
}

TEST(Container, RefusesAResponseThatIsNoneOrAnotherOnes) {
  Bytes longer = wire::response(0x2001, 9);
  longer.push_back(std::byte{0});
  const struct {
    const char* name;
    Bytes bytes;
  } rows[] = {
      {"empty", {}},
      {"cut", wire::container(16, 3, 0x2001, 9)},
      {"more than announced", longer},
      {"six parameters", wire::response(0x2001, 9, {1, 2, 3, 4, 5, 6})},
      {"half a parameter", wire::data(0, 0, Bytes(2))},
      {"data", wire::data(0x2001, 9, {})},
      {"command", wire::command(0x2001, 9)},
      {"event", wire::container(12, 4, 0x4002, 9)},
      {"other transaction", wire::response(0x2001, 8)},
  };
  for (const auto& row : rows) {
    Transaction transaction;
    const Outcome outcome = decodeResponse(row.bytes, 9, transaction);
    EXPECT_EQ(outcome.status(), status::kICAProtocolError) << row.name;
    EXPECT_FALSE(outcome.why.empty()) << row.name;
    EXPECT_EQ(transaction.responseCode, 0) << row.name;
  }
}

TEST(Container, ReadsTheHaltedEndpointsOfADeviceStatusAsFarAsTheyCame) {
  Bytes bytes;
  wire::append(bytes, 12, 2);
  wire::append(bytes, 0x201F, 2);
  wire::append(bytes, 0x81, 4);
  wire::append(bytes, 0x02, 4);
  const auto status = decodeDeviceStatus(bytes);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->code, 0x201F);
  ASSERT_EQ(status->haltedCount, 2U);
  EXPECT_EQ(status->haltedEndpoints[0], 0x81);
  EXPECT_EQ(status->haltedEndpoints[1], 0x02);
  EXPECT_EQ(decodeDeviceStatus(std::span(bytes).first(11))->haltedCount, 1U);
  EXPECT_EQ(decodeDeviceStatus(std::span(bytes).first(4))->haltedCount, 0U);
  EXPECT_FALSE(decodeDeviceStatus(std::span(bytes).first(3)));
}

TEST(TransactionIDs, CountFromOneAndLeaveTheReservedValuesOut) {
  TransactionIDs ids;
  EXPECT_EQ(ids.next(), 1U);
  EXPECT_EQ(ids.next(), 2U);
  TransactionIDs late(0xFFFFFFFD);
  EXPECT_EQ(late.next(), 0xFFFFFFFEU);
  EXPECT_EQ(late.next(), 1U);
}

}  // namespace
}  // namespace tarvo::ptp
