// Codes of SCSI that a virtual unit knows (SPC-4, SBC-3, MMC-6).
#pragma once

#include <cstdint>

namespace tarvo::simulator {

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

}  // namespace tarvo::simulator
