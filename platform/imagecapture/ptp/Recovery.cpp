#include "platform/imagecapture/ptp/Recovery.h"

#include <array>
#include <thread>

namespace tarvo::ptp {
namespace {

// bmRequestType of the class requests: class, interface, and the direction.
constexpr std::uint8_t kToInterface = 0x21;
constexpr std::uint8_t kFromInterface = 0xA1;

/// Steps into which the time for one piece of recovery is cut: between two looks at the device
/// status, and for a device to go on with stale data.
constexpr int kSteps = 10;

}  // namespace

Recovery::Recovery(USBDevice& device, BulkPipe& pipe, std::span<std::byte> scratch,
                   const Timeouts& timeouts)
    : device_(device), pipe_(pipe), scratch_(scratch), timeouts_(timeouts) {}

void Recovery::cancelTransaction(std::uint32_t transactionID) {
  auto payload = encodeCancelRequest(transactionID);
  request(kToInterface, kCancelRequest, payload);
}

void Recovery::clearHalts(std::uint8_t endpoint) {
  const auto status = deviceStatus();
  // The host knows of this one by itself, whatever the device says or does not say.
  clearHalt(endpoint);
  if (!status) return;
  for (std::size_t i = 0; i < status->haltedCount; ++i)
    if (status->haltedEndpoints.at(i) != endpoint) clearHalt(status->haltedEndpoints.at(i));
}

bool Recovery::resynchronise(std::uint32_t transactionID) {
  pipe_.cancelAll();
  cancelTransaction(transactionID);
  // The gentle way first: a reset ends the session, which the caller finds out by the next
  // response.
  const bool idle = awaitIdle() || resetDevice();
  drain();
  return idle && !gone_;
}

bool Recovery::startAfresh(std::uint32_t transactionID) {
  // A device that is busy with sending may not look at endpoint 0 before it got rid of it.
  pipe_.cancelAll();
  drain();
  cancelTransaction(transactionID);
  const bool idle = resetDevice();
  drain();
  return idle && !gone_;
}

bool Recovery::resetDevice() {
  return request(kToInterface, kDeviceResetRequest, {}).has_value() && awaitIdle();
}

void Recovery::drain() {
  const auto deadline = BulkPipe::Clock::now() + timeouts_.recovery;
  Outcome outcome;
  std::size_t length = 0;
  // Ends with the first pause; a device that never pauses is left to the next transaction, which
  // finds it broken.
  while (!gone_ && outcome.done() && BulkPipe::Clock::now() < deadline) {
    outcome = pipe_.read(scratch_, length, timeouts_.recovery / kSteps);
    if (outcome.ending == Ending::kStalled) clearHalt(outcome.endpoint);
    if (outcome.ending == Ending::kGone) gone_ = true;
  }
  pipe_.cancelAll();
}

/// Looks at the device status until it is OK. A device that does not know the request counts as
/// idle: there is no other way to ask.
bool Recovery::awaitIdle() {
  const auto deadline = BulkPipe::Clock::now() + timeouts_.recovery;
  while (!silent_ && !gone_) {
    const auto status = deviceStatus();
    // A device that refuses the request (stall) is believed to be ready; one that let it time out
    // is not.
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
  if (silent_ || gone_) return std::nullopt;
  const auto completion = device_.control({type, code, 0, device_.endpoints().interfaceNumber},
                                          data, pipe_.patience(timeouts_.recovery));
  // Once is enough: every further request would hold the caller as long.
  if (completion.result == TransferResult::kTimedOut) silent_ = true;
  if (completion.result == TransferResult::kNoDevice) gone_ = true;
  if (completion.result != TransferResult::kCompleted) return std::nullopt;
  return completion.length;
}

void Recovery::clearHalt(std::uint8_t endpoint) {
  const auto& endpoints = device_.endpoints();
  // The device names these endpoints: only ours count.
  if (endpoint != endpoints.bulkIn && endpoint != endpoints.bulkOut) return;
  if (silent_ || gone_) return;
  if (device_.clearHalt(endpoint) == TransferResult::kNoDevice) gone_ = true;
}

}  // namespace tarvo::ptp
