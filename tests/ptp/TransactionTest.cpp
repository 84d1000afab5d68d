// Transactions with a device that keeps to the protocol, in all the ways in which it may.
#include <gtest/gtest.h>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::USBScript;
namespace wire = test::wire;

constexpr std::uint16_t kOp = 0x1009;

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
  result.transaction.operation = kOp;
  result.transaction.receive = &sink;
  auto connection = connectTo(script);
  result.status = connection->transact(result.transaction, &result.why);
  EXPECT_TRUE(sink.inOrder());
  result.bytes.assign(sink.memory().begin(),
                      sink.memory().begin() + static_cast<std::ptrdiff_t>(sink.filled()));
  return result;
}

TEST(Transaction, CarriesParametersBothWays) {
  USBScript script;
  script.out(wire::command(0x1006, 0, {0xFFFFFFFF, 0xB203}));
  script.in(wire::response(0x2001, 0, {17, 2}));
  Transaction transaction{
      .operation = 0x1006, .parameters = {0xFFFFFFFF, 0xB203}, .parameterCount = 2};
  EXPECT_EQ(connectTo(script)->transact(transaction, nullptr), 0);
  EXPECT_EQ(transaction.responseCode, 0x2001);
  EXPECT_EQ(transaction.responseParameterCount, 2U);
  EXPECT_EQ(transaction.responseParameters[0], 17U);
  EXPECT_EQ(script.report(), "");
}

TEST(Transaction, ReceivesDataOfEverySizeWhicheverWayTheDevicePutsItIntoPackets) {
  enum Form { kTogether, kHeaderApart, kUnterminated, kUnknownSize };
  const std::size_t sizes[] = {0,     1,     499,    500,      501,      512,
                               1012,  1024,  16371,  16372,    16373,    16384,
                               32768, 32756, 100000, 1U << 20, 5U << 20, (5U << 20) + 7};
  for (std::uint16_t packet : {64, 512, 1024}) {
    for (std::size_t size : sizes) {
      for (Form form : {kTogether, kHeaderApart, kUnterminated, kUnknownSize}) {
        SCOPED_TRACE(testing::Message()
                     << size << " bytes, form " << form << ", packet " << packet);
        const Bytes payload = wire::payload(size);
        const Bytes whole = form == kUnknownSize ? wire::data(kOp, 0, payload, 0xFFFFFFFF - 12)
                                                 : wire::data(kOp, 0, payload);
        if (form == kUnknownSize && size == 0) continue;  // Looks like a header by itself.
        USBScript script(packet);
        script.out(wire::command(kOp, 0));
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

TEST(Transaction, KeepsSeveralTransfersInFlightForLargeData) {
  USBScript script;
  const std::size_t size = 8U << 20;
  script.out(wire::command(kOp, 0)).in(wire::data(kOp, 0, wire::payload(size)));
  script.in(wire::response(0x2001, 0));
  EXPECT_TRUE(receive(script, size).bytes == wire::payload(size));
  EXPECT_EQ(script.mostInFlight(), kTransfersInFlight);
}

TEST(Transaction, FillsRoomsOfAnySizeInOrder) {
  const Bytes payload = wire::payload(50000);
  for (std::size_t most : {1, 13, 511, 512, 513, 4096, 20000}) {
    for (std::uint32_t announced : {50000U, 0xFFFFFFFFU - 12}) {
      USBScript script;
      script.out(wire::command(kOp, 0)).in(wire::data(kOp, 0, payload, announced));
      script.in(wire::response(0x2001, 0));
      const Received got = receive(script, payload.size(), most);
      EXPECT_EQ(got.status, 0) << got.why;
      EXPECT_TRUE(got.bytes == payload) << most;
      EXPECT_EQ(script.report(), "");
    }
  }
}

TEST(Transaction, DropsWhatHasNoRoomAndTakesTheResponse) {
  const Bytes payload = wire::payload(100000);
  for (std::size_t room : {0, 1, 500, 2048, 16372, 20000, 65536, 99999}) {
    for (std::uint32_t announced : {100000U, 0xFFFFFFFFU - 12}) {
      USBScript script;
      script.out(wire::command(kOp, 0)).in(wire::data(kOp, 0, payload, announced));
      script.in(wire::response(0x2001, 0));
      const Received got = receive(script, room);
      EXPECT_EQ(got.status, 0) << got.why;
      EXPECT_EQ(got.transaction.bytesReceived, payload.size());
      EXPECT_TRUE(got.bytes ==
                  Bytes(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(room)));
      EXPECT_EQ(script.report(), "");
    }
  }
}

TEST(Transaction, DrainsADataPhaseThatNobodyAskedFor) {
  USBScript script;
  script.out(wire::command(kOp, 0)).in(wire::data(kOp, 0, wire::payload(3000)));
  script.in(wire::response(0x2001, 0));
  Transaction transaction{.operation = kOp};
  EXPECT_EQ(connectTo(script)->transact(transaction, nullptr), 0);
  EXPECT_EQ(transaction.bytesReceived, 3000U);
  EXPECT_EQ(script.report(), "");
}

TEST(Transaction, TakesAnErrorResponseInPlaceOfData) {
  USBScript script;
  script.out(wire::command(kOp, 0)).in(wire::response(0x2009, 0));
  const Received got = receive(script, 100);
  EXPECT_EQ(got.status, 0);
  EXPECT_EQ(got.transaction.responseCode, 0x2009);
  EXPECT_TRUE(got.bytes.empty());
  EXPECT_EQ(script.report(), "");
}

TEST(Transaction, PassesOverEmptyPacketsButNotForEver) {
  USBScript script;
  script.out(wire::command(kOp, 0)).in({}).in({}).in(wire::response(0x2001, 0));
  EXPECT_EQ(receive(script, 0).status, 0);
  EXPECT_EQ(script.report(), "");

  USBScript endless;
  endless.out(wire::command(kOp, 0));
  for (int i = 0; i < 5; ++i)
    endless.in({});
  endless.recovery(0);
  EXPECT_EQ(receive(endless, 0).status, status::kICAProtocolError);
  EXPECT_EQ(endless.report(), "");
}

/// The transfers in which a data container goes out: the first through a buffer of 16 KiB, then
/// pieces of `piece` bytes, and an empty packet where the last one is full.
void expectDataOut(USBScript& script, const Bytes& container, std::size_t packet,
                   std::size_t piece) {
  std::size_t at = 0;
  for (std::size_t most = 16384; at < container.size(); most = piece) {
    const std::size_t length = std::min(most, container.size() - at);
    const auto begin = container.begin() + static_cast<std::ptrdiff_t>(at);
    script.out(Bytes(begin, begin + static_cast<std::ptrdiff_t>(length)));
    at += length;
  }
  if (container.size() % packet == 0) script.out({});
}

TEST(Transaction, SendsDataOfEverySizeAndEndsFullPacketsWithAnEmptyOne) {
  constexpr std::size_t kPiece = 1U << 20;
  for (std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{500}, std::size_t{501}, std::size_t{16372},
        std::size_t{16373}, kPiece + 16372, kPiece * 6 + 16372, kPiece * 6 + 5}) {
    SCOPED_TRACE(size);
    USBScript script;
    const Bytes payload = wire::payload(size);
    script.out(wire::command(0x100D, 0));
    expectDataOut(script, wire::data(0x100D, 0, payload), 512, kPiece);
    script.in(wire::response(0x2001, 0));
    MemorySource source(payload);
    Transaction transaction{.operation = 0x100D, .send = &source};
    EXPECT_EQ(connectTo(script)->transact(transaction, nullptr), 0);
    EXPECT_EQ(transaction.responseCode, 0x2001);
    EXPECT_EQ(script.report(), "");
    EXPECT_LE(script.mostInFlight(), static_cast<std::size_t>(DataSource::kMaximumInFlight));
  }
}

TEST(Transaction, CollectsASourceThatGivesLessThanAPacketAtATime) {
  USBScript script;
  const Bytes payload = wire::payload(40000);
  script.out(wire::command(0x100D, 0));
  expectDataOut(script, wire::data(0x100D, 0, payload), 512, 16384);
  script.in(wire::response(0x2001, 0));
  PiecewiseSource source(payload, 100);
  Transaction transaction{.operation = 0x100D, .send = &source};
  EXPECT_EQ(connectTo(script)->transact(transaction, nullptr), 0);
  EXPECT_EQ(script.report(), "");
}

TEST(Transaction, EndsACommandOfFullPacketsWithAnEmptyOne) {
  USBScript script(16);
  script.out(wire::command(0x1008, 0, {7})).out({});
  script.in(wire::response(0x2001, 0, {1}));
  Transaction transaction{.operation = 0x1008, .parameters = {7}, .parameterCount = 1};
  EXPECT_EQ(connectTo(script)->transact(transaction, nullptr), 0);
  EXPECT_EQ(script.report(), "");
}

TEST(Transaction, CountsWhatWentOverTheWire) {
  USBScript script;
  script.out(wire::command(kOp, 0)).in(wire::data(kOp, 0, wire::payload(1000)));
  script.in(wire::response(0x2001, 0, {1}));
  MemorySink sink({});
  Transaction transaction{.operation = kOp, .receive = &sink};
  auto connection = connectTo(script);
  EXPECT_EQ(connection->transact(transaction, nullptr), 0);
  EXPECT_EQ(connection->statistics().transactions, 1U);
  EXPECT_EQ(connection->statistics().bytesSent, 12U);
  EXPECT_EQ(connection->statistics().bytesReceived, 1012U + 16U);
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
