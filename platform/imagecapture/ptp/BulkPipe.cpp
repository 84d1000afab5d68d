#include "platform/imagecapture/ptp/BulkPipe.h"

#include <algorithm>

#include "Utilities/Format.h"

namespace tarvo::ptp {
namespace {

/// How long a wait that can be interrupted goes on without a look. A signal ends no wait that
/// begins just behind it, so the flag is looked at again and again while a transaction runs.
constexpr std::chrono::milliseconds kLookInterval{50};

Outcome outcomeOf(TransferResult result, std::uint8_t endpoint) {
  const bool in = (endpoint & 0x80) != 0;
  const char* doing = in ? "reading from" : "writing to";
  switch (result) {
    case TransferResult::kCompleted:
      return {};
    case TransferResult::kStalled:
      return {Ending::kStalled, formatted("the device stalled endpoint 0x%02x", endpoint),
              endpoint};
    case TransferResult::kTimedOut:
      return {Ending::kTimedOut, formatted("time-out %s the device", doing)};
    case TransferResult::kNoDevice:
      return {Ending::kGone, "the device is gone"};
    case TransferResult::kOverflow:
      return broken("the device sent more than a packet holds");
    // Nobody waits for what was cancelled, so it is as odd as any other failure.
    case TransferResult::kCancelled:
    case TransferResult::kError:
      break;
  }
  return {Ending::kFailed, formatted("bus error %s the device", doing)};
}

}  // namespace

std::size_t BulkPipe::pieceSize(std::size_t packetSize) {
  // 2048 packets of a full-speed device are 128 KiB, which take about 0.1 s.
  constexpr std::size_t kPackets = 2048;
  constexpr std::size_t kLargest = std::size_t{1} << 20;
  return std::min(packetSize * kPackets, kLargest);
}

void BulkPipe::submitIn(std::span<std::byte> buffer) {
  // Tags count on over both directions, so that a completion shows whose turn it was.
  device_.submit(device_.endpoints().bulkIn, buffer, newest_++);
}

void BulkPipe::submitOut(std::span<const std::byte> bytes) {
  // The seam has one kind of buffer; an OUT transfer only reads it.
  const std::span<std::byte> buffer(const_cast<std::byte*>(bytes.data()), bytes.size());
  device_.submit(device_.endpoints().bulkOut, buffer, newest_++);
}

Outcome BulkPipe::nextIn(std::size_t& length, Milliseconds limit) {
  TransferCompletion completion;
  Outcome outcome = next(completion, limit, device_.endpoints().bulkIn);
  length = completion.length;
  statistics_.bytesReceived += length;
  return outcome;
}

Outcome BulkPipe::nextOut(std::size_t size, Milliseconds limit) {
  TransferCompletion completion;
  Outcome outcome = next(completion, limit, device_.endpoints().bulkOut);
  statistics_.bytesSent += completion.length;
  if (outcome.done() && completion.length != size)
    return {Ending::kFailed,
            formatted("the device took %zu of %zu bytes", completion.length, size)};
  return outcome;
}

Outcome BulkPipe::read(std::span<std::byte> buffer, std::size_t& length, Milliseconds limit) {
  submitIn(buffer);
  return nextIn(length, limit);
}

Outcome BulkPipe::write(std::span<const std::byte> bytes, Milliseconds limit) {
  submitOut(bytes);
  return nextOut(bytes.size(), limit);
}

void BulkPipe::cancelAll() {
  device_.cancelAll();
  oldest_ = newest_;
}

void BulkPipe::startBudget(Milliseconds budget) {
  budget_ = budget;
  progressed();
}

BulkPipe::Milliseconds BulkPipe::patience(Milliseconds limit) const {
  if (!deadline_) return limit;
  const auto left = std::chrono::duration_cast<Milliseconds>(*deadline_ - Clock::now());
  return std::clamp(left, Milliseconds{0}, limit);
}

std::optional<TransferCompletion> BulkPipe::waitWithinBudget(Milliseconds limit) {
  if (!budget_) return device_.wait(limit);
  // Rounded down, so that the waits together never exceed the budget. What has ended already is
  // still taken with no patience left.
  const auto left = std::chrono::floor<Milliseconds>(std::max(budgetLeft_, Clock::duration{0}));
  const auto begin = Clock::now();
  const auto ended = waitInterruptibly(std::min(limit, left));
  budgetLeft_ -= Clock::now() - begin;
  return ended;
}

std::optional<TransferCompletion> BulkPipe::waitInterruptibly(Milliseconds limit) {
  if (interrupted_ == nullptr) return device_.wait(limit);
  const auto deadline = Clock::now() + limit;
  std::optional<TransferCompletion> ended;
  while (!ended && !isInterrupted()) {
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
    ended = device_.wait(std::clamp(left, Milliseconds{0}, kLookInterval));
    if (left <= Milliseconds{0}) break;
  }
  return ended;
}

Outcome BulkPipe::next(TransferCompletion& completion, Milliseconds limit, std::uint8_t endpoint) {
  const auto ended = waitWithinBudget(patience(limit));
  if (!ended && budget_ && isInterrupted()) return {Ending::kCancelled, "interrupted"};
  if (!ended) return outcomeOf(TransferResult::kTimedOut, endpoint);
  // Of a device that is gone, the transfers of its endpoints end in any order.
  if (ended->result == TransferResult::kNoDevice) return outcomeOf(ended->result, endpoint);
  // The kernel ends the transfers of an endpoint in order. A completion of another one would put
  // its bytes in the wrong place.
  if (ended->tag != oldest_) return {Ending::kFailed, "a transfer ended out of turn"};
  ++oldest_;
  completion = *ended;
  return outcomeOf(completion.result, endpoint);
}

}  // namespace tarvo::ptp
