// One claimed USB still-image interface, as the transport sees it: the narrow seam over libusb.
//
// Bulk transfers are submitted and then waited for, so that several can be in flight straight into
// the caller's memory. Each endpoint finishes its transfers in the order of submission; between the
// endpoints there is no order: a host controller may hand a read back before the write that the
// device has answered with it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "Utilities/Status.h"

namespace tarvo::ptp {

/// How one transfer ended.
enum class [[nodiscard]] TransferResult{
    kCompleted,
    kStalled,    ///< the endpoint is halted until clearHalt()
    kTimedOut,   ///< ended by its time-out; `length` bytes had moved
    kCancelled,  ///< ended by cancelAll(); `length` bytes had moved
    kNoDevice,   ///< unplugged
    kOverflow,   ///< the device sent more than the buffer holds
    kNoMemory,   ///< not started: the system has no memory for USB transfers left (usbfs_memory_mb)
    kError,      ///< any other failure of the bus
};

/// The USB still-image interface's three endpoints, as its descriptors give them.
struct StillImageEndpoints {
  std::uint8_t interfaceNumber = 0;
  std::uint8_t bulkIn = 0;       ///< address, with the direction bit
  std::uint8_t bulkOut = 0;      ///< address
  std::uint8_t interruptIn = 0;  ///< address, 0 where the device has none
  std::uint16_t bulkInPacketSize = 512;
  std::uint16_t bulkOutPacketSize = 512;
  std::uint16_t interruptPacketSize = 0;
};

/// What is left of a transfer when it has ended.
struct TransferCompletion {
  std::uint64_t tag = 0;  ///< as given to submit()
  TransferResult result = TransferResult::kError;
  std::size_t length = 0;  ///< bytes that moved
};

/// One packet of the interrupt endpoint (kCompleted, and its bytes, lent for the call); any other
/// result says why no more come.
using InterruptHandler = std::function<void(TransferResult, std::span<const std::byte>)>;

/// A control request's setup packet (wLength is the buffer's size).
/// USB 2.0, 9.3; value and index are in host order.
struct ControlSetup {
  std::uint8_t requestType = 0;
  std::uint8_t request = 0;
  std::uint16_t value = 0;
  std::uint16_t index = 0;
};

/// Main thread only. Destroying it cancels what is in flight and lets the interface go.
///
/// The product's one is LibusbDevice; tests and fuzz targets play devices that break every rule.
/// A device that is gone answers kNoDevice at once.
class USBDevice {
 public:
  virtual ~USBDevice() = default;

  /// The same for the device's whole life.
  virtual const StillImageEndpoints& endpoints() const = 0;

  /// A control request on endpoint 0. `data` is sent or filled as the direction bit of
  /// `setup.requestType` says.
  virtual TransferCompletion control(const ControlSetup& setup, std::span<std::byte> data,
                                     std::chrono::milliseconds timeout) = 0;

  /// Starts a bulk or interrupt transfer. `buffer` is lent until the completion has been returned
  /// by wait(), or cancelAll() has been called; for an IN endpoint its size is a multiple of the
  /// packet size. An OUT transfer of size 0 is a zero-length packet. A transfer that cannot be
  /// started is reported as a completion like any other. Behind one that ends with kNoMemory no
  /// other of its endpoint is started before wait() has told of it: it would get what the first one
  /// was meant for.
  virtual void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) = 0;

  /// The next completion, in the order in which transfers end; none when `timeout` passes first
  /// (the transfers stay in flight) or nothing is in flight.
  virtual std::optional<TransferCompletion> wait(std::chrono::milliseconds timeout) = 0;

  /// Cancels every transfer in flight, of each endpoint the newest first, and waits until the
  /// system has let go of their buffers. wait() then tells at once how each has ended, and how much
  /// of it had moved: with the newest gone first, nothing is missing between two of them. Where the
  /// system does not let go in half a second, the device is given up: the buffers are not written
  /// to any more, and every later call fails with kError.
  virtual void cancelAll() = 0;

  /// Ends the halt of an endpoint (CLEAR_FEATURE ENDPOINT_HALT). kTimedOut where the device does
  /// not answer in half a second.
  virtual TransferResult clearHalt(std::uint8_t endpoint) = 0;

  /// Resets the device by its port, whatever it says: it has forgotten everything then, as after
  /// power-on, and the interface is still claimed. Nothing may be in flight. kTimedOut where it is
  /// not back in half a second, and kNoDevice where it came back as another one or not at all: the
  /// device is given up then. kError for one that has no port.
  virtual TransferResult resetPort() { return TransferResult::kError; }

  /// Packets of the interrupt endpoint from now on, in their order, until an empty handler is given
  /// or the endpoint fails. The handler is called on the main loop, never from inside another call,
  /// and is kept while it runs; it may do whatever it likes, letting the device go included.
  /// cancelAll() leaves the watching alone. Nothing on a device without an interrupt endpoint.
  virtual void watchInterrupts(InterruptHandler handler) = 0;
};

/// Where a PTP interface is found.
/// A node is used again for another device once this one is gone, so an address is good for one
/// attempt and is not kept.
struct USBInterfaceAddress {
  std::string deviceNode;  ///< for example "/dev/bus/usb/001/004"
  std::uint8_t interfaceNumber = 0;
};

/// Main thread only.
class USBDeviceOpener {
 public:
  virtual ~USBDeviceOpener() = default;
  /// Opens the node and claims the interface. On failure the result is null and `*failure` is
  /// kICAAccessDenied (no permission on the node), kICADeviceBusy (claimed by another process,
  /// which `*why` names where it is this user's), kICADeviceGone, kICAProtocolError (not
  /// configured, or descriptors without the two bulk endpoints) or kIOError; `*why` says it in
  /// words.
  virtual std::unique_ptr<USBDevice> open(const USBInterfaceAddress& address, Status* failure,
                                          std::string* why) = 0;
};

}  // namespace tarvo::ptp
