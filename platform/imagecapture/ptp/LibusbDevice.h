// A still-image interface through libusb: asynchronous transfers on a context of the device's own.
//
// The context is made without device discovery: no monitor thread, no scan, and no memory once the
// device has been let go.
#pragma once

#include <libusb.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// A context, and the handle of one device in it, over a node that is open. Whatever is null has
/// not been opened yet.
/// libusb wants the device closed before the context, and the node after both; the order of the
/// members sees to that.
struct LibusbHandle {
  struct ExitContext {
    void operator()(libusb_context* opened) const { libusb_exit(opened); }
  };
  struct CloseDevice {
    void operator()(libusb_device_handle* opened) const { libusb_close(opened); }
  };

  FileDescriptor node;  ///< libusb leaves its closing to us
  std::unique_ptr<libusb_context, ExitContext> context;
  std::unique_ptr<libusb_device_handle, CloseDevice> device;
};

struct FreeTransfer {
  void operator()(libusb_transfer* ended) const { libusb_free_transfer(ended); }
};
/// Ends before its context, where libusb looks for its log then.
using LibusbTransfer = std::unique_ptr<libusb_transfer, FreeTransfer>;

// What libusb says about a transfer, in the words of the seam.

/// Of a transfer that has ended.
TransferResult resultOf(libusb_transfer_status status);

/// Of a call that gives 0 or one of libusb's errors.
TransferResult resultOfError(int error);

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

// PTP devices on libusb: which interface of a device speaks PTP, how its node is opened, who holds
// it where that fails, and the connection over it.

/// Main thread only.
///
///   LibusbConnector connector(std::make_unique<LibusbDeviceOpener>(), {}, log);
///   auto connection = connector.connect({"/dev/bus/usb/001/004", 0}, &failure, &why);
///
/// Each connection says in a debug line when it begins and when it ends.
class LibusbConnector : public PTPConnector {
 public:
  explicit LibusbConnector(std::unique_ptr<USBDeviceOpener> opener, const Timeouts& timeouts = {},
                           LogSink log = {});

  /// `failure` and `why` may be null. The connection does not need the connector any more.
  std::unique_ptr<PTPConnection> connect(const USBInterfaceAddress& address, Status* failure,
                                         std::string* why) override;

 private:
  std::unique_ptr<USBDeviceOpener> opener_;
  Timeouts timeouts_;
  LogSink log_;
};

// Who else has a device node open, so that a busy device can be explained.

/// "process NAME (pid N)" of a process other than this one that has the file behind the descriptor
/// `node` open, and "or" between several: having it open is not yet having its interface. Empty
/// when none is found. Only processes whose descriptors this user may see are looked at.
std::string processHolding(int node);

// Which endpoints a still-image interface has, from its descriptors.

/// The endpoints of an interface of class 6, subclass 1, whatever its protocol: two bulk ones, and
/// an interrupt one where the device has it. None, with the cause in `*why`, when one of the bulk
/// endpoints is missing or its packet size is none that USB allows.
/// Class 6 and subclass 1 are those of the USB Still Image Capture Device Definition 1.0; its
/// protocol 1 is PTP, but devices give others as well. Bulk packets are powers of two from 8 to
/// 1024 bytes (USB 2.0, 5.8.3, and USB 3 with 1024).
std::optional<StillImageEndpoints> stillImageEndpoints(const libusb_interface_descriptor& interface,
                                                       std::string* why);

/// The same for the interface `number` of a configuration.
std::optional<StillImageEndpoints> stillImageEndpoints(
    const libusb_config_descriptor& configuration, std::uint8_t number, std::string* why);

// Opens device nodes with libusb.

/// Main thread only. The configuration is left as it is; a kernel driver that has the interface is
/// detached from it while we hold it.
///
/// Opening asks the kernel alone (usbfs, Documentation/driver-api/usb/usb.rst): no transfer goes to
/// the device, so a device that hangs does not hold this up.
class LibusbDeviceOpener : public USBDeviceOpener {
 public:
  std::unique_ptr<USBDevice> open(const USBInterfaceAddress& address, Status* failure,
                                  std::string* why) override;
};

}  // namespace tarvo::ptp
