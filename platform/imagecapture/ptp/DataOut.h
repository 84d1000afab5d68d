// The data phase to the device: payload straight from the source's memory, several transfers in
// flight.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>

#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/DataPhase.h"

namespace tarvo::ptp {

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
