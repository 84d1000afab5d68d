// The mode pages of a virtual unit: the maker's USB mode (0x25), model (0x26) and clock (0x29), and
// what an optical unit says of itself (0x2A, MMC-3). What a host selects is kept and checked.
//
//   ModePages pages(description, violations);
//   const auto answer = pages.sense(0x25, 0, 8, faults);
//   if (const auto failed = pages.select(list, 8)) ...
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "simulator/description/DeviceDescription.h"
#include "simulator/usb/HostViolations.h"

namespace tarvo::simulator {

// Codes of SCSI that a virtual unit knows (SPC-4, SBC-3, MMC-6).

/// The first byte of a command block.
enum ScsiOpcode : std::uint8_t {
  kTestUnitReady = 0x00,
  kRequestSense = 0x03,
  kInquiry = 0x12,
  kModeSelect6 = 0x15,
  kModeSense6 = 0x1A,
  kStartStopUnit = 0x1B,
  kPreventAllowMediumRemoval = 0x1E,
  kReadFormatCapacities = 0x23,
  kReadCapacity10 = 0x25,
  kRead10 = 0x28,
  kWrite10 = 0x2A,
  kSynchronizeCache10 = 0x35,
  kReadTOC = 0x43,
  kGetConfiguration = 0x46,
  kGetEventStatusNotification = 0x4A,
  kReadDiscInformation = 0x51,
  kModeSelect10 = 0x55,
  kModeSense10 = 0x5A,
  kServiceActionIn16 = 0x9E,
};

/// Status of a command that has failed, for which there is a sense (SAM-5, 5.3.1).
inline constexpr std::uint8_t kCheckCondition = 0x02;

/// Why a command failed: sense key, additional code and qualifier (SPC-4, 4.5).
struct Sense {
  std::uint8_t key = 0;
  std::uint8_t code = 0;
  std::uint8_t qualifier = 0;
  bool operator==(const Sense&) const = default;
};

namespace sense {
inline constexpr Sense kNoMedium{0x02, 0x3A, 0x01};  ///< tray closed
inline constexpr Sense kTrayOpen{0x02, 0x3A, 0x02};
inline constexpr Sense kMediumUnreadable{0x03, 0x11, 0x00};
inline constexpr Sense kParameterListLength{0x05, 0x1A, 0x00};
inline constexpr Sense kInvalidOpcode{0x05, 0x20, 0x00};
inline constexpr Sense kBlockOutOfRange{0x05, 0x21, 0x00};
inline constexpr Sense kInvalidFieldInBlock{0x05, 0x24, 0x00};
inline constexpr Sense kInvalidFieldInParameters{0x05, 0x26, 0x00};
inline constexpr Sense kRemovalPrevented{0x05, 0x53, 0x02};
inline constexpr Sense kMediumChanged{0x06, 0x28, 0x00};
inline constexpr Sense kWriteProtected{0x07, 0x27, 0x00};
inline constexpr Sense kTransferError{0x0B, 0x4B, 0x00};  ///< aborted command, data phase error
}  // namespace sense

/// What the page of the USB mode says; selected by a host, or as described.
struct UsbModeState {
  std::uint8_t flags = 0;   ///< byte 10: 1 start-up, 2 memory, 4 camera mode; 0x80 permanent
  bool powerDown = false;   ///< byte 11
  std::uint32_t delay = 0;  ///< bytes 12 to 15, big-endian
  bool isSelected = false;  ///< a host has selected it
  bool isCamera() const { return (flags & 0x04) != 0; }
};

/// Not locked: its unit guards it.
class ModePages {
 public:
  ModePages(const DeviceDescription& description, HostViolations& violations);

  /// The answer to MODE SENSE for a page (0x3F: all), with a header of 4 or 8 bytes; none where
  /// there is no such page. `control`: 0 current values, 1 changeable ones, 2 default ones (SPC-4,
  /// 6.11).
  std::optional<Bytes> sense(std::uint8_t page, std::uint8_t control, std::size_t headerSize,
                             const Faults& faults) const;
  /// Takes the parameter list of MODE SELECT; why it was refused, or none.
  std::optional<Sense> select(std::span<const std::byte> list, std::size_t headerSize);

  const UsbModeState& mode() const { return mode_; }
  /// Date and time as they were selected, "20240615120000"; or as described.
  const std::string& clock() const { return clock_; }

 private:
  /// Code, length and what follows; empty where there is none of that code.
  Bytes page(std::uint8_t code) const;
  Bytes usbModePage() const;
  const ModePageLies* liesOf(std::uint8_t code) const;
  std::optional<Sense> selectUsbMode(std::span<const std::byte> page);
  std::optional<Sense> selectClock(std::span<const std::byte> page);
  std::uint8_t capabilities() const;
  /// The host is told nothing but the sense; the test is told why.
  Sense refuse(const std::string& complaint);

  ModePagesDescription description_;
  bool isOptical_;
  HostViolations& violations_;
  UsbModeState mode_;
  std::string clock_ = "20240101000000";
};

}  // namespace tarvo::simulator
