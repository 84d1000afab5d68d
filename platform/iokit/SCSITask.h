// SCSI commands to one unit: an interface for multimedia commands (MMC-6), which needs no exclusive
// access, and tasks for everything else, which do.
//
//   auto mmc = services.createMMCDevice(service, failure);
//   Status called = mmc->modeSense10(false, false, 0, 0x25, header, taskStatus);
//
// Every function returns an IOKit status: 0, or why the command could not be carried out at all.
// What the unit answered is the task status (SAM-5, 5.3.1), beside it. Main thread only; a call
// waits for the unit, at most for its time-out.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "Utilities/Status.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Task statuses (SAM-5, 5.3.1).
namespace scsi {
inline constexpr std::uint8_t kGood = 0x00;
inline constexpr std::uint8_t kCheckCondition = 0x02;
inline constexpr std::uint8_t kBusy = 0x08;
inline constexpr std::uint8_t kReservationConflict = 0x18;
/// What a status area holds before a unit has answered; no unit sends it.
inline constexpr std::uint8_t kNoTaskStatus = 0xFF;
}  // namespace scsi

/// How the delivery of a task ended (SAM-5, 5.4.1). The numbers are part of log lines.
enum class SCSIServiceResponse : std::uint8_t {
  kRequestInProcess = 0,
  kServiceDeliveryOrTargetFailure = 1,
  kTaskComplete = 2,
  kLinkCommandComplete = 3,
  kFunctionComplete = 4,
};

/// One command. What is lent to it must live until it has been executed.
class SCSITaskInterface {
 public:
  enum class Direction { kNone, kFromInitiatorToTarget, kFromTargetToInitiator };

  virtual ~SCSITaskInterface() = default;
  /// 6, 10, 12 or 16 bytes.
  [[nodiscard]] virtual Status setCommandDescriptorBlock(std::span<const std::byte> block) = 0;
  /// The data area, lent; it is written to where the target sends. At most `transferCount` bytes
  /// move.
  [[nodiscard]] virtual Status setScatterGatherEntries(std::span<std::byte> data,
                                                       std::uint64_t transferCount,
                                                       Direction direction) = 0;
  [[nodiscard]] virtual Status setTimeoutDuration(std::chrono::milliseconds duration) = 0;
  /// Waits for the end. `sense` gets sense data where there are some; bytes beyond them are left as
  /// they are. `realised` counts the bytes that moved.
  [[nodiscard]] virtual Status executeTaskSync(std::span<std::byte> sense, std::uint8_t& taskStatus,
                                               std::uint64_t& realised) = 0;
  [[nodiscard]] virtual Status getSCSIServiceResponse(SCSIServiceResponse& response) = 0;
};

/// A unit that tasks can be made for.
class SCSITaskDeviceInterface {
 public:
  virtual ~SCSITaskDeviceInterface() = default;
  /// 0xE00002C5 when somebody else has the unit.
  [[nodiscard]] virtual Status obtainExclusiveAccess() = 0;
  /// 0xE00002CD without exclusive access.
  [[nodiscard]] virtual Status releaseExclusiveAccess() = 0;
  /// Null when there is none to be had.
  virtual std::unique_ptr<SCSITaskInterface> createSCSITask() = 0;
};

/// Whether the tray may be opened under a lock that the system has put on the medium.
enum class TrayLock { kReleased, kRespected };

/// A unit's multimedia commands. Each opens the unit for itself, so that nothing is held open.
/// `sense` gets sense data (SPC-4, 4.5) of an answer that has some; bytes beyond them are left as
/// they are.
class MMCDeviceInterface {
 public:
  virtual ~MMCDeviceInterface() = default;
  /// MODE SENSE(10) (SPC-4, 6.12) into `buffer`, whose size is the allocation length. Bytes that
  /// the unit did not send are zero. An answer that is none, but tells of something that has
  /// happened to the unit (UNIT ATTENTION), is not given on: the unit is asked again, twice at
  /// most.
  [[nodiscard]] virtual Status modeSense10(bool llbaa, bool dbd, std::uint8_t pageControl,
                                           std::uint8_t page, std::span<std::byte> buffer,
                                           std::uint8_t& taskStatus,
                                           std::span<std::byte> sense) = 0;
  /// Opens or closes the tray: START STOP UNIT (SBC-3, 5.25). A lock that is to be released is so
  /// before it opens (PREVENT ALLOW MEDIUM REMOVAL), and again where the system is quicker. Any
  /// answer but GOOD is a failure of the call.
  [[nodiscard]] virtual Status setTrayState(bool isOpen, TrayLock lock,
                                            std::span<std::byte> sense) = 0;
  /// Null when there is none to be had.
  virtual std::shared_ptr<SCSITaskDeviceInterface> getSCSITaskDeviceInterface() = 0;
};

/// Makes the interfaces of units.
class SCSIServices {
 public:
  virtual ~SCSIServices() = default;
  /// For the SCSI unit behind `service`; null, with an IOKit status, where there is no such unit or
  /// it has no generic node.
  virtual std::shared_ptr<MMCDeviceInterface> createMMCDevice(ServiceHandle service,
                                                              Status& failure) = 0;
};

}  // namespace tarvo
