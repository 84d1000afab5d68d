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
#include <span>

#include "simulator/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// Bytes that are made when they are asked for, so that a large object takes no memory.
class Payload {
 public:
  virtual ~Payload() = default;
  virtual std::uint64_t size() const = 0;  ///< bytes; does not change
  /// Fills `room` with the bytes from `offset` on; never beyond the end.
  virtual void read(std::uint64_t offset, std::span<std::byte> room) const = 0;
};

/// Bytes in memory.
class BytesPayload : public Payload {
 public:
  explicit BytesPayload(Bytes bytes) : bytes_(std::move(bytes)) {}
  std::uint64_t size() const override { return bytes_.size(); }
  void read(std::uint64_t offset, std::span<std::byte> room) const override;

 private:
  Bytes bytes_;
};

/// `head`, then as many bytes of `body` as `bodySize` says.
class JoinedPayload : public Payload {
 public:
  JoinedPayload(Bytes head, std::shared_ptr<const Payload> body, std::uint64_t bodySize)
      : head_(std::move(head)), body_(std::move(body)), bodySize_(bodySize) {}
  std::uint64_t size() const override { return head_.size() + bodySize_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override;

 private:
  Bytes head_;
  std::shared_ptr<const Payload> body_;
  std::uint64_t bodySize_;
};

/// One container on its way to the host.
struct OutgoingTransfer {
  std::shared_ptr<const Payload> payload;
  bool zeroLengthPacket = true;  ///< after an exact multiple of the packet size
  bool thenGone = false;         ///< the device vanishes where this one ends
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
