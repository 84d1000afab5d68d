// A still-image interface through libusb: asynchronous transfers on a context of the device's own.
//
// The context is made without device discovery: no monitor thread, no scan, and no memory once the
// device has been let go.
#pragma once

#include <libusb.h>

#include <memory>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// A context, and the handle of one device in it, over a node that is open. Whatever is null has
/// not been opened yet.
struct LibusbHandle {
  struct ExitContext {
    void operator()(libusb_context* context) const { libusb_exit(context); }
  };
  struct CloseDevice {
    void operator()(libusb_device_handle* device) const { libusb_close(device); }
  };

  FileDescriptor node;  ///< libusb leaves its closing to us
  std::unique_ptr<libusb_context, ExitContext> context;
  std::unique_ptr<libusb_device_handle, CloseDevice> device;
};

/// Main thread only.
class LibusbDevice : public USBDevice {
 public:
  /// Takes a handle whose interface `endpoints.interfaceNumber` is claimed.
  LibusbDevice(LibusbHandle handle, const StillImageEndpoints& endpoints);
  LibusbDevice(const LibusbDevice&) = delete;
  LibusbDevice& operator=(const LibusbDevice&) = delete;
  ~LibusbDevice() override;

  const StillImageEndpoints& endpoints() const override { return endpoints_; }
  TransferCompletion control(const ControlSetup& setup, std::span<std::byte> data,
                             std::chrono::milliseconds timeout) override;
  void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) override;
  std::optional<TransferCompletion> wait(std::chrono::milliseconds timeout) override;
  void cancelAll() override;
  TransferResult clearHalt(std::uint8_t endpoint) override;

 private:
  using Clock = std::chrono::steady_clock;
  struct Slot;

  static void LIBUSB_CALL transferEnded(libusb_transfer* transfer) noexcept;
  Slot& freeSlot();
  void start(Slot& slot);
  void finish(Slot& slot, TransferResult result, std::size_t length);
  Slot* firstFinished();
  bool anyInFlight() const;
  bool endOf(Slot& slot, Clock::time_point deadline);
  bool handleEvents(Clock::time_point deadline);
  bool cancelSlots();

  LibusbHandle handle_;
  StillImageEndpoints endpoints_;
  std::vector<std::unique_ptr<Slot>> slots_;
  std::uint64_t endings_ = 0;  ///< transfers that have ended, for their order
  /// The system did not give the transfers back. They are never reaped from now on, so that their
  /// buffers are not written to after their lenders have gone.
  bool abandoned_ = false;
};

}  // namespace tarvo::ptp
