#include "platform/imagecapture/ptp/LibusbDevice.h"

#include <sys/time.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <thread>
#include <utility>

#include "platform/imagecapture/ptp/LibusbHandle.h"
#include "platform/imagecapture/ptp/LibusbInterruptWatch.h"

namespace tarvo::ptp {
namespace {

/// How long the system may take to give cancelled transfers back. A kernel needs no time for it.
/// Long enough for a machine under load: who gives up leaves memory to the kernel for good.
constexpr std::chrono::milliseconds kCancelPatience{500};
/// A hub resets a port in a tenth of a second, and then the device is set up anew.
constexpr std::chrono::milliseconds kResetPatience{450};

timeval timeUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::max(std::chrono::duration_cast<std::chrono::microseconds>(
                                 deadline - std::chrono::steady_clock::now()),
                             std::chrono::microseconds{0});
  timeval time{};
  time.tv_sec = static_cast<time_t>(left.count() / 1000000);
  time.tv_usec = static_cast<suseconds_t>(left.count() % 1000000);
  return time;
}

unsigned char* asBytes(std::span<std::byte> buffer) {
  return reinterpret_cast<unsigned char*>(buffer.data());
}

}  // namespace

/// A transfer, used again and again.
struct LibusbDevice::Slot {
  enum class State { kFree, kInFlight, kFinished };

  LibusbDevice* owner = nullptr;
  LibusbTransfer transfer;
  std::vector<unsigned char> controlBuffer;  ///< of a control request, setup packet included
  State state = State::kFree;
  std::uint64_t number = 0;  ///< of its start
  std::uint64_t ending = 0;  ///< number of its ending
  TransferCompletion completion;
};

LibusbDevice::LibusbDevice(LibusbHandle handle, const StillImageEndpoints& endpoints)
    : handle_(std::move(handle)), endpoints_(endpoints) {}

// The order matters: nothing in flight, then the interface, then the handle, and only then the
// memory.
LibusbDevice::~LibusbDevice() {
  LibusbDevice::watchInterrupts(nullptr);
  LibusbDevice::cancelAll();
  // Gives a kernel driver that was detached its interface back.
  if (handle_.device) libusb_release_interface(handle_.device.get(), endpoints_.interfaceNumber);
  // With the handle closed nobody reaps an abandoned transfer any more, so it can be freed.
  handle_.device.reset();
  slots_.clear();
  interrupts_.reset();
}

TransferCompletion LibusbDevice::control(const ControlSetup& setup, std::span<std::byte> data,
                                         std::chrono::milliseconds timeout) {
  // Not libusb_control_transfer(): that waits by itself and cannot be given up.
  Slot& slot = freeSlot();
  const bool in = (setup.requestType & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
  auto& buffer = slot.controlBuffer;
  // libusb wants setup packet and data in one piece; it is the slot's own, so that the caller's
  // memory is free whatever becomes of the transfer.
  buffer.assign(LIBUSB_CONTROL_SETUP_SIZE + data.size(), 0);
  libusb_fill_control_setup(buffer.data(), setup.requestType, setup.request, setup.value,
                            setup.index, static_cast<std::uint16_t>(data.size()));
  if (!in && !data.empty())
    std::memcpy(buffer.data() + LIBUSB_CONTROL_SETUP_SIZE, data.data(), data.size());
  slot.completion = {};
  if (slot.transfer)
    libusb_fill_control_transfer(slot.transfer.get(), handle_.device.get(), buffer.data(),
                                 transferEnded, &slot, 0);
  start(slot);

  // The time-out is kept here: one of libusb's own (0 is none) would race with it.
  const bool inTime = endOf(slot, Clock::now() + timeout);
  if (!inTime && !abandoned_) {
    libusb_cancel_transfer(slot.transfer.get());
    abandoned_ = !endOf(slot, Clock::now() + kCancelPatience);
  }
  // Given up: the slot stays in flight, and with it the memory that the kernel may still write to.
  // It is not freed before the handle is closed.
  if (slot.state != Slot::State::kFinished) return {0, TransferResult::kTimedOut, 0};
  slot.state = Slot::State::kFree;
  // It may also have ended well while it was being cancelled, which counts.
  if (!inTime && slot.completion.result == TransferResult::kCancelled)
    slot.completion.result = TransferResult::kTimedOut;
  const std::size_t length = std::min(slot.completion.length, data.size());
  if (in && length > 0) std::memcpy(data.data(), buffer.data() + LIBUSB_CONTROL_SETUP_SIZE, length);
  return slot.completion;
}

void LibusbDevice::submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) {
  Slot& slot = freeSlot();
  slot.completion = {tag, TransferResult::kError, 0};
  // Time-out 0: the pipe decides how long it waits, for it knows of progress.
  if (slot.transfer) {
    libusb_fill_bulk_transfer(slot.transfer.get(), handle_.device.get(), endpoint, asBytes(buffer),
                              static_cast<int>(buffer.size()), transferEnded, &slot, 0);
    // Bulk and interrupt transfers differ in their type alone.
    if (endpoint == endpoints_.interruptIn) slot.transfer->type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
  }
  start(slot);
}

std::optional<TransferCompletion> LibusbDevice::wait(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  Slot* slot = firstFinished();
  // Everything ends inside handleEvents(), on this thread: libusb calls back while it is let to.
  while (slot == nullptr && anyInFlight() && handleEvents(deadline))
    slot = firstFinished();
  // The last round may have brought it just as the time ran out.
  if (slot == nullptr) slot = firstFinished();
  if (slot == nullptr) return std::nullopt;
  slot->state = Slot::State::kFree;
  return slot->completion;
}

void LibusbDevice::cancelAll() {
  // Nothing may be reaped from now on: the lenders of the buffers go on as if they had them back.
  if (!abandoned_ && !cancelSlots()) abandoned_ = true;
}

TransferResult LibusbDevice::clearHalt(std::uint8_t endpoint) {
  if (abandoned_) return TransferResult::kError;
  return resultOfError(libusb_clear_halt(handle_.device.get(), endpoint));
}

TransferResult LibusbDevice::resetPort() {
  const InterruptHandler handler = interrupts_ ? interrupts_->handler() : nullptr;
  // Its read would end with an error while the port is reset, and be taken for the end of the
  // device.
  watchInterrupts(nullptr);
  cancelAll();
  if (abandoned_) return TransferResult::kError;
  // Should the thread keep the context, they would end behind it.
  slots_.clear();
  // The thread's, until it has ended; where that takes too long, for good.
  const auto lent = std::make_shared<LibusbHandle>(std::move(handle_));
  std::packaged_task<int()> reset([lent] { return libusb_reset_device(lent->device.get()); });
  auto ended = reset.get_future();
  abandoned_ = true;  // Also where there is no thread to be had.
  // The ioctl waits in the kernel for as long as the hub takes, which may be many seconds with a
  // device that does not come back.
  std::thread(std::move(reset)).detach();
  abandoned_ = ended.wait_for(kResetPatience) != std::future_status::ready;
  if (abandoned_) return TransferResult::kTimedOut;
  handle_ = std::move(*lent);
  const int error = ended.get();
  // It came back as another device, or the interface could not be claimed again.
  // The kernel compares the descriptors before and after.
  if (error == LIBUSB_ERROR_NOT_FOUND) return TransferResult::kNoDevice;
  watchInterrupts(handler);
  return resultOfError(error);
}

void LibusbDevice::watchInterrupts(InterruptHandler handler) {
  if (interrupts_ && !abandoned_) {
    interrupts_->cancel();
    const auto deadline = Clock::now() + kCancelPatience;
    while (interrupts_->isInFlight() && handleEvents(deadline)) {
    }
    abandoned_ = interrupts_->isInFlight();
  }
  // An abandoned one is kept: the kernel may still write to its buffer.
  if (abandoned_) return;
  interrupts_.reset();
  if (!handler || endpoints_.interruptIn == 0) return;
  interrupts_ = std::make_unique<LibusbInterruptWatch>(handle_, endpoints_, std::move(handler));
}

void LIBUSB_CALL LibusbDevice::transferEnded(libusb_transfer* transfer) noexcept {
  auto& slot = *static_cast<Slot*>(transfer->user_data);
  slot.owner->finish(slot, resultOf(transfer->status),
                     static_cast<std::size_t>(std::max(transfer->actual_length, 0)));
}

LibusbDevice::Slot& LibusbDevice::freeSlot() {
  // Used again, since a large object takes thousands of transfers.
  for (auto& slot : slots_)
    if (slot->state == Slot::State::kFree) return *slot;
  slots_.push_back(std::make_unique<Slot>());
  slots_.back()->owner = this;
  // Null when there is no memory; the transfer then fails like any other.
  slots_.back()->transfer.reset(libusb_alloc_transfer(0));
  return *slots_.back();
}

void LibusbDevice::start(Slot& slot) {
  slot.state = Slot::State::kInFlight;
  slot.number = starts_++;
  if (abandoned_ || !slot.transfer) return finish(slot, TransferResult::kError, 0);
  if (isHeldBack(slot)) return finish(slot, TransferResult::kNoMemory, 0);
  const int error = libusb_submit_transfer(slot.transfer.get());
  if (error != LIBUSB_SUCCESS) finish(slot, resultOfError(error), 0);
}

// Nothing may overtake a transfer that the pipe has not heard about yet: bytes would change places.
bool LibusbDevice::isHeldBack(const Slot& slot) const {
  return std::ranges::any_of(slots_, [&](const auto& other) {
    return other->state == Slot::State::kFinished &&
           other->completion.result == TransferResult::kNoMemory &&
           other->transfer->endpoint == slot.transfer->endpoint;
  });
}

void LibusbDevice::finish(Slot& slot, TransferResult result, std::size_t length) {
  slot.state = Slot::State::kFinished;
  slot.ending = endings_++;
  slot.completion.result = result;
  slot.completion.length = length;
}

LibusbDevice::Slot* LibusbDevice::firstFinished() {
  // In the order of ending and not of slots: the pipe tells from it which part of a transfer is
  // whole.
  Slot* first = nullptr;
  for (auto& slot : slots_)
    if (slot->state == Slot::State::kFinished && (first == nullptr || slot->ending < first->ending))
      first = slot.get();
  return first;
}

bool LibusbDevice::anyInFlight() const {
  return std::any_of(slots_.begin(), slots_.end(),
                     [](const auto& slot) { return slot->state == Slot::State::kInFlight; });
}

/// Waits until `slot` has ended; false when it has not by `deadline`.
bool LibusbDevice::endOf(Slot& slot, Clock::time_point deadline) {
  while (slot.state == Slot::State::kInFlight && handleEvents(deadline)) {
  }
  return slot.state != Slot::State::kInFlight;
}

/// Lets libusb finish what has ended, waiting for it until `deadline`. False when there is no more
/// use in it: the deadline has passed, or libusb cannot.
bool LibusbDevice::handleEvents(Clock::time_point deadline) {
  if (abandoned_) return false;
  timeval time = timeUntil(deadline);
  const int error = libusb_handle_events_timeout_completed(handle_.context.get(), &time, nullptr);
  // A signal is no reason to stop waiting.
  if (error != LIBUSB_SUCCESS && error != LIBUSB_ERROR_INTERRUPTED) return false;
  return Clock::now() < deadline;
}

/// False when the system has not let go of a buffer in time.
bool LibusbDevice::cancelSlots() {
  // The newest first: otherwise the kernel would start the next one in the queue when the one
  // before it ends, and the device would send it something.
  std::vector<Slot*> newestFirst;
  for (auto& slot : slots_)
    if (slot->state == Slot::State::kInFlight) newestFirst.push_back(slot.get());
  std::ranges::sort(newestFirst, std::ranges::greater(), &Slot::number);
  for (Slot* slot : newestFirst)
    libusb_cancel_transfer(slot->transfer.get());
  const auto deadline = Clock::now() + kCancelPatience;
  while (anyInFlight() && handleEvents(deadline)) {
  }
  return !anyInFlight();
}

}  // namespace tarvo::ptp
