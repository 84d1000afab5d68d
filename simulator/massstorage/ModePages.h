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
#include "simulator/massstorage/ScsiCodes.h"
#include "simulator/usb/HostViolations.h"

namespace tarvo::simulator {

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
