// The vendor's USB mode page: which way the unit comes up on USB, whether it powers down, and when
// it wakes. With the parameter header of MODE SENSE(10) (SPC-4, 7.5.5) in front, as it is
// exchanged:
//
//   offset  size
//   0       8     mode parameter header, zero when written
//   8       1     page code, 0x25
//   9       1     page length, 7
//   10      1     mode flags
//   11      1     1: power down
//   12      4     auto-wake delay, big-endian, a tenth of what the caller says
//   16      1     capabilities, which only the unit fills
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

inline constexpr std::uint8_t kUSBModePageCode = 0x25;
inline constexpr std::size_t kUSBModePageSize = 17;
/// Of every page: its length, behind the parameter header and the page code.
inline constexpr std::size_t kModePageLengthAt = 9;
/// Where the unit tells what it can do.
inline constexpr std::size_t kUSBModeCapabilities = 16;

using USBModePage = std::array<std::byte, kUSBModePageSize>;

namespace usb_mode {
inline constexpr std::uint8_t kStartup = 0x01;
inline constexpr std::uint8_t kMemory = 0x02;
inline constexpr std::uint8_t kCamera = 0x04;
inline constexpr std::uint8_t kPermanent = 0x80;
}  // namespace usb_mode

/// The page with these mode flags. Without `powerDown` there is no delay.
USBModePage usbModePage(std::uint8_t modeFlags, bool powerDown, std::uint32_t autowakeDelay);

/// The page that a dictionary describes: "cameraMode", "startupMode", "memoryMode", "permanent" and
/// "powerDown" (booleans), "autowakeDelay" (number). What is absent is false, or 0.
USBModePage smartFinderUSBModePage(const PropertyDictionary& mode);

/// What a page says: "supportsAutoPowerCycle", "supportsVariableAutoWakeup", "isCompositeDevice",
/// "cameraMode", "startupMode", "memoryMode" and "autoWakeup". `autoRestart`, where there is one,
/// stands in place of the first. None for fewer than 17 bytes.
std::optional<PropertyDictionary> dictionaryFromUSBModePage(std::span<const std::byte> page,
                                                            std::optional<bool> autoRestart);

/// Whether the unit says that it can power-cycle by itself; false for fewer than 17 bytes.
bool supportsAutoPowerCycle(std::span<const std::byte> page);

// The vendor's clock page, which sets the unit's clock: the parameter header of MODE SELECT(10) as
// 8 zero bytes, page code 0x29, page length 14, and local time as 14 digits, "20261125041500".

inline constexpr std::uint8_t kClockPageCode = 0x29;
inline constexpr std::size_t kClockPageSize = 24;

using ClockPage = std::array<std::byte, kClockPageSize>;

/// `date` in the local time zone, formatted as by strftime(3); empty for one that has no calendar
/// date.
std::string localDateText(std::time_t date, const char* format);
/// Fills page code, page length and digits in; the rest stays as it is. A year of other than four
/// digits is cut or leaves zero bytes behind.
void fillClockPage(ClockPage& page, const std::string& digits);

}  // namespace tarvo
