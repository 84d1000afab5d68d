// Containers of PTP over USB: what a command, the head of a data phase and a response look like on
// the wire (PIMA 15740:2000, annex D). All numbers are little-endian there.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/ptp/Outcome.h"
#include "platform/imagecapture/ptp/PTPConnection.h"

namespace tarvo::ptp {

/// Announced by a device that does not know how much data comes, or that has 4 GiB and more: the
/// data phase then ends with a short packet.
inline constexpr std::uint32_t kUnknownLength = 0xFFFFFFFF;
/// Both a command and a response carry 0 to 5 parameters (ISO 15740).
inline constexpr std::size_t kMaximumParameters = 5;
inline constexpr std::size_t kMaximumBlockSize = kContainerHeaderSize + 4 * kMaximumParameters;

/// The 12 bytes that every container begins with. Containers follow each other on the bulk
/// endpoints without anything in between; an event container uses the interrupt endpoint.
struct ContainerHeader {
  std::uint32_t length = 0;  ///< header included
  std::uint16_t type = 0;    ///< a ContainerType
  std::uint16_t code = 0;
  /// Of the transaction that the container belongs to; 0 outside a session.
  std::uint32_t transactionID = 0;
};

/// Writes the header to the first 12 bytes of `bytes`, which has room for it.
void encodeHeader(const ContainerHeader& header, std::span<std::byte> bytes);

/// None when there are fewer than 12 bytes, or when the length does not cover the header itself.
std::optional<ContainerHeader> decodeHeader(std::span<const std::byte> bytes);

/// A command block: the header and the operation's parameters.
struct CommandBlock {
  std::array<std::byte, kMaximumBlockSize> bytes{};
  std::size_t size = 0;
};
/// Parameters beyond `parameterCount` are left out, not sent as zeros: some devices refuse a
/// command that is longer than its operation wants.
CommandBlock encodeCommand(const Transaction& transaction, std::uint32_t transactionID);

/// Reads one whole response block into `transaction`. kBroken when it is none, when its length is
/// not that of the bytes that came or does not fit 0 to 5 parameters, or when it answers another
/// transaction.
Outcome decodeResponse(std::span<const std::byte> bytes, std::uint32_t transactionID,
                       Transaction& transaction);

/// The payload of a cancel request: the cancellation code and the transaction it is for.
/// Sent by a Cancel Request, bRequest 0x64 (Still Image Capture Device Definition, 5.2.1).
std::array<std::byte, 6> encodeCancelRequest(std::uint32_t transactionID);

/// What GetDeviceStatus gives: a PTP response code and the halted endpoints, if any.
/// Busy is 0x2019, and 0x201F a transaction that was cancelled; anything but 0x2001 means that the
/// device has not come to rest yet (Still Image Capture
/// Device Definition, 5.2.4).
struct DeviceStatus {
  std::uint16_t code = 0;
  std::array<std::uint8_t, 4> haltedEndpoints{};
  std::size_t haltedCount = 0;
};
inline constexpr std::size_t kDeviceStatusSize = 20;  ///< four endpoints at most
/// None for fewer than the 4 bytes of length and code. Endpoints are taken as far as they came, and
/// as far as the length that the device gives covers them.
std::optional<DeviceStatus> decodeDeviceStatus(std::span<const std::byte> bytes);

/// Little-endian numbers at the beginning of `bytes`, which is long enough.
std::uint16_t decodeUInt16(std::span<const std::byte> bytes);
std::uint32_t decodeUInt32(std::span<const std::byte> bytes);

/// The first bytes in hexadecimal, for messages about what should not have come.
std::string inHex(std::span<const std::byte> bytes);

// Events out of the packets of the interrupt endpoint.

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
