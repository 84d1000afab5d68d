// What can go wrong with a virtual PTP device, by name. A fault belongs to one operation or to
// every operation, may be set at any time, and holds until it is taken off.
//
//   Faults faults;
//   faults.set("stall", "0x1001");                // GetDeviceInfo stalls
//   faults.strikes(Fault::kStall, 0x1001);        // true
//   faults.set("stall", "off");
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo::simulator {

/// Names and forms for texts are in Faults::help().
enum class Fault : std::uint8_t {
  kStall,                 ///< the bulk-in endpoint halts instead of an answer
  kSilent,                ///< no answer at all
  kWrongTransactionID,    ///< data and response carry another transaction's id
  kGarbage,               ///< pseudo-random bytes instead of an answer
  kTruncate,              ///< the DeviceInfo data set ends after that many bytes
  kLieShort,              ///< the data container claims fewer bytes than it has
  kLieLong,               ///< the data container claims more bytes than it has
  kRaise,                 ///< the response is General Error (0x2002)
  kVanish,                ///< the device is unplugged in the middle of the data
  kDelay,                 ///< each answer comes that many milliseconds late
  kSplitHeader,           ///< container header and payload in separate packets
  kOmitZeroLengthPacket,  ///< no zero-length packet after an exact multiple of the packet size
};
inline constexpr std::size_t kFaultCount = 12;

/// A value; not locked, so its owner guards it where several threads use it.
class Faults {
 public:
  /// Sets a fault by its name. `value` is what the fault takes: an operation code (empty: every
  /// operation, for "raise" 0x9009 and 0x920A), a number of bytes or milliseconds, or nothing;
  /// "off" takes the fault off. Returns what is wrong, in words; empty when nothing is.
  std::string set(std::string_view name, std::string_view value);

  /// Whether the fault strikes in this operation.
  bool strikes(Fault fault, std::uint16_t operation) const;
  /// The number of bytes or milliseconds of a fault that has one.
  std::optional<std::uint32_t> amount(Fault fault) const { return at(fault); }

  /// Names with what they take, one a line, for help texts.
  static std::string help();

 private:
  const std::optional<std::uint32_t>& at(Fault fault) const {
    return values_[static_cast<std::size_t>(fault)];
  }
  /// By Fault; none: off. An operation code, a number, or a mark for every operation.
  std::array<std::optional<std::uint32_t>, kFaultCount> values_;
};

}  // namespace tarvo::simulator
