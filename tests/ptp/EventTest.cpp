// Containers, and events from the packets of the interrupt endpoint to whoever watches them.
#include <gmock/gmock.h>

#include <stdexcept>

#include "platform/imagecapture/ptp/BulkPipe.h"
#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::USBScript;
using testing::ElementsAre;
using testing::IsEmpty;
namespace wire = test::wire;

Bytes event(std::uint16_t code, std::initializer_list<std::uint32_t> parameters = {}) {
  return wire::block(4, code, 7, parameters);
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes whole;
  for (const Bytes& part : parts)
    whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

/// The codes of what comes out of a string of bytes that goes in by full packets and a last one.
std::vector<unsigned> codesOf(EventAssembler& assembler, const Bytes& bytes, std::size_t packet) {
  std::vector<unsigned> codes;
  for (std::size_t at = 0; at == 0 || at < bytes.size(); at += packet) {
    const auto part = std::span(bytes).subspan(at, std::min(packet, bytes.size() - at));
    for (const Event& each : assembler.take(part))
      codes.push_back(each.code);
  }
  return codes;
}

TEST(Events, AreTakenOutOfPacketsHoweverTheyAreCutOrJoined) {
  const Bytes three = joined({event(0x4002, {1}), event(0x4004), event(0x4006, {1, 2, 3})});
  for (const std::size_t packet : {1, 8, 12, 16, 24, 52, 64, 1024}) {
    EventAssembler assembler(packet);
    EXPECT_THAT(codesOf(assembler, three, packet), ElementsAre(0x4002, 0x4004, 0x4006)) << packet;
    EXPECT_THAT(codesOf(assembler, three, packet), ElementsAre(0x4002, 0x4004, 0x4006)) << packet;
  }
  const auto whole = EventAssembler(64).take(event(0xC001, {5, ~0U}));
  ASSERT_EQ(whole.size(), 1U);
  EXPECT_EQ(whole[0].transactionID, 7U);
  EXPECT_EQ(whole[0].parameterCount, 2U);
  EXPECT_THAT(whole[0].parameters, ElementsAre(5, ~0U, 0));
}

TEST(Events, ThatAreMalformedAreDroppedAndTheNextOnesHeard) {
  const std::pair<const char*, Bytes> rows[] = {
      {"nothing", {}},
      {"zeros", Bytes(64)},
      {"shorter than a header", wire::container(11, 4, 0x4002, 0)},
      {"four parameters", event(0x4002, {1, 2, 3, 4})},
      {"half a parameter", wire::container(14, 4, 0x4002, 0)},
      {"endless", wire::container(0xFFFFFFFF, 4, 0x4002, 0)},
      {"a response", wire::response(0x2001, 7)},
      {"cut", wire::container(16, 4, 0x4002, 0)},
      {"three bytes", Bytes(3, std::byte{12})},
  };
  for (const auto& [name, bytes] : rows) {
    EventAssembler assembler(64);
    EXPECT_THAT(codesOf(assembler, bytes, 64), IsEmpty()) << name;
    EXPECT_THAT(codesOf(assembler, event(0x4005), 64), ElementsAre(0x4005)) << name;
  }
  // What stands before the mistake counts, and packets that are filled up with zeros are usual.
  EventAssembler assembler(64);
  EXPECT_THAT(codesOf(assembler, joined({event(0x4002), Bytes(52)}), 64), ElementsAre(0x4002));
  EXPECT_THAT(codesOf(assembler, event(0x4005), 64), ElementsAre(0x4005));
}

TEST(Events, LetTheirHandlerEndTheWatchingOrTheConnectionOrRaise) {
  USBScript script;
  auto connection = connectTo(script);
  std::vector<unsigned> heard;
  connection->watchEvents([&](const Event& each) {
    heard.push_back(each.code);
    if (heard.size() == 1) throw std::runtime_error("no matter");
    connection->watchEvents(nullptr);
  });
  script.interrupt(joined({event(1), event(2), event(3)}));
  EXPECT_THAT(heard, ElementsAre(1, 2)) << "none after the watching has ended";
  connection->watchEvents([&](const Event& each) {
    heard.push_back(each.code);
    connection.reset();
  });
  script.interrupt(joined({event(4), event(5)}));
  EXPECT_THAT(heard, ElementsAre(1, 2, 4));
}

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
