// One SCSI command over an open SCSI generic node.
//
//   SgCommand command{.block = block, .data = page, .direction =
//   Direction::kFromInitiatorToTarget}; const SgOutcome outcome = executeSgCommand(node,
//   "/dev/sg1", command, log);
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "Utilities/FileDescriptor.h"
#include "Utilities/LogSink.h"
#include "Utilities/Status.h"
#include "platform/iokit/SCSITask.h"

namespace tarvo {

/// A generic node that is open; kept by a command that nobody waits for any more.
using SgNode = std::shared_ptr<const FileDescriptor>;

/// Everything in it is lent.
struct SgCommand {
  std::span<const std::byte> block;  ///< 6, 10, 12 or 16 bytes
  /// Cleared before the target writes to it.
  std::span<std::byte> data = {};
  SCSITaskInterface::Direction direction = SCSITaskInterface::Direction::kNone;
  /// Counted in whole seconds, upwards.
  std::chrono::milliseconds timeout = std::chrono::seconds(6);
  /// Gets sense data where there are some; bytes beyond them stay as they are.
  std::span<std::byte> sense = {};
};

/// How it ended. No number in it is larger than the area that it counts.
struct [[nodiscard]] SgOutcome {
  /// Why the system did not take the command; 0 when it did.
  Status submitted = status::kOK;
  /// Why the unit did not answer; 0 when it did.
  Status delivered = status::kOK;
  /// What the unit answered (SAM-5, 5.3.1), when it did.
  std::uint8_t taskStatus = scsi::kNoTaskStatus;
  /// Bytes of data that moved. The library tells what was left over of data that came, not of data
  /// that went: those count as a whole.
  std::size_t realised = 0;

  Status failure() const { return submitted != status::kOK ? submitted : delivered; }
};

/// The IOKit status for a system call on a generic node that failed: somebody has it exclusively,
/// no permission, the unit has gone, or another reason.
[[nodiscard]] Status ioKitStatusOfErrno(int error);

/// Waits for the unit, at most for the time-out and what the kernel takes to recover from it. Where
/// `interrupted`, which may be null, is or becomes true the command is not sent, or not waited for
/// any more: the unit may carry it out all the same, and nothing that is lent is touched any more.
/// What goes out and comes back is logged in hexadecimal at debug level; `name` names the unit
/// there. Raises std::system_error where there is no thread to be had.
SgOutcome executeSgCommand(const SgNode& node, std::string_view name, const SgCommand& command,
                           const LogSink& log, const std::atomic<bool>* interrupted = nullptr);

}  // namespace tarvo
