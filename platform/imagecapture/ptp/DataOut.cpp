#include "platform/imagecapture/ptp/DataOut.h"

#include <algorithm>
#include <cstring>

#include "platform/imagecapture/ptp/Container.h"

namespace tarvo::ptp {
namespace {

Outcome sourceEnded() {
  return {Ending::kCancelled, "the data to send could not be read"};
}

}  // namespace

DataOut::DataOut(BulkPipe& pipe, std::span<std::byte> scratch, DataSource& source,
                 const Timeouts& timeouts)
    : pipe_(pipe), scratch_(scratch), source_(source), timeouts_(timeouts), size_(source.size()) {}

Outcome DataOut::run(std::uint16_t operation, std::uint32_t transactionID) {
  const std::uint64_t total = kContainerHeaderSize + size_;
  // Fits: the connection has refused what does not.
  encodeHeader({static_cast<std::uint32_t>(total), kDataBlock, operation, transactionID}, scratch_);
  // One transfer where all fits into it. Otherwise only a packet is filled up behind the header, so
  // that everything else goes out of the source's own memory.
  const std::size_t small = std::min(scratch_.size(), pipe_.outPieceSize());
  const std::size_t first = total <= small ? small : pipe_.outPacketSize();
  Outcome outcome = submitGathered(kContainerHeaderSize, first);
  while (outcome.done() && offset_ < size_) {
    if (sizes_.size() == kTransfersInFlight) outcome = takeOldest();
    if (outcome.done()) outcome = submitNext();
  }
  // A device knows the end of a container by a short packet (USB 2.0, 5.8.3).
  if (outcome.done() && total % pipe_.outPacketSize() == 0) submit({});
  return outcome.done() ? takeAll() : outcome;
}

Outcome DataOut::submitNext() {
  const std::uint64_t left = size_ - offset_;
  const std::size_t most = std::min<std::uint64_t>(left, pipe_.outPieceSize());
  auto bytes = source_.bytes(offset_, most);
  if (bytes.empty()) return sourceEnded();
  bytes = bytes.first(std::min(bytes.size(), most));
  // A packet that is not full would end the container early.
  if (bytes.size() < left) bytes = bytes.first(bytes.size() - bytes.size() % pipe_.outPacketSize());
  if (!bytes.empty()) {
    submit(bytes);
    offset_ += bytes.size();
    return {};
  }
  // Less than a packet at a time: collect it, once the scratch buffer is free.
  Outcome outcome = takeAll();
  return outcome.done() ? submitGathered(0, std::min(scratch_.size(), pipe_.outPieceSize()))
                        : outcome;
}

/// Sends up to `size` bytes of the scratch buffer, with payload behind its first `filled` ones.
Outcome DataOut::submitGathered(std::size_t filled, std::size_t size) {
  while (filled < size && offset_ < size_) {
    const std::size_t most = std::min<std::uint64_t>(size - filled, size_ - offset_);
    const auto bytes = source_.bytes(offset_, most);
    if (bytes.empty()) return sourceEnded();
    const std::size_t length = std::min(bytes.size(), most);
    std::memcpy(scratch_.data() + filled, bytes.data(), length);
    filled += length;
    offset_ += length;
  }
  submit(scratch_.first(filled));
  return {};
}

void DataOut::submit(std::span<const std::byte> bytes) {
  pipe_.submitOut(bytes);
  sizes_.push_back(bytes.size());
}

Outcome DataOut::takeOldest() {
  const std::size_t size = sizes_.front();
  sizes_.pop_front();
  Outcome outcome = pipe_.nextOut(size, timeouts_.bulk);
  // The header alone is none: a device may take it into a buffer and die.
  if (outcome.done() && size > 0 && size_ > 0) pipe_.progressed();
  return outcome;
}

Outcome DataOut::takeAll() {
  Outcome outcome;
  while (outcome.done() && !sizes_.empty())
    outcome = takeOldest();
  return outcome;
}

}  // namespace tarvo::ptp
