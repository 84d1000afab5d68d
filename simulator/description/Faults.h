// What can go wrong with a virtual device, by name. A fault strikes in every transaction, in those
// of one operation, or at a chosen one; it may be set at any time. A transaction of a mass-storage
// unit is a SCSI command, and its operation is the first byte of the command block.
//
//   Faults faults;
//   faults.set("stall", "0x1001");       // every GetDeviceInfo
//   faults.set("silent", "0x1009,@3");   // the third GetObject from now on, and only that
//   faults.set("delay", "250us");        // every answer
//   faults.begin(0x1001);
//   faults.strikes(Fault::kStall);       // true
//   faults.set("stall", "off");
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo::simulator {

/// Which faults a device has: the wires of the two kinds differ.
enum class FaultTarget : std::uint8_t { kPTP, kUnit };

/// Names and forms for texts are in Faults::help().
enum class Fault : std::uint8_t {
  kStall,                 ///< the bulk-in endpoint halts instead of an answer
  kStallOut,              ///< the bulk-out endpoint halts when the host's data arrive
  kSilent,                ///< no answer at all
  kWrongTransactionID,    ///< data and response carry another transaction's id
  kGarbage,               ///< pseudo-random bytes instead of an answer
  kTruncate,              ///< the data set ends after that many bytes, and says so
  kShort,                 ///< a short packet ends the data half-way
  kBabble,                ///< a packet larger than the host has room for
  kLieShort,              ///< the data container claims fewer bytes than it has
  kLieLong,               ///< the data container claims more bytes than it has
  kRaise,                 ///< the response is General Error (0x2002)
  kRespond,               ///< the response is that code
  kVanish,                ///< the device is unplugged in the middle of the data
  kDelay,                 ///< each answer comes that many microseconds late
  kTrickle,               ///< each packet comes that many microseconds after the one before
  kStop,                  ///< the data container ends after that many bytes, and nothing follows
  kEndless,               ///< bytes without an end instead of an answer
  kDeaf,                  ///< nothing is answered on endpoint 0
  kSplitHeader,           ///< container header and payload in separate packets
  kOmitZeroLengthPacket,  ///< no zero-length packet after an exact multiple of the packet size
  // Of a mass-storage unit.
  kSense,           ///< CHECK CONDITION with that key, code and qualifier
  kStatus,          ///< that SCSI status
  kPhaseError,      ///< the status wrapper says phase error
  kWrongTag,        ///< the status wrapper carries another command's tag
  kWrongSignature,  ///< the status wrapper does not begin with its signature
  kModeLength,      ///< the mode data length is that number
  kPageLength,      ///< the length byte of the mode page is that number
  kVanishCommand,   ///< the device is unplugged when the command arrives
  kVanishStatus,    ///< the device is unplugged instead of the status
};
inline constexpr std::size_t kFaultCount = 29;

/// A value; not locked, so its owner guards it where several threads use it.
class Faults {
 public:
  explicit Faults(FaultTarget target = FaultTarget::kPTP) : target_(target) {}

  /// Sets a fault by its name. `value` is a list with commas: first the number of a fault that
  /// takes one (bytes, a code, milliseconds or "250us"), then in any order an operation
  /// code, "@N" (the N-th transaction from now, of that operation where one is given; "@N+": from
  /// that one on) and "once". "off" takes the fault off. Returns what is wrong, in words; empty
  /// when nothing is.
  std::string set(std::string_view name, std::string_view value);

  /// A transaction begins: decides what strikes in it.
  void begin(std::uint16_t operation);
  /// Whether the fault strikes in the transaction that was begun last.
  bool strikes(Fault fault) const { return struck_[index(fault)].has_value(); }
  /// The number of a fault that takes one, where it strikes: bytes, code or microseconds.
  std::optional<std::uint32_t> amount(Fault fault) const { return struck_[index(fault)]; }

  /// Names with what they take, one a line, for help texts.
  static std::string help(FaultTarget target);

 private:
  struct Setting {
    std::optional<std::uint16_t> operation;  ///< none: the fault's own, or every one
    std::uint32_t amount = 0;
    std::uint32_t wait = 0;  ///< transactions to let pass first
    bool once = false;
  };
  static std::size_t index(Fault fault) { return static_cast<std::size_t>(fault); }
  /// Reads one word of a value; false where it is none.
  static bool readWord(std::string_view word, Setting& setting);
  bool concerns(Fault fault, const Setting& setting, std::uint16_t operation) const;

  FaultTarget target_;
  std::array<std::optional<Setting>, kFaultCount> settings_;      ///< by Fault; none: off
  std::array<std::optional<std::uint32_t>, kFaultCount> struck_;  ///< in this transaction
};

}  // namespace tarvo::simulator
