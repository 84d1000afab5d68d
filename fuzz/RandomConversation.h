// A conversation of a few transactions with a random device.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <utility>

#include "fuzz/RandomUSBDevice.h"
#include "tests/ptp/Connecting.h"

namespace tarvo::test {

class RandomConversation {
 public:
  /// The first two bytes choose packet size and room, the others are the device.
  explicit RandomConversation(std::span<const std::uint8_t> bytes) {
    constexpr std::uint16_t kPackets[] = {8, 64, 512, 1024};
    constexpr std::size_t kRooms[] = {0, 12, 500, 2048, 16384, 70000, 3000000};
    if (bytes.size() < 2) return;
    room_ = kRooms[bytes[1] % std::size(kRooms)];
    most_ = bytes[1] < 128 ? SIZE_MAX : 700;
    ptp::Timeouts timeouts;
    timeouts.bulk = timeouts.control = timeouts.takeOver = std::chrono::milliseconds(50);
    timeouts.recovery = std::chrono::milliseconds(0);
    ptp::BulkConnection connection(
        std::make_unique<RandomUSBDevice>(bytes.subspan(2), kPackets[bytes[0] % 4]), timeouts,
        LogSink(), "random");
    receive(connection, 0x1001);
    static_cast<void>(connection.openSession());
    receive(connection, 0x1009);
    send(connection, 0x100D);
    receive(connection, 0x9204);
  }

  bool keptToTheRoom() const { return keptToTheRoom_; }

 private:
  /// Each of its exact size, and kept from one conversation to the next: making a large one takes
  /// longer than all the rest.
  static std::map<std::size_t, Bytes>& rooms() {
    static std::map<std::size_t, Bytes> rooms;
    return rooms;
  }
  Bytes takeRoom() const {
    Bytes& room = rooms()[room_];
    if (room.size() != room_) room = Bytes(room_);
    return std::move(room);
  }
  void receive(ptp::BulkConnection& connection, std::uint16_t operation) {
    ptp::PiecewiseSink sink(takeRoom(), most_);
    ptp::Transaction transaction{.operation = operation, .receive = &sink};
    static_cast<void>(connection.transact(transaction, nullptr));
    keptToTheRoom_ = keptToTheRoom_ && sink.inOrder();
    rooms()[room_] = sink.takeMemory();
  }
  void send(ptp::BulkConnection& connection, std::uint16_t operation) {
    ptp::PiecewiseSource source(takeRoom(), most_);
    ptp::Transaction transaction{.operation = operation, .send = &source};
    static_cast<void>(connection.transact(transaction, nullptr));
    rooms()[room_] = source.takeBytes();
  }

  std::size_t room_ = 0;
  std::size_t most_ = 0;
  bool keptToTheRoom_ = true;
};

}  // namespace tarvo::test
