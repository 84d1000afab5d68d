// One PTP transaction over the bulk endpoints: command, at most one data phase, response.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/Container.h"

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

}  // namespace tarvo::ptp
