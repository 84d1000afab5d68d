// What a device sends on the bulk-in endpoint: data and response containers, spoilt by the faults
// that strike.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

#include "simulator/description/Faults.h"
#include "simulator/ptp/PTPMessages.h"
#include "simulator/usb/PacketQueue.h"

namespace tarvo::simulator {

/// Not locked: its device calls it under its own lock.
class DeviceAnswers {
 public:
  /// `faults` belongs to the device and outlives it; `packetSize` is the endpoint's.
  DeviceAnswers(const Faults& faults, std::uint16_t packetSize)
      : faults_(faults), queue_(packetSize) {}

  /// Queues data and response of a transaction.
  void send(const PTPRequest& request, const PTPReply& reply);
  /// Queues pseudo-random bytes in their place.
  void sendGarbage(const PTPRequest& request);

  PacketQueue& queue() { return queue_; }
  const PacketQueue& queue() const { return queue_; }

 private:
  using Time = std::chrono::steady_clock::time_point;
  void sendData(const PTPRequest& request, const PTPReply& reply, Time when);
  /// The transaction id to answer with, which a fault falsifies.
  std::uint32_t answerID(const PTPRequest& request) const;
  OutgoingTransfer transfer(std::shared_ptr<const Payload> payload, Time when) const;

  const Faults& faults_;
  PacketQueue queue_;
};

/// A command, response or event container, which hold nothing but parameters.
Bytes parameterContainer(std::uint16_t type, std::uint16_t code, std::uint32_t transactionID,
                         const std::vector<std::uint32_t>& parameters);

}  // namespace tarvo::simulator
