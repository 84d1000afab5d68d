// A still-image interface through libusb: asynchronous transfers on a context of the device's own.
//
// The context is made without device discovery: no monitor thread, no scan, and no memory once the
// device has been let go.
#pragma once

#include <libusb.h>

#include <memory>
#include <vector>

#include "platform/imagecapture/ptp/LibusbHandle.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

class LibusbInterruptWatch;

/// Main thread only.
///
/// Transfers end inside wait() and control(), never in a thread: between two calls nothing happens
/// to a buffer. The main loop serves the context only while interrupts are watched, when no other
/// transfer is in flight.
class LibusbDevice : public USBDevice {
 public:
  /// Takes a handle whose interface `endpoints.interfaceNumber` is claimed.
  LibusbDevice(LibusbHandle handle, const StillImageEndpoints& endpoints);
  LibusbDevice(const LibusbDevice&) = delete;
  LibusbDevice& operator=(const LibusbDevice&) = delete;
  ~LibusbDevice() override;

  const StillImageEndpoints& endpoints() const override { return endpoints_; }
  /// On a context of our own with an asynchronous transfer, so that bulk transfers in flight are
  /// served meanwhile and the time-out is ours.
  TransferCompletion control(const ControlSetup& setup, std::span<std::byte> data,
                             std::chrono::milliseconds timeout) override;
  void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) override;
  std::optional<TransferCompletion> wait(std::chrono::milliseconds timeout) override;
  void cancelAll() override;
  TransferResult clearHalt(std::uint8_t endpoint) override;
  /// In a thread, for nothing bounds the system's patience with a device that does not come back.
  /// Interrupts that are watched go on being watched.
  TransferResult resetPort() override;
  void watchInterrupts(InterruptHandler handler) override;

 private:
  using Clock = std::chrono::steady_clock;
  /// One libusb transfer, and what became of it. Slots are never given back while the device lives:
  /// there are a handful.
  struct Slot;

  /// Called by libusb from within handleEvents().
  static void LIBUSB_CALL transferEnded(libusb_transfer* transfer) noexcept;
  Slot& freeSlot();
  /// Whether one before it on its endpoint was not started, and nobody knows yet.
  bool isHeldBack(const Slot& slot) const;
  /// A transfer that libusb does not take is finished at once, as one that failed.
  void start(Slot& slot);
  void finish(Slot& slot, TransferResult result, std::size_t length);
  /// The one that ended first; null when none has.
  Slot* firstFinished();
  bool anyInFlight() const;
  /// As its definition says; events of other transfers are handled on the way.
  bool endOf(Slot& slot, Clock::time_point deadline);
  bool handleEvents(Clock::time_point deadline);
  bool cancelSlots();

  LibusbHandle handle_;
  StillImageEndpoints endpoints_;
  std::vector<std::unique_ptr<Slot>> slots_;
  std::unique_ptr<LibusbInterruptWatch> interrupts_;  ///< while interrupts are watched
  std::uint64_t starts_ = 0;   ///< transfers that have been started, for their order
  std::uint64_t endings_ = 0;  ///< transfers that have ended, for theirs
  /// The system did not give the transfers back. They are never reaped from now on, so that their
  /// buffers are not written to after their lenders have gone.
  bool abandoned_ = false;
};

}  // namespace tarvo::ptp
