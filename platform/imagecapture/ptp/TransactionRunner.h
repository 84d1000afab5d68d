// One PTP transaction over the bulk endpoints: command, at most one data phase, response.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>

#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/DataPhase.h"

namespace tarvo::ptp {

/// Main thread only.
/// It knows what a transaction looks like on the wire and nothing of sessions or recovery: after a
/// failure the device may be anywhere in the middle of it.
class TransactionRunner {
 public:
  /// Size of the buffer for whatever does not go straight into the caller's memory: commands,
  /// responses, the first read of a data phase. Most answers, and many a small picture, come whole
  /// in one read of it: a copy of so little costs less than another transfer.
  static constexpr std::size_t kScratchSize = 131072;

  /// `pipe` is lent.
  TransactionRunner(BulkPipe& pipe, const Timeouts& timeouts);

  /// Runs the phases. No transfer is in flight afterwards, however it ended; what a sink or a
  /// source raises passes through, and the device is left in the middle of the transaction. All
  /// waits together take `Timeouts::bulk` at most, and as much again after each payload byte that
  /// moves: taking the command is no progress. An operation that takes long by its nature gets
  /// Timeouts::slow for its response then, as it says there. The budget holds on for
  /// readBehindStall(), until BulkPipe::endBudget().
  ///
  /// Until the device has answered one transaction rightly it is out of step: what it still has to
  /// say to a process that was killed is passed over, for Timeouts::recovery, and its first word is
  /// waited for only as long as Timeouts::firstWord, unless data are sent.
  Outcome run(Transaction& transaction, std::uint32_t transactionID);

  /// Reads what may come after a halt was cleared: the rest of the answer, as far as it is known.
  /// The endpoint may have been halted before the device has heard the command, and then all of it
  /// comes. Behind data, and behind a halt of the OUT endpoint, the response is waited for for
  /// Timeouts::recovery at most.
  Outcome readBehindStall(Transaction& transaction, std::uint32_t transactionID,
                          std::uint8_t endpoint);

  /// From now on its first word may take as long as any other: nobody has left it in the middle of
  /// something, so it is only slow.
  void giveTime() { hasTime_ = true; }

  /// Whether the device has answered rightly once.
  bool isInStep() const { return inStep_; }

  /// For whoever drains the IN endpoint between transactions.
  std::span<std::byte> scratch() { return {scratch_.get(), kScratchSize}; }

 private:
  /// A read that begins with a container header.
  struct Incoming {
    ContainerHeader header;
    std::span<const std::byte> bytes;  ///< header included; in the scratch buffer
    bool endsShort = false;            ///< a short packet was the end of them
  };

  /// The phases as they follow each other; transfers may be in flight after a failure.
  Outcome runPhases(Transaction& transaction, std::uint32_t transactionID);
  Outcome sendCommand(const Transaction& transaction, std::uint32_t transactionID);
  /// A data phase and the response, or the response alone: a device may refuse before any data.
  Outcome readAnswer(Transaction& transaction, std::uint32_t transactionID);
  /// The command, with the first read of its answer right behind it. Nothing waits in between, so
  /// that the device need not wait for the host.
  Outcome sendCommandAndAsk(std::span<const std::byte> command);
  /// `limit` is for each read. kBroken on a container that is none of the transaction's, once the
  /// device is in step; before that such containers are passed over for a bounded time.
  Outcome readContainer(const Transaction& transaction, std::uint32_t transactionID,
                        BulkPipe::Milliseconds limit, Incoming& incoming);
  Outcome readOnce(Incoming& incoming, BulkPipe::Milliseconds limit);
  Outcome readResponse(Transaction& transaction, std::uint32_t transactionID,
                       BulkPipe::Milliseconds limit);
  Outcome readData(Transaction& transaction, std::uint32_t transactionID, Incoming incoming);
  /// Puts the first read of an answer in flight.
  void ask();
  /// A read into `room` is in flight; nobody has taken it yet.
  void noteAsked(std::span<std::byte> room);

  BulkPipe& pipe_;
  Timeouts timeouts_;
  /// A multiple of every packet size, so that no read into it can overflow.
  std::unique_ptr<std::byte[]> scratch_;
  bool inStep_ = false;
  bool hasTime_ = false;
  std::span<std::byte> asked_;  ///< of the last read into the scratch buffer
  bool isAsked_ = false;        ///< it is in flight
};

// The data phase of a transaction, either way: payload straight into the sink's memory or out of
// the source's, several transfers in flight.

/// Runs one data phase, of which the first read has come already. Only whole packets are read into
/// the room that the sink gives; what is left over at its end, or has no room, goes through the
/// scratch buffer. What has no room is dropped, for one bulk time-out at most. Behind the last
/// piece the response is asked for already, so that the device need not wait for the host.
///
/// Of one use: it is made for a data phase and dropped after it.
class DataIn {
 public:
  /// `scratch` holds the first read and is a multiple of the packet size; `sink` is null where no
  /// data was expected. `response` is the room for the response: whole packets, not of the scratch
  /// buffer. All are lent.
  DataIn(BulkPipe& pipe, std::span<std::byte> scratch, std::span<std::byte> response,
         DataSink* sink, const Timeouts& timeouts);

  /// `first`: the payload that the first read brought; `ended` when a short packet was the end of
  /// it. kBroken when the device sends more or less than it announced, or goes on and on beyond the
  /// room; kCancelled by the sink; or as the transfers end. After a failure transfers may be in
  /// flight: cancelAll() is due.
  Outcome run(const ContainerHeader& header, std::span<const std::byte> first, bool ended);

  /// Payload bytes so far, dropped ones included.
  std::uint64_t received() const { return received_; }
  /// What the first read brought behind the container: the response, from a device that leaves out
  /// the zero-length packet between the two. Lies in the scratch buffer.
  std::span<const std::byte> surplus() const { return surplus_; }
  /// Whether the read of the response is in flight.
  bool hasAskedResponse() const { return responseAsked_; }

 private:
  /// One transfer in flight.
  struct Piece {
    std::span<std::byte> buffer;
    std::span<std::byte> room;  ///< of the sink, where the buffer is the scratch buffer
    bool direct = false;        ///< the buffer is the sink's room
  };

  /// Splits what the first read brought into payload and, where a container ended at a packet
  /// boundary, the surplus behind it.
  Outcome takeFirst(std::span<const std::byte> payload);
  /// The rest of the phase, piece by piece.
  Outcome stream();
  void fill();
  /// Where the payload from asked_ on goes: straight into the sink as far as whole packets fit
  /// there, otherwise through the scratch buffer.
  Piece nextPiece();
  /// Hands over the oldest piece, after holding its length against what was announced.
  Outcome takePiece();
  /// The sink's room, never more than `length`; none once something has been dropped, so that no
  /// gap comes into what the sink gets.
  std::span<std::byte> roomAt(std::uint64_t offset, std::size_t length);
  /// Copies in as many rooms as the sink needs; `room` is one that it has given already.
  Outcome copyToSink(std::span<std::byte> room, std::span<const std::byte> bytes);
  Outcome reportReceived(std::size_t length);
  /// Counts payload without room. Broken when that goes on beyond the time for it.
  Outcome drop(std::size_t length);
  bool allAsked() const { return ended_ || (end_ && asked_ >= *end_); }

  BulkPipe& pipe_;
  std::span<std::byte> scratch_;
  std::span<std::byte> response_;
  DataSink* sink_;
  Timeouts timeouts_;
  std::size_t packet_;
  std::optional<std::uint64_t> end_;  ///< payload size, where the device announced one
  std::uint64_t asked_ = 0;           ///< payload offset that the next transfer reads from
  std::uint64_t received_ = 0;
  bool ended_ = false;  ///< a short packet has come
  bool responseAsked_ = false;
  /// In the order in which they were asked for.
  std::deque<Piece> pieces_;
  std::span<const std::byte> surplus_;
  /// Set when the first byte found no room.
  std::optional<BulkPipe::Clock::time_point> dropDeadline_;
};

// The data phase to the device: payload straight from the source's memory, several transfers in
// flight.

/// Runs one data phase. The container header travels with the first payload bytes, in one transfer
/// from the scratch buffer (all of a small payload, a packet of a large one); every transfer but
/// the last is whole packets, and a container that ends with a full packet is followed by a
/// zero-length one.
///
/// Of one use, like DataIn.
class DataOut {
 public:
  /// `scratch` is a multiple of the packet size. All are lent.
  DataOut(BulkPipe& pipe, std::span<std::byte> scratch, DataSource& source,
          const Timeouts& timeouts);

  /// kCancelled when the source has no bytes to give, or as the transfers end. After a failure
  /// transfers may be in flight: cancelAll() is due.
  Outcome run(std::uint16_t operation, std::uint32_t transactionID);

 private:
  /// Whole packets straight from the source, or less through the scratch buffer at its end.
  Outcome submitNext();
  /// For the first transfer, which the header opens, and for a source that gives less than a packet
  /// at a time.
  Outcome submitGathered(std::size_t filled, std::size_t size);
  void submit(std::span<const std::byte> bytes);
  Outcome takeOldest();
  /// Afterwards the scratch buffer is free again.
  Outcome takeAll();

  BulkPipe& pipe_;
  std::span<std::byte> scratch_;
  DataSource& source_;
  Timeouts timeouts_;
  std::uint64_t size_;
  std::uint64_t offset_ = 0;       ///< payload bytes submitted
  std::deque<std::size_t> sizes_;  ///< of the transfers in flight
};

}  // namespace tarvo::ptp
