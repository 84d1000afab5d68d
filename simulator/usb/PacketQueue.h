// What a device has to send on one IN endpoint, as transfers that are cut into packets.
//
// A host asks for a number of bytes; the bus gives it whole packets until one is shorter than the
// endpoint's packet size, which ends the transfer (USB 2.0, 5.8.3). A transfer of an exact multiple
// of that size is ended by a packet of no length. A host that asks for less than a whole packet
// when one of full size comes gets an overflow. All three are where real hosts go wrong.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>

#include "simulator/bytes/Payload.h"
#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// One container on its way to the host.
struct OutgoingTransfer {
  std::shared_ptr<const Payload> payload;
  bool zeroLengthPacket = true;  ///< after an exact multiple of the packet size
  bool thenGone = false;         ///< the device vanishes where this one ends
  bool overflows = false;        ///< its first packet is larger than any room
  std::chrono::steady_clock::time_point notBefore{};  ///< nothing of it is sent earlier
  std::uint64_t offset = 0;                           ///< bytes sent so far
};

/// Not locked: its device calls it under its own lock.
class PacketQueue {
 public:
  /// `packetSize`: of the endpoint, in bytes.
  explicit PacketQueue(std::uint16_t packetSize) : packetSize_(packetSize) {}

  void push(OutgoingTransfer transfer) { transfers_.push_back(std::move(transfer)); }
  void clear() { transfers_.clear(); }
  bool isEmpty() const { return transfers_.empty(); }
  /// When the transfer in front may be sent; none when there is none.
  std::optional<std::chrono::steady_clock::time_point> due() const {
    if (transfers_.empty()) return std::nullopt;
    return transfers_.front().notBefore;
  }

  /// Fills `room` packet by packet until a short packet, the room's end or the queue's.
  InResult fill(std::span<std::byte> room);

 private:
  /// Sends from the transfer in front; kWaiting means that the next one may follow at once.
  InResult fillFromFront(std::span<std::byte> room);
  /// The last `length` bytes of the transfer in front have gone into `room`: how it ends.
  InResult finishFront(std::span<std::byte> room, std::size_t length);

  std::uint16_t packetSize_;
  std::deque<OutgoingTransfer> transfers_;
};

}  // namespace tarvo::simulator
