// The two bulk endpoints of a device as a transaction uses them: transfers in flight, waits with a
// limit, and the count of what went over the wire.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/imagecapture/ptp/Outcome.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// Transfers in flight at a time, in either direction.
/// Enough for the bus to stay busy while one that has ended is handed over; each costs a piece of
/// the system's memory for USB (usbfs_memory_mb, 16 MiB for all processes by default).
inline constexpr std::size_t kTransfersInFlight = 4;

/// Main thread only. Transfers of one direction at a time; a buffer is lent until its transfer was
/// taken with nextIn() or nextOut(), or until cancelAll().
/// How much patience a wait has is the least of three: its own limit, what the budget of the
/// transaction has left, and the deadline of whatever the transaction is a part of.
class BulkPipe {
 public:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;

  /// `device` and `interrupted`, which may be null, are lent for the lifetime of the pipe.
  explicit BulkPipe(USBDevice& device, const std::atomic<bool>* interrupted = nullptr)
      : device_(device), interrupted_(interrupted) {}

  /// Bytes of a full packet, 8 to 1024. A shorter packet ends a transfer (USB 2.0, 5.8.3).
  std::size_t inPacketSize() const { return device_.endpoints().bulkInPacketSize; }
  std::size_t outPacketSize() const { return device_.endpoints().bulkOutPacketSize; }

  /// Bytes of one large transfer: 1 MiB at high speed, less on slow devices, so that a transfer
  /// that moves at all ends within its time-out. A multiple of the packet size.
  static std::size_t pieceSize(std::size_t packetSize);

  /// Puts a read in flight. The size of `buffer` is a multiple of the packet size: a device that
  /// sends a whole packet into less room would make it an overflow, which loses data.
  void submitIn(std::span<std::byte> buffer);
  /// Puts a write in flight; no bytes are a zero-length packet.
  void submitOut(std::span<const std::byte> bytes);

  /// Takes the oldest transfer in flight, waiting at most `limit` for it.
  /// `length` is what it brought, also of one that failed. kTimedOut leaves it in flight, and so
  /// does kCancelled: somebody has interrupted the transaction that the budget is for.
  Outcome nextIn(std::size_t& length, Milliseconds limit);
  /// The same for an OUT transfer of `size` bytes; kFailed when fewer moved.
  Outcome nextOut(std::size_t size, Milliseconds limit);

  /// One transfer from submission to end.
  Outcome read(std::span<std::byte> buffer, std::size_t& length, Milliseconds limit);
  Outcome write(std::span<const std::byte> bytes, Milliseconds limit);

  /// Nothing is in flight afterwards, and every buffer is its lender's again.
  void cancelAll();

  /// No wait goes beyond `deadline` until it is taken back with none.
  void setDeadline(std::optional<Clock::time_point> deadline) { deadline_ = deadline; }
  /// `limit`, or what is left until the deadline.
  Milliseconds patience(Milliseconds limit) const;

  /// From now on all waits for transfers together take `budget` at most, until progressed() gives
  /// the whole of it again. The time between two waits is the caller's own and does not count.
  void startBudget(Milliseconds budget);
  /// Payload has moved.
  void progressed() { budgetLeft_ = budget_.value_or(Milliseconds{0}); }
  /// Waits have only their own limits again, and the deadline; they cannot be interrupted either.
  void endBudget() { budget_.reset(); }

  /// Whether somebody wants an end of it now.
  bool isInterrupted() const { return interrupted_ != nullptr && interrupted_->load(); }
  /// For what has to be done all the same.
  void ignoreInterruption() { interrupted_ = nullptr; }

  /// Bytes are counted here; transactions are counted by who runs them.
  WireStatistics& statistics() { return statistics_; }
  const WireStatistics& statistics() const { return statistics_; }

 private:
  /// Takes the oldest transfer. Endpoints end theirs in order, so one that is out of turn is a
  /// failure of the bus.
  Outcome next(TransferCompletion& completion, Milliseconds limit, std::uint8_t endpoint);
  /// Waits, and takes the time of it off the budget.
  std::optional<TransferCompletion> waitWithinBudget(Milliseconds limit);
  /// Waits, and ends early when it is interrupted.
  std::optional<TransferCompletion> waitInterruptibly(Milliseconds limit);

  USBDevice& device_;
  const std::atomic<bool>* interrupted_;
  std::uint64_t oldest_ = 0;  ///< tag of the oldest transfer in flight
  std::uint64_t newest_ = 0;  ///< tag of the next one
  std::optional<Clock::time_point> deadline_;
  std::optional<Milliseconds> budget_;
  Clock::duration budgetLeft_{};  ///< of budget_, and without meaning where there is none
  WireStatistics statistics_;
};

}  // namespace tarvo::ptp
