#include "simulator/testbed/BulkOnlyHost.h"

#include <algorithm>

#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/massstorage/ScsiUnit.h"

namespace tarvo::simulator {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kSenseSize = 18;

}  // namespace

UnitOutcome BulkOnlyHost::execute(const UnitRequest& request) {
  const auto deadline = Clock::now() + request.timeout;
  auto outcome = transport(request, deadline);
  if (outcome.delivery != Delivery::kDone) {
    if (outcome.delivery != Delivery::kGone) recover();
    return outcome;
  }
  if (outcome.status == 0) return outcome;
  const auto reported = unit_->reportedStatus();
  if (reported) {
    outcome.status = *reported;
  } else {
    senseWhy(outcome, deadline);
  }
  return outcome;
}

UnitOutcome BulkOnlyHost::transport(const UnitRequest& request, Deadline deadline) {
  UnitOutcome outcome;
  const auto sent = sendCommand(request);
  outcome.delivery = sent.isStalled ? Delivery::kBroken : sent.delivery;
  if (outcome.delivery != Delivery::kDone) return outcome;
  const auto moved = moveData(request, deadline);
  outcome.delivery = moved.delivery;
  if (moved.delivery != Delivery::kDone) return outcome;
  outcome = receiveStatus(request, deadline);
  // A unit may claim anything of what it has sent; what has come is known.
  if (request.direction == UnitRequest::Direction::kFromUnit) {
    outcome.residue = std::max(outcome.residue, request.data.size() - moved.length);
  }
  return outcome;
}

BulkOnlyHost::Transfer BulkOnlyHost::sendCommand(const UnitRequest& request) {
  ByteWriter writer;
  writer.u32(bulkonly::kCommandSignature);
  writer.u32(++tag_);
  writer.u32(static_cast<std::uint32_t>(request.data.size()));
  writer.u8(request.direction == UnitRequest::Direction::kFromUnit ? 0x80 : 0);
  writer.u8(0);
  writer.u8(static_cast<std::uint8_t>(request.block.size()));
  Bytes block(request.block.begin(), request.block.end());
  block.resize(bulkonly::kLongestBlock);
  writer.raw(block);
  return out(writer.take());
}

BulkOnlyHost::Transfer BulkOnlyHost::moveData(const UnitRequest& request, Deadline deadline) {
  if (request.data.empty()) return {};
  const bool sends = request.direction == UnitRequest::Direction::kToUnit;
  const auto moved = sends ? out(request.data) : in(request.data, deadline);
  // A unit that stalls has no more data, and its status comes all the same (6.7).
  if (moved.isStalled) {
    unit_->clearHalt(sends ? MassStorageUnit::kBulkOut : MassStorageUnit::kBulkIn);
  }
  return moved;
}

UnitOutcome BulkOnlyHost::receiveStatus(const UnitRequest& request, Deadline deadline) {
  Bytes wrapper(bulkonly::kStatusWrapperSize);
  auto received = in(wrapper, deadline);
  // One stall is allowed (5.3.3).
  if (received.isStalled) {
    unit_->clearHalt(MassStorageUnit::kBulkIn);
    received = in(wrapper, deadline);
  }
  UnitOutcome outcome;
  outcome.delivery = received.isStalled ? Delivery::kBroken : received.delivery;
  if (outcome.delivery != Delivery::kDone) return outcome;
  const auto status = littleEndian(wrapper, 12, 1);
  outcome.residue = static_cast<std::size_t>(
      std::min<std::uint64_t>(littleEndian(wrapper, 8, 4), request.data.size()));
  if (received.length != bulkonly::kStatusWrapperSize ||
      littleEndian(wrapper, 0, 4) != bulkonly::kStatusSignature ||
      littleEndian(wrapper, 4, 4) != tag_ || status > 1) {
    outcome.delivery = Delivery::kBroken;
  }
  if (status == 1) outcome.status = kCheckCondition;
  return outcome;
}

// The kernel asks by itself, so that the program finds the sense beside the status.
void BulkOnlyHost::senseWhy(UnitOutcome& outcome, Deadline deadline) {
  Bytes sense(kSenseSize);
  constexpr std::byte kBlock[] = {std::byte{kRequestSense}, {}, {}, {}, std::byte{kSenseSize}, {}};
  const UnitRequest ask = {kBlock, UnitRequest::Direction::kFromUnit, sense, {}};
  const auto asked = transport(ask, deadline);
  outcome.delivery = asked.delivery;
  if (asked.delivery != Delivery::kDone) {
    if (asked.delivery != Delivery::kGone) recover();
    return;
  }
  sense.resize(kSenseSize - asked.residue);
  outcome.sense = std::move(sense);
}

BulkOnlyHost::Transfer BulkOnlyHost::out(std::span<const std::byte> data) {
  const auto packet = unit_->descriptors().endpoint(MassStorageUnit::kBulkOut)->packetSize;
  const auto result =
      unit_->out(MassStorageUnit::kBulkOut, data, data.empty() || data.size() % packet != 0);
  Transfer transfer;
  if (result == OutResult::kGone) transfer.delivery = Delivery::kGone;
  transfer.isStalled = result == OutResult::kStalled;
  if (result == OutResult::kAccepted) transfer.length = data.size();
  return transfer;
}

BulkOnlyHost::Transfer BulkOnlyHost::in(std::span<std::byte> room, Deadline deadline) {
  Transfer transfer;
  while (true) {
    const auto result = unit_->in(MassStorageUnit::kBulkIn, room.subspan(transfer.length));
    transfer.length += result.length;
    switch (result.state) {
      case InResult::State::kWaiting:
        break;
      case InResult::State::kShort:
      case InResult::State::kFull:
        return transfer;
      case InResult::State::kStalled:
        transfer.isStalled = true;
        return transfer;
      case InResult::State::kOverflow:
        transfer.delivery = Delivery::kBroken;
        return transfer;
      case InResult::State::kGone:
        transfer.delivery = Delivery::kGone;
        return transfer;
    }
    if (!waitForUnit(deadline)) {
      transfer.delivery = Delivery::kGone;
    } else if (Clock::now() >= deadline) {
      transfer.delivery = Delivery::kTimedOut;
    } else {
      continue;
    }
    return transfer;
  }
}

bool BulkOnlyHost::waitForUnit(Deadline deadline) {
  const auto due = unit_->due(MassStorageUnit::kBulkIn);
  std::unique_lock lock(mutex_);
  wake_.wait_until(lock, due ? std::min(*due, deadline) : deadline, [this] { return stopped_; });
  return !stopped_;
}

void BulkOnlyHost::recover() {
  constexpr std::uint8_t kToInterface = 0x21;
  unit_->control({kToInterface, bulkonly::kMassStorageReset, 0, 0, 0}, {});
  unit_->clearHalt(MassStorageUnit::kBulkIn);
  unit_->clearHalt(MassStorageUnit::kBulkOut);
}

void BulkOnlyHost::stop() {
  const std::lock_guard guard(mutex_);
  stopped_ = true;
  wake_.notify_all();
}

}  // namespace tarvo::simulator
