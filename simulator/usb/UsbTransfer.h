// One transfer between a host and a virtual device, with the outcome in the terms of a host's
// driver: what usbfs and USB/IP have in common.
#pragma once

#include <cstddef>
#include <span>

#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// Setup packets are 8 bytes (USB 2.0, 9.3); more is not looked at, and fewer read as zeros.
SetupPacket setupFrom(std::span<const std::byte> bytes);

/// How far a transfer has come. Not locked: its owner guards it.
class UsbTransfer {
 public:
  bool isDone() const { return done_; }
  /// 0 or a negative error number, as the kernel's drivers have them (Documentation, "USB Error
  /// codes"): EPIPE for a stall, EOVERFLOW for a babble, ESHUTDOWN for a device that has gone.
  int status() const { return status_; }
  /// Bytes that have moved, without the setup packet.
  std::size_t length() const { return length_; }
  void finish(int status) {
    status_ = status;
    done_ = true;
  }

  /// A whole control request. `data` is what goes with it in either direction. Not done afterwards
  /// where the device is deaf; it never will be.
  void control(VirtualUSBDevice& device, const SetupPacket& setup, std::span<std::byte> data);
  /// A whole OUT transfer. A short packet ends it; an exact multiple goes on, unless a packet of no
  /// length is asked for behind it.
  void out(VirtualUSBDevice& device, std::uint8_t endpoint, std::span<const std::byte> data,
           bool zeroPacket);
  /// Lets the device fill what is left of `room`, which must be the same at each call. Not done
  /// afterwards: the device has no more now.
  void in(VirtualUSBDevice& device, std::uint8_t endpoint, std::span<std::byte> room);

 private:
  int status_ = 0;
  std::size_t length_ = 0;
  bool done_ = false;
};

}  // namespace tarvo::simulator
