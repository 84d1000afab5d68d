#include "platform/imagecapture/ptp/Recovery.h"

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

namespace tarvo::ptp {
namespace {

// bmRequestType of the class requests: class, interface, and the direction.
constexpr std::uint8_t kToInterface = 0x21;
constexpr std::uint8_t kFromInterface = 0xA1;

/// Steps into which the time for one piece of recovery is cut: between two looks at the device
/// status, and for a device to go on with stale data.
constexpr int kSteps = 10;

/// What is read at once of stale data. They are whole packets of every size, and fit the scratch
/// memory.
constexpr std::size_t kSmallRead = 16384;
constexpr std::size_t kLargeRead = 65536;

/// Whether the last packet of what came is the response to the transaction.
bool endsWithResponse(std::span<const std::byte> bytes, std::size_t packetSize,
                      std::uint32_t transactionID) {
  // Outside a session it may be the one to any other, and more may follow.
  if (transactionID == kNoTransactionID) return false;
  const auto last = bytes.last(bytes.size() % packetSize);
  Transaction ignored;
  return decodeResponse(last, transactionID, ignored).done();
}

}  // namespace

Recovery::Recovery(USBDevice& device, BulkPipe& pipe, std::span<std::byte> scratch,
                   const Timeouts& timeouts)
    : device_(device), pipe_(pipe), scratch_(scratch), timeouts_(timeouts) {}

bool Recovery::cancelTransaction(std::uint32_t transactionID) {
  auto payload = encodeCancelRequest(transactionID);
  // USB still-image class, 5.2.1. The device may answer with a stall, which says that it knows no
  // such request.
  return request(kToInterface, kCancelRequest, payload).has_value();
}

void Recovery::clearHalts(std::uint8_t endpoint) {
  heard_ = false;
  const auto status = deviceStatus();
  // The host knows of this one by itself, whatever the device says or does not say.
  clearHalt(endpoint);
  if (!status) return;
  for (std::size_t i = 0; i < status->haltedCount; ++i)
    if (status->haltedEndpoints.at(i) != endpoint) clearHalt(status->haltedEndpoints.at(i));
}

bool Recovery::resynchronise(std::uint32_t transactionID) {
  // First our side: a read in flight would swallow what belongs to the next transaction.
  pipe_.cancelAll();
  heard_ = false;
  wasReset_ = false;
  const bool isCancelled = cancelTransaction(transactionID);
  const bool idle = awaitIdle();
  // The gentle way first, for a reset ends the session.
  // Too busy with sending to answer, it may be well once it got rid of that.
  const bool pauseEnds = isCancelled || silent_ || transactionID == kNoTransactionID;
  const bool hasEnded =
      (idle || silent_) && drain(transactionID, pauseEnds, timeouts_.stale) && !silent_;
  return !gone_ && (hasEnded || reset());
}

bool Recovery::startAfresh(std::uint32_t transactionID, bool always) {
  pipe_.cancelAll();
  heard_ = false;
  wasReset_ = false;
  const auto before = pipe_.statistics().bytesReceived;
  // A device that is busy with sending may not look at endpoint 0 before it got rid of some of it.
  drain(transactionID, true, timeouts_.recovery);
  cancelTransaction(transactionID);
  const bool hasEnded = drain(transactionID, true, timeouts_.stale);
  const bool wasBusy = hasEnded && pipe_.statistics().bytesReceived > before;
  return !gone_ && ((wasBusy && !always) || reset());
}

bool Recovery::reset() {
  const bool wasAsked = request(kToInterface, kDeviceResetRequest, {}).has_value();
  wasReset_ = wasReset_ || wasAsked;
  // A device that does not know the class's reset is reset by its port, as if it had been plugged
  // in anew.
  const bool idle = wasAsked ? awaitIdle() : resetPort();
  // What it had sent before may lie in between.
  if (idle) drain(kNoTransactionID, true, timeouts_.stale);
  return idle && !gone_;
}

bool Recovery::resetPort() {
  // Not a device that has never said anything: it may be one that does not speak PTP at all, and
  // other interfaces of it belong to others.
  if (gone_ || pipe_.statistics().bytesReceived == 0) return false;
  const TransferResult result = device_.resetPort();
  gone_ = result == TransferResult::kNoDevice;
  wasReset_ = wasReset_ || result == TransferResult::kCompleted;
  return result == TransferResult::kCompleted;
}

bool Recovery::drain(std::uint32_t transactionID, bool pauseEnds, BulkPipe::Milliseconds most) {
  const auto begin = BulkPipe::Clock::now();
  auto now = begin;
  auto moved = begin;
  bool hasEnded = false;
  Outcome outcome;
  while (!hasEnded && !gone_ && outcome.done() && now < moved + timeouts_.recovery &&
         now < begin + most) {
    // Who wants to leave waits no longer than for any step.
    if (pipe_.isInterrupted()) most = std::min(most, timeouts_.recovery);
    std::size_t length = 0;
    const auto left = std::chrono::ceil<BulkPipe::Milliseconds>(moved + timeouts_.recovery - now);
    // One that was in the middle of sending may be slow to find more.
    const bool isShort = pauseEnds && moved == begin;
    // No more at once than a slow device sends within a pause.
    const auto room = scratch_.first(isShort ? kSmallRead : kLargeRead);
    outcome = pipe_.read(room, length, isShort ? timeouts_.recovery / kSteps : left);
    const auto asked = std::exchange(now, BulkPipe::Clock::now());
    if (length > 0) {
      moved = now;
      pipe_.extendDeadline(now - asked);
      silent_ = false;
    }
    hasEnded = endsWithResponse(scratch_.first(length), pipe_.inPacketSize(), transactionID) ||
               (pauseEnds && outcome.ending == Ending::kTimedOut);
    gone_ = outcome.ending == Ending::kGone;
    // The data end at a stall, and the response stands behind it.
    if (outcome.ending == Ending::kStalled && clearHalt(outcome.endpoint)) outcome = {};
  }
  pipe_.cancelAll();
  return hasEnded;
}

/// Looks at the device status until it is OK. A device that does not know the request counts as
/// idle: there is no other way to ask.
bool Recovery::awaitIdle() {
  const auto deadline = BulkPipe::Clock::now() + timeouts_.recovery;
  while (!silent_ && !gone_) {
    const auto status = deviceStatus();
    // A device that refuses the request (stall) is believed to be ready; one that let it time out
    // is not.
    // Busy (0x2019) is what a device answers until it has dealt with the cancellation.
    if (!status || status->code == status::kPTPOK) return !silent_ && !gone_;
    for (std::size_t i = 0; i < status->haltedCount; ++i)
      clearHalt(status->haltedEndpoints.at(i));
    if (BulkPipe::Clock::now() >= deadline) break;
    // There is no event for it, so it is asked again; ten times at most.
    std::this_thread::sleep_for(pipe_.patience(timeouts_.recovery / kSteps));
  }
  return false;
}

std::optional<DeviceStatus> Recovery::deviceStatus() {
  std::array<std::byte, kDeviceStatusSize> data{};
  const auto length = request(kFromInterface, kGetDeviceStatus, data);
  if (!length) return std::nullopt;
  return decodeDeviceStatus(std::span(data).first(*length));
}

/// Bytes that moved; none when the request failed.
std::optional<std::size_t> Recovery::request(std::uint8_t type, std::uint8_t code,
                                             std::span<std::byte> data) {
  // Nothing is asked of a device twice that has not answered once.
  if (silent_ || gone_) return std::nullopt;
  const auto completion = device_.control({type, code, 0, device_.endpoints().interfaceNumber},
                                          data, pipe_.patience(timeouts_.recovery));
  // Once is enough: every further request would hold the caller as long.
  if (completion.result == TransferResult::kTimedOut) silent_ = true;
  if (completion.result == TransferResult::kNoDevice) gone_ = true;
  heard_ = heard_ || completion.result == TransferResult::kCompleted ||
           completion.result == TransferResult::kStalled;
  if (completion.result != TransferResult::kCompleted) return std::nullopt;
  return completion.length;
}

bool Recovery::clearHalt(std::uint8_t endpoint) {
  const auto& endpoints = device_.endpoints();
  // The device names these endpoints: only ours count.
  if (endpoint != endpoints.bulkIn && endpoint != endpoints.bulkOut) return false;
  // Ending a halt is a control request too, for which no time-out can be given: a device is known
  // to answer before it is asked for it.
  if (!heard_) deviceStatus();
  if (!heard_ || silent_ || gone_) return false;
  const TransferResult result = device_.clearHalt(endpoint);
  gone_ = result == TransferResult::kNoDevice;
  return result == TransferResult::kCompleted;
}

}  // namespace tarvo::ptp
