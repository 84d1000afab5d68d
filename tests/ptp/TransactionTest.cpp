// Transactions with a device that keeps to the protocol, in all the ways in which it may.
#include <gtest/gtest.h>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

constexpr std::size_t kFirst = 16384;  // Of the first read, before the device has shown its speed.

using test::Bytes;
using test::USBScript;
namespace wire = test::wire;

constexpr std::uint16_t kOperation = 0x1009;

struct Received {
  Status status = 0;
  std::string why;
  Transaction transaction;
  Bytes bytes;
};

/// One transaction outside a session that receives into `room` bytes, given `most` at a time.
Received receive(USBScript& script, std::size_t room, std::size_t most = SIZE_MAX) {
  Received result;
  PiecewiseSink sink(room, most);
  result.transaction.operation = kOperation;
  result.transaction.receive = &sink;
  auto connection = connectTo(script);
  result.status = connection->transact(result.transaction, &result.why);
  EXPECT_TRUE(sink.inOrder());
  result.bytes.assign(sink.memory().begin(),
                      sink.memory().begin() + static_cast<std::ptrdiff_t>(sink.filled()));
  return result;
}

TEST(Transaction, ReceivesDataOfEverySizeWhicheverWayTheDevicePutsItIntoPackets) {
  enum Form { kTogether, kHeaderApart, kUnterminated, kUnknownSize };
  const std::size_t sizes[] = {0,     1,     499,         500,         501,         512,
                               1012,  1024,  kFirst - 13, kFirst - 12, kFirst - 11, kFirst,
                               32768, 32756, 100000,      1U << 20,    5U << 20,    (5U << 20) + 7};
  for (std::uint16_t packet : {64, 512, 1024}) {
    for (std::size_t size : sizes) {
      for (Form form : {kTogether, kHeaderApart, kUnterminated, kUnknownSize}) {
        SCOPED_TRACE(testing::Message()
                     << size << " bytes, form " << form << ", packet " << packet);
        const Bytes payload = wire::payload(size);
        const Bytes whole = form == kUnknownSize
                                ? wire::data(kOperation, 0, payload, 0xFFFFFFFF - 12)
                                : wire::data(kOperation, 0, payload);
        USBScript script(packet);
        script.out(wire::command(kOperation, 0));
        if (form == kHeaderApart) {
          script.in(Bytes(whole.begin(), whole.begin() + 12));
          if (size > 0) script.in(payload);
        } else if (form == kUnterminated) {
          script.inUnterminated(whole);
        } else {
          script.in(whole);
        }
        script.in(wire::response(0x2001, 0, {5}));

        const Received got = receive(script, size);
        EXPECT_EQ(got.status, 0) << got.why;
        EXPECT_EQ(got.transaction.responseCode, 0x2001);
        EXPECT_EQ(got.transaction.bytesReceived, size);
        EXPECT_TRUE(got.bytes == payload);
        EXPECT_EQ(script.report(), "");
      }
    }
  }
}

TEST(Transaction, FillsRoomsOfAnySizeInOrderAndDropsTheRest) {
  const Bytes payload = wire::payload(100000);
  const std::pair<std::size_t, std::size_t> rows[] = {
      {0, SIZE_MAX}, {1, SIZE_MAX}, {16372, SIZE_MAX}, {99999, SIZE_MAX},
      {20000, 4096}, {100000, 13},  {100000, 512},     {100000, 513},
  };
  for (const auto& [room, most] : rows) {
    for (std::uint32_t announced : {100000U, 0xFFFFFFFFU - 12}) {
      USBScript script;
      script.out(wire::command(kOperation, 0)).in(wire::data(kOperation, 0, payload, announced));
      script.in(wire::response(0x2001, 0));
      const Received got = receive(script, room, most);
      EXPECT_EQ(got.status, 0) << got.why;
      EXPECT_EQ(got.transaction.bytesReceived, payload.size());
      EXPECT_TRUE(std::ranges::equal(got.bytes, std::span(payload).first(room))) << room << most;
      EXPECT_EQ(script.report(), "");
    }
  }
}

TEST(Transaction, PassesOverEmptyPacketsButNotForEver) {
  USBScript script;
  script.out(wire::command(kOperation, 0)).in({}).in({}).in(wire::response(0x2001, 0));
  EXPECT_EQ(receive(script, 0).status, 0);
  EXPECT_EQ(script.report(), "");

  USBScript endless;
  endless.answers(kOperation, 0).out(wire::command(kOperation, 0));
  for (int i = 0; i < 5; ++i)
    endless.in({});
  endless.recovery(0);
  auto connection = connectTo(endless);
  Transaction transaction{.operation = kOperation};
  EXPECT_EQ(connection->transact(transaction, nullptr), 0);
  EXPECT_EQ(connection->transact(transaction, nullptr), status::kICAProtocolError);
  EXPECT_EQ(endless.report(), "");
}

TEST(Transaction, SendsDataOfEverySizeAndEndsFullPacketsWithAnEmptyOne) {
  constexpr std::size_t kPiece = 1U << 20;
  const std::pair<std::size_t, std::size_t> rows[] = {
      {0, 1},
      {1, 1},
      {500, 500},
      {kFirst - 11, 1},
      {2 * kFirst, 100},  // Less than a packet at a time.
      {kPiece * 6 + 500, kPiece},
      {kPiece * 6 + 5, kPiece},
  };
  for (const auto& [size, most] : rows) {
    SCOPED_TRACE(size);
    USBScript script;
    const Bytes payload = wire::payload(size);
    script.out(wire::command(0x100D, 0));
    script.outInPieces(wire::data(0x100D, 0, payload));
    script.in(wire::response(0x2001, 0));
    PiecewiseSource source(payload, most);
    Transaction transaction{.operation = 0x100D, .send = &source};
    EXPECT_EQ(connectTo(script)->transact(transaction, nullptr), 0);
    EXPECT_EQ(transaction.responseCode, 0x2001);
    EXPECT_EQ(script.report(), "");
    EXPECT_TRUE(script.mostInFlight() == kTransfersInFlight || size <= 3 * kPiece);
    EXPECT_LE(script.mostInFlight(), std::size_t{DataSource::kMaximumInFlight});
  }
}

/// One transaction of each direction on a connection in step, where the answer is asked for before
/// the command has gone. `prepare` says what is wrong with the device.
void expectBothDirections(const std::function<void(USBScript&)>& prepare, std::size_t size) {
  const Bytes payload = wire::payload(size);
  USBScript script;
  script.opens();
  auto connection = connectTo(script);
  ASSERT_EQ(connection->openSession(), 0);
  prepare(script);
  script.in(wire::data(kOperation, 1, payload)).in(wire::response(0x2001, 1));
  PiecewiseSink sink(size, SIZE_MAX);
  Transaction receiving{.operation = kOperation, .receive = &sink};
  std::string why;
  EXPECT_EQ(connection->transact(receiving, &why), 0) << why;
  EXPECT_TRUE(sink.inOrder() && sink.memory() == payload);

  script.out(wire::command(0x100D, 2)).outInPieces(wire::data(0x100D, 2, payload));
  script.in(wire::response(0x2001, 2));
  script.answers(0x1003, 3);
  PiecewiseSource source(payload, SIZE_MAX);
  Transaction sending{.operation = 0x100D, .send = &source};
  EXPECT_EQ(connection->transact(sending, &why), 0) << why;
  connection.reset();
  EXPECT_EQ(script.report(), "");
}

TEST(Transaction, DoesNotCareWhichEndpointIsHandedBackFirstOrWasHaltedBefore) {
  const auto readsFirst = [](USBScript& script) {
    script.readsFirst = true;
    script.out(wire::command(kOperation, 1));
  };
  const auto halted = [](USBScript& script) {
    script.inEnds(TransferResult::kStalled).out(wire::command(kOperation, 1));
    script.deviceStatus(0x2001).clearHalt(0x81);
  };
  expectBothDirections(readsFirst, 3000000);
  expectBothDirections(halted, 100);
}

TEST(Transaction, GoesOnForAsLongAsASlowDeviceMovesAnything) {
  // The time-outs are a fortieth of the usual ones.
  for (const std::size_t bytesPerSecond : {40 * 3000, 40 * 230000})
    expectBothDirections(
        [&](USBScript& script) {
          script.bytesPerSecond = bytesPerSecond;
          script.out(wire::command(kOperation, 1));
        },
        5000000);
}

TEST(Transaction, MakesDoWithTheMemoryThatTheSystemHas) {
  for (const std::size_t bytes : {1000, 40000, 3000000})
    expectBothDirections(
        [&](USBScript& script) {
          script.memory = bytes;
          script.out(wire::command(kOperation, 1));
        },
        5000000);
}

TEST(Transaction, RefusesWhatNoContainerHoldsBeforeAnythingIsSent) {
  class HugeSource : public DataSource {
   public:
    std::uint64_t size() const override { return 0x100000000; }
    std::span<const std::byte> bytes(std::uint64_t, std::size_t) override { return {}; }
  } huge;
  USBScript script;
  auto connection = connectTo(script);
  Transaction tooLarge{.operation = 0x100D, .send = &huge};
  EXPECT_EQ(connection->transact(tooLarge, nullptr), status::kBadParameter);
  Transaction tooMany{.operation = 0x100D, .parameterCount = 6};
  EXPECT_EQ(connection->transact(tooMany, nullptr), status::kBadParameter);
  EXPECT_EQ(script.report(), "");
}

}  // namespace
}  // namespace tarvo::ptp
