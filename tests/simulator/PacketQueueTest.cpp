#include "simulator/usb/VirtualUSBDevice.h"

#include <gmock/gmock.h>

namespace tarvo::simulator {
namespace {

using State = InResult::State;

/// A queue of packets of 64 bytes with one transfer in it.
PacketQueue queueOf(std::size_t size, bool zeroLengthPacket = true) {
  PacketQueue queue(64);
  OutgoingTransfer transfer;
  transfer.payload = std::make_shared<BytesPayload>(Bytes(size));
  transfer.zeroLengthPacket = zeroLengthPacket;
  queue.push(std::move(transfer));
  return queue;
}

TEST(PacketQueue, EndsATransferWhereTheBusWould) {
  struct Row {
    std::size_t size;
    std::size_t room;
    std::size_t length;
    State state;
    bool zeroLengthPacket;
  };
  const Row rows[] = {
      {12, 512, 12, State::kShort, true},     // a short packet
      {64, 512, 64, State::kShort, true},     // the zero-length packet
      {64, 64, 64, State::kFull, true},       // the zero-length packet is still to come
      {64, 512, 64, State::kWaiting, false},  // nothing ends it
      {100, 64, 64, State::kFull, true},     {100, 128, 100, State::kShort, true},
      {100, 70, 64, State::kOverflow, true},  // the second packet may be larger than 6 bytes
      {0, 64, 0, State::kShort, true},
  };
  for (const auto& row : rows) {
    auto queue = queueOf(row.size, row.zeroLengthPacket);
    Bytes room(row.room);
    const auto result = queue.fill(room);
    EXPECT_EQ(result.state, row.state) << row.size << " into " << row.room;
    EXPECT_EQ(result.length, row.length) << row.size << " into " << row.room;
  }
}

TEST(PacketQueue, SendsTheZeroLengthPacketInATransferOfItsOwn) {
  auto queue = queueOf(64);
  Bytes room(64);
  EXPECT_EQ(queue.fill(room).state, State::kFull);
  const auto second = queue.fill(room);
  EXPECT_EQ(second.state, State::kShort);
  EXPECT_EQ(second.length, 0U);
  EXPECT_TRUE(queue.isEmpty());
}

TEST(PacketQueue, KeepsWhatIsNotDueYet) {
  PacketQueue queue(64);
  OutgoingTransfer late;
  late.payload = std::make_shared<BytesPayload>(Bytes(12));
  late.notBefore = std::chrono::steady_clock::now() + std::chrono::hours(1);
  queue.push(std::move(late));
  Bytes room(64);
  EXPECT_EQ(queue.fill(room).state, State::kWaiting);
  EXPECT_FALSE(queue.isEmpty());
}

}  // namespace
}  // namespace tarvo::simulator
