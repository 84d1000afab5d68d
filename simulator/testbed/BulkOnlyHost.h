// The host's side of the bulk-only transport, as usb-storage does it: sends a command to a virtual
// unit and brings back data, status and sense (USB Mass Storage Class, Bulk-Only Transport 1.0).
//
//   BulkOnlyHost host(device);
//   const auto outcome = host.execute({block, BulkOnlyHost::Direction::kFromUnit, room, deadline});
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {

class MassStorageUnit;

/// One SCSI command.
struct UnitRequest {
  enum class Direction { kNone, kToUnit, kFromUnit };
  std::span<const std::byte> block;
  Direction direction = Direction::kNone;
  std::span<std::byte> data;  ///< lent; written to where the unit sends
  std::chrono::milliseconds timeout{};
};

struct [[nodiscard]] UnitOutcome {
  enum class Delivery {
    kDone,      ///< the unit has answered
    kTimedOut,  ///< it has not, in the given time; it was reset
    kBroken,    ///< it answered against the protocol; it was reset
    kGone,      ///< it was unplugged
  };
  Delivery delivery = Delivery::kDone;
  std::uint8_t status = 0;  ///< SCSI status
  Bytes sense;              ///< where the status is CHECK CONDITION
  std::size_t residue = 0;  ///< bytes of the data that did not move
};

/// Called by one thread at a time; stop() by any.
class BulkOnlyHost {
 public:
  explicit BulkOnlyHost(std::shared_ptr<MassStorageUnit> unit) : unit_(std::move(unit)) {}

  /// Waits for the unit.
  UnitOutcome execute(const UnitRequest& request);
  /// The unit was unplugged: what waits ends as gone, and so does all that comes.
  void stop();

 private:
  using Delivery = UnitOutcome::Delivery;
  using Deadline = std::chrono::steady_clock::time_point;

  /// A transfer of the bus: how many bytes moved, and how it ended.
  struct Transfer {
    Delivery delivery = Delivery::kDone;
    bool isStalled = false;
    std::size_t length = 0;
  };

  UnitOutcome transport(const UnitRequest& request, Deadline deadline);
  Transfer sendCommand(const UnitRequest& request);
  Transfer moveData(const UnitRequest& request, Deadline deadline);
  UnitOutcome receiveStatus(const UnitRequest& request, Deadline deadline);
  void senseWhy(UnitOutcome& outcome, Deadline deadline);
  Transfer out(std::span<const std::byte> data);
  Transfer in(std::span<std::byte> room, Deadline deadline);
  /// Reset recovery (5.3.4).
  void recover();
  /// Waits until the unit may have more, the deadline or stop(); false once it was stopped.
  bool waitForUnit(Deadline deadline);

  std::shared_ptr<MassStorageUnit> unit_;
  std::uint32_t tag_ = 0;
  std::mutex mutex_;  ///< guards `stopped_`
  std::condition_variable wake_;
  bool stopped_ = false;
};

}  // namespace tarvo::simulator
