// The kernel's own importer of USB/IP devices (drivers/usb/usbip/vhci_hcd), driven through sysfs:
// a device that is attached here is real to every program of the machine. Needs root.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>

namespace tarvo::simulator {

/// Any thread; nothing is held between two calls.
class VhciController {
 public:
  /// Raises std::runtime_error, in words, when the kernel has no vhci_hcd.
  VhciController();

  /// Number of the bus on which devices of full and high speed appear.
  unsigned bus() const { return bus_; }
  /// Hands `socket` to the kernel, which keeps a reference of its own, and makes a device appear at
  /// `port` (from 0 on) within a second. `speed` as in usbip::speedNumber. Raises std::system_error
  /// where the port does not exist or is in use, or without the right to it.
  void attach(unsigned port, int socket, std::uint32_t deviceNumber, unsigned speed) const;
  /// Takes the device away, if there is one, and waits until the port can be used again, `patience`
  /// at most.
  void detach(unsigned port, std::chrono::milliseconds patience) const;

 private:
  /// Whether anything is at the port, also on its way in or out.
  bool isInUse(unsigned port) const;
  bool hasConnection(unsigned port) const;
  void write(const char* file, const std::string& text) const;

  std::filesystem::path folder_;
  unsigned bus_ = 0;
};

}  // namespace tarvo::simulator
