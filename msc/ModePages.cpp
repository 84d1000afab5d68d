#include "msc/ModePages.h"

#include <algorithm>

namespace tarvo {
namespace {

// Both pages stand behind the header of the parameter list.
// The maker's own pages; their layout is in no standard. SPC has the header and the two bytes in
// front (7.5).
constexpr std::size_t kPageCodeAt = 8;

constexpr std::uint8_t kUSBModePageLength = 7;
constexpr std::size_t kModeFlagsAt = 10;
constexpr std::size_t kPowerDownAt = 11;
constexpr std::size_t kDelayAt = 12;
constexpr std::size_t kDelaySize = 4;
/// The page counts in tens of the caller's unit.
constexpr std::uint32_t kDelayDivisor = 10;

constexpr std::uint8_t kAutoPowerCycle = 0x01;
constexpr std::uint8_t kVariableAutoWakeup = 0x02;
constexpr std::uint8_t kCompositeDevice = 0x04;

constexpr std::uint8_t kClockPageLength = 14;
constexpr std::size_t kDigitsAt = 10;

bool hasBits(std::byte value, std::uint8_t bits) {
  return (std::to_integer<std::uint8_t>(value) & bits) != 0;
}

/// A boolean, or a number that is not 0.
bool truthUnder(const PropertyDictionary& dictionary, const char* key) {
  const auto found = dictionary.find(key);
  if (found == dictionary.end()) return false;
  return (found->is_boolean() && found->get<bool>()) || (found->is_number() && *found != 0);
}

std::uint8_t modeFlagsOf(const PropertyDictionary& mode) {
  unsigned flags = 0;
  if (truthUnder(mode, "cameraMode")) flags |= usb_mode::kCamera;
  if (truthUnder(mode, "startupMode")) flags |= usb_mode::kStartup;
  if (truthUnder(mode, "memoryMode")) flags |= usb_mode::kMemory;
  if (truthUnder(mode, "permanent")) flags |= usb_mode::kPermanent;
  return static_cast<std::uint8_t>(flags);
}

}  // namespace

USBModePage usbModePage(std::uint8_t modeFlags, bool powerDown, std::uint32_t autowakeDelay) {
  USBModePage page{};
  page[kPageCodeAt] = std::byte{kUSBModePageCode};
  page[kModePageLengthAt] = std::byte{kUSBModePageLength};
  page[kModeFlagsAt] = std::byte{modeFlags};
  // The delay means something only to a unit that goes to sleep.
  if (!powerDown) return page;
  page[kPowerDownAt] = std::byte{1};
  std::uint32_t rest = autowakeDelay / kDelayDivisor;
  for (std::size_t at = kDelayAt + kDelaySize; at-- > kDelayAt; rest >>= 8)
    page[at] = static_cast<std::byte>(rest);
  return page;
}

USBModePage smartFinderUSBModePage(const PropertyDictionary& mode) {
  const auto delay = static_cast<std::uint32_t>(int32ForKey(mode, "autowakeDelay").value_or(0));
  return usbModePage(modeFlagsOf(mode), truthUnder(mode, "powerDown"), delay);
}

std::optional<PropertyDictionary> dictionaryFromUSBModePage(std::span<const std::byte> page,
                                                            std::optional<bool> autoRestart) {
  // A shorter page has none of the capabilities to show.
  if (page.size() < kUSBModePageSize) return std::nullopt;
  // Least significant byte first and not scaled, unlike what is written: intended, see
  // docs/oddities.md.
  std::uint32_t autoWakeup = 0;
  for (std::size_t at = kDelayAt + kDelaySize; at-- > kDelayAt;)
    autoWakeup = autoWakeup << 8 | std::to_integer<std::uint32_t>(page[at]);
  const std::byte flags = page[kModeFlagsAt];
  const std::byte capabilities = page[kUSBModeCapabilities];
  return PropertyDictionary{
      {"supportsAutoPowerCycle", autoRestart.value_or(hasBits(capabilities, kAutoPowerCycle))},
      {"supportsVariableAutoWakeup", hasBits(capabilities, kVariableAutoWakeup)},
      {"isCompositeDevice", hasBits(capabilities, kCompositeDevice)},
      {"cameraMode", hasBits(flags, usb_mode::kCamera)},
      {"startupMode", hasBits(flags, usb_mode::kStartup)},
      {"memoryMode", hasBits(flags, usb_mode::kMemory)},
      {"autoWakeup", autoWakeup}};
}

bool supportsAutoPowerCycle(std::span<const std::byte> page) {
  return page.size() >= kUSBModePageSize && hasBits(page[kUSBModeCapabilities], kAutoPowerCycle);
}

std::string localDateText(std::time_t date, const char* format) {
  // The unit has no zone: its clock shows what the user's shows.
  std::tm local = {};
  if (!::localtime_r(&date, &local)) return {};
  std::array<char, 64> text;
  return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
}

void fillClockPage(ClockPage& page, const std::string& digits) {
  page[kPageCodeAt] = std::byte{kClockPageCode};
  page[kModePageLengthAt] = std::byte{kClockPageLength};
  // A year of five digits would run into the next field.
  const std::size_t count = std::min<std::size_t>(digits.size(), kClockPageLength);
  std::transform(digits.begin(), digits.begin() + static_cast<std::ptrdiff_t>(count),
                 page.begin() + kDigitsAt,
                 [](char digit) { return static_cast<std::byte>(digit); });
}

}  // namespace tarvo
