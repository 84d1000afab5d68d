// The data phase of a transaction, either way: payload straight into the sink's memory or out of
// the source's, several transfers in flight.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>

#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/Container.h"
#include "platform/imagecapture/ptp/DataPhase.h"

namespace tarvo::ptp {

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
