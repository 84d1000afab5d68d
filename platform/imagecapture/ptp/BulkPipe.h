// The two bulk endpoints of a device as a transaction uses them: transfers in flight, waits with a
// limit, and the count of what went over the wire.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/ptp/Outcome.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// Transfers in flight at a time, in either direction.
/// Enough for the bus to stay busy while one that has ended is handed over; each costs a piece of
/// the system's memory for USB (usbfs_memory_mb, 16 MiB for all processes by default).
inline constexpr std::size_t kTransfersInFlight = 3;

/// Main thread only. A buffer is lent until its transfer was taken with nextIn() or nextOut(), or
/// until cancelAll(). Transfers of one direction are taken in the order in which they were put in
/// flight; in which order the directions end does not matter.
///
/// How much patience a wait has is the least of four: its own limit, what the budget of the
/// transaction has left, the deadline of whatever the transaction is a part of, and the end of all
/// (Timeouts::whole), behind which nothing is taken any more, however fast it comes. What a
/// transfer has moved is told by the system only once it has ended. So a wait that has a budget
/// ends those in flight now and then, and goes on where they had come to.
///
/// A transfer for which the system has no memory waits until another one has ended. When there is
/// none, it goes in smaller parts.
class BulkPipe {
 public:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;

  /// `device` and what `timeouts` name are lent for the lifetime of the pipe, with which
  /// Timeouts::whole begins.
  BulkPipe(USBDevice& device, const Timeouts& timeouts);

  /// Bytes of a full packet, 8 to 1024. A shorter packet ends a transfer (USB 2.0, 5.8.3).
  std::size_t inPacketSize() const { return in_.packet; }
  std::size_t outPacketSize() const { return out_.packet; }

  /// Bytes of one large transfer, for a device as fast as this one has been so far: from 2 KiB up
  /// to 2 MiB, so that it ends well within the budget. A multiple of the packet size.
  std::size_t inPieceSize() const { return in_.piece; }
  /// Whether nextIn() has something to wait for.
  bool isReading() const { return !in_.transfers.empty(); }
  std::size_t outPieceSize() const { return out_.piece; }

  /// Puts a read in flight. The size of `buffer` is a multiple of the packet size: a device that
  /// sends a whole packet into less room would make it an overflow, which loses data.
  void submitIn(std::span<std::byte> buffer);
  /// Puts a write in flight; no bytes are a zero-length packet.
  void submitOut(std::span<const std::byte> bytes);

  /// Takes the oldest read, waiting at most `limit` for it, and as long again when a part of it has
  /// moved within the budget. `length` is what it brought, also of one that failed. kTimedOut
  /// leaves it in flight, and so do kOutOfTime and kCancelled: somebody has interrupted the
  /// transaction that the budget is for.
  Outcome nextIn(std::size_t& length, Milliseconds limit);
  /// The same for a write of `size` bytes; kFailed when fewer moved.
  Outcome nextOut(std::size_t size, Milliseconds limit);

  /// One transfer from submission to end.
  Outcome read(std::span<std::byte> buffer, std::size_t& length, Milliseconds limit);
  Outcome write(std::span<const std::byte> bytes, Milliseconds limit);

  /// Nothing is in flight afterwards, and every buffer is its lender's again.
  void cancelAll();

  /// No wait goes beyond `deadline` until it is taken back with none.
  void setDeadline(std::optional<Clock::time_point> deadline) { deadline_ = deadline; }
  void extendDeadline(Clock::duration time) {
    if (deadline_) *deadline_ += time;
  }
  /// `limit`, or what is left until the deadline, or the end. Who is interrupted leaves.
  Milliseconds patience(Milliseconds limit);

  /// Whether the end has come, or does within `time`.
  bool isOver(Milliseconds time = {}) const { return end_ && Clock::now() + time >= *end_; }
  /// For who only gets back in step and closes the session: the end is Timeouts::leaving from now
  /// on, once and for all.
  void leave();
  bool isLeaving() const { return isLeaving_; }

  /// From now on all waits for transfers together take `budget` at most, until progressed() gives
  /// the whole of it again. The time between two waits is the caller's own and does not count.
  void startBudget(Milliseconds budget);
  /// Payload has moved.
  void progressed() { budgetLeft_ = budget_.value_or(Milliseconds{0}); }
  /// Waits have only their own limits again, and the deadline; they cannot be interrupted either.
  void endBudget() { budget_.reset(); }

  /// Whether somebody wants an end of it now.
  bool isInterrupted() const { return interrupted_ != nullptr && interrupted_->load(); }
  /// For what has to be done all the same: who is interrupted leaves.
  void ignoreInterruption();

  /// Bytes are counted here; transactions are counted by who runs them.
  WireStatistics& statistics() { return statistics_; }
  const WireStatistics& statistics() const { return statistics_; }

 private:
  /// One that was asked for; the device may get it in several parts.
  struct Transfer {
    enum class State { kHeld, kInFlight, kEnded };
    std::span<std::byte> buffer;
    std::size_t moved = 0;  ///< bytes, in the parts that have ended
    std::size_t part = 0;   ///< size of the one in flight
    std::uint64_t tag = 0;  ///< of that one
    State state = State::kHeld;
    TransferResult result = TransferResult::kCompleted;

    std::size_t left() const { return buffer.size() - moved; }
  };
  struct Direction {
    std::uint8_t endpoint = 0;
    std::size_t packet = 0;
    std::uint64_t& counter;  ///< of the statistics
    std::size_t piece = 0;
    std::size_t mostOfMemory = SIZE_MAX;  ///< the system has none for more at once
    std::deque<Transfer> transfers{};     ///< the oldest first
  };

  void submit(Direction& direction, std::span<std::byte> buffer);
  Outcome next(Direction& direction, std::size_t& length, Milliseconds limit);
  /// Waits until the oldest transfer has ended.
  Outcome awaitOldest(Direction& direction, Milliseconds limit);
  /// Waits, and ends early when a transaction is interrupted, or soon when anything else is.
  std::optional<TransferCompletion> waitInterruptibly(Milliseconds limit);
  /// Ends what is in flight to learn how much of it has moved, and goes on from there. False when
  /// nothing has.
  bool lookForProgress();
  /// False when nobody has asked for what has ended.
  bool take(const TransferCompletion& completion);
  void settle(Direction& direction, Transfer& transfer, const TransferCompletion& completion);
  /// For a part that the system has no memory for.
  void hold(Direction& direction, Transfer& transfer);
  void adaptPiece(Direction& direction, bool grows);
  void startHeld(Direction& direction);
  bool anyInFlight() const;

  USBDevice& device_;
  const std::atomic<bool>* interrupted_;
  Milliseconds leaving_;
  std::optional<Clock::time_point> end_;
  bool isLeaving_ = false;
  WireStatistics statistics_;
  Direction in_;
  Direction out_;
  std::uint64_t newest_ = 0;  ///< tag of the next transfer
  bool looking_ = false;      ///< what is cancelled now goes on afterwards
  bool starved_ = false;      ///< no memory for more before something has ended
  std::optional<Clock::time_point> deadline_;
  std::optional<Milliseconds> budget_;
  Clock::duration budgetLeft_{};  ///< of budget_, and without meaning where there is none
};

// Containers of PTP over USB: what a command, the head of a data phase and a response look like on
// the wire (PIMA 15740:2000, annex D). All numbers are little-endian there.

/// Announced by a device that does not know how much data comes, or that has 4 GiB and more: the
/// data phase then ends with a short packet.
inline constexpr std::uint32_t kUnknownLength = 0xFFFFFFFF;
/// Both a command and a response carry 0 to 5 parameters (ISO 15740).
inline constexpr std::size_t kMaximumParameters = 5;
inline constexpr std::size_t kMaximumBlockSize = kContainerHeaderSize + 4 * kMaximumParameters;

/// The 12 bytes that every container begins with. Containers follow each other on the bulk
/// endpoints without anything in between; an event container uses the interrupt endpoint.
struct ContainerHeader {
  std::uint32_t length = 0;  ///< header included
  std::uint16_t type = 0;    ///< a ContainerType
  std::uint16_t code = 0;
  /// Of the transaction that the container belongs to; 0 outside a session.
  std::uint32_t transactionID = 0;
};

/// Writes the header to the first 12 bytes of `bytes`, which has room for it.
void encodeHeader(const ContainerHeader& header, std::span<std::byte> bytes);

/// None when there are fewer than 12 bytes, or when the length does not cover the header itself.
std::optional<ContainerHeader> decodeHeader(std::span<const std::byte> bytes);

/// A command block: the header and the operation's parameters.
struct CommandBlock {
  std::array<std::byte, kMaximumBlockSize> bytes{};
  std::size_t size = 0;
};
/// Parameters beyond `parameterCount` are left out, not sent as zeros: some devices refuse a
/// command that is longer than its operation wants.
CommandBlock encodeCommand(const Transaction& transaction, std::uint32_t transactionID);

/// Reads one whole response block into `transaction`. kBroken when it is none, when its length is
/// not that of the bytes that came or does not fit 0 to 5 parameters, or when it answers another
/// transaction.
Outcome decodeResponse(std::span<const std::byte> bytes, std::uint32_t transactionID,
                       Transaction& transaction);

/// The payload of a cancel request: the cancellation code and the transaction it is for.
/// Sent by a Cancel Request, bRequest 0x64 (Still Image Capture Device Definition, 5.2.1).
std::array<std::byte, 6> encodeCancelRequest(std::uint32_t transactionID);

/// What GetDeviceStatus gives: a PTP response code and the halted endpoints, if any.
/// Busy is 0x2019, and 0x201F a transaction that was cancelled; anything but 0x2001 means that the
/// device has not come to rest yet (Still Image Capture
/// Device Definition, 5.2.4).
struct DeviceStatus {
  std::uint16_t code = 0;
  std::array<std::uint8_t, 4> haltedEndpoints{};
  std::size_t haltedCount = 0;
};
inline constexpr std::size_t kDeviceStatusSize = 20;  ///< four endpoints at most
/// None for fewer than the 4 bytes of length and code. Endpoints are taken as far as they came, and
/// as far as the length that the device gives covers them.
std::optional<DeviceStatus> decodeDeviceStatus(std::span<const std::byte> bytes);

/// Little-endian numbers at the beginning of `bytes`, which is long enough.
std::uint16_t decodeUInt16(std::span<const std::byte> bytes);
std::uint32_t decodeUInt32(std::span<const std::byte> bytes);

/// The first bytes in hexadecimal, for messages about what should not have come.
std::string inHex(std::span<const std::byte> bytes);

// Events out of the packets of the interrupt endpoint.

/// An event is a container of type 4 with up to three parameters (PIMA 15740, annex D, "Event
/// container"). One that is longer than a packet goes on in the next; several may share a packet. A
/// packet that is not full ends the container in it (USB 2.0, 5.7.3), whole or not.
class EventAssembler {
 public:
  /// `packetSize` is that of the endpoint, in bytes.
  explicit EventAssembler(std::size_t packetSize) : packetSize_(packetSize) {}

  /// The events that are whole with this packet. What is no event is dropped with all that the
  /// packet still holds: there is no telling where the next one would begin.
  std::vector<Event> take(std::span<const std::byte> packet);

 private:
  /// The container at the front of what came: its length, 0 when more has to come first.
  /// None when it is no event.
  std::optional<std::size_t> frontLength() const;

  std::size_t packetSize_;
  std::vector<std::byte> pending_;  ///< less than a container, and one packet
};

}  // namespace tarvo::ptp
