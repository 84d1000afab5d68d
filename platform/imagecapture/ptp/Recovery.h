// Getting back in step with a device after a transaction that went wrong: the class requests of the
// USB still-image class (PIMA 15740:2000, annex D.5), endpoint halts and stale data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/Container.h"

namespace tarvo::ptp {

/// Main thread only. Each step takes `Timeouts::recovery` at most. A device that lets one class
/// request time out is asked nothing more on endpoint 0.
///
/// The stages, each of which is enough for some devices: the cancel request; waiting until the
/// device status is OK, with halts ended as the device names them; device reset, which costs the
/// session; and reading until nothing comes.
class Recovery {
 public:
  /// `scratch` takes what is drained. All are lent.
  Recovery(USBDevice& device, BulkPipe& pipe, std::span<std::byte> scratch,
           const Timeouts& timeouts);

  /// Tells the device to give the transaction up. It may refuse (stall), which is no failure.
  void cancelTransaction(std::uint32_t transactionID);

  /// Ends the halt of `endpoint` and of those that the device status names.
  void clearHalts(std::uint8_t endpoint);

  /// The whole way back: cancel request, device status until it is OK, device reset where it does
  /// not become so, and what is left in the IN endpoint dropped. False when the device is not idle
  /// in the end.
  bool resynchronise(std::uint32_t transactionID);

  /// For a device that a killed process has left in the middle of something and that says nothing:
  /// what it may want to send is dropped, then cancel request and device reset, whatever it says of
  /// itself. False when it is not idle in the end.
  bool startAfresh(std::uint32_t transactionID);

  /// Device reset: the device drops its session. False when it does not become idle.
  bool resetDevice();

  /// Reads and drops what the device still sends, until it pauses.
  void drain();

  bool silent() const { return silent_; }  ///< a class request has timed out
  bool gone() const { return gone_; }

 private:
  /// None when the device does not know the request or has not answered.
  std::optional<DeviceStatus> deviceStatus();
  /// False when the device is still busy after Timeouts::recovery, silent or gone.
  bool awaitIdle();
  std::optional<std::size_t> request(std::uint8_t type, std::uint8_t code,
                                     std::span<std::byte> data);
  /// Nothing for an endpoint that is not ours, for the device may name any.
  void clearHalt(std::uint8_t endpoint);

  USBDevice& device_;
  BulkPipe& pipe_;
  std::span<std::byte> scratch_;
  Timeouts timeouts_;
  bool silent_ = false;
  bool gone_ = false;
};

}  // namespace tarvo::ptp
