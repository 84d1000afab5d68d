// Events out of the packets of the interrupt endpoint.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "platform/imagecapture/ptp/PTPConnection.h"

namespace tarvo::ptp {

/// An event is a container of type 4 with up to three parameters (PIMA 15740, annex D, "Event
/// container"). One that is longer than a packet goes on in the next; several may share a packet. A
/// packet that is not full ends the container in it (USB 2.0, 5.7.3), whole or not.
class EventAssembler {
 public:
  /// `packetSize` is that of the endpoint, in bytes.
  explicit EventAssembler(std::size_t packetSize) : packetSize_(packetSize) {}

  /// The events that are whole with this packet. What is no event is dropped with all that the
  /// packet still holds: there is no telling where the next one would begin.
  std::vector<Event> take(std::span<const std::byte> packet);

 private:
  /// The container at the front of what came: its length, 0 when more has to come first.
  /// None when it is no event.
  std::optional<std::size_t> frontLength() const;

  std::size_t packetSize_;
  std::vector<std::byte> pending_;  ///< less than a container, and one packet
};

}  // namespace tarvo::ptp
