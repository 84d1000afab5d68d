// Virtual devices for importers of USB/IP, or real ones of this machine's kernel.
//
//   UsbipHost host({.listenPort = 3240});   // usbip attach -r 127.0.0.1 -b 1-1
//   UsbipHost host({.attaches = true});     // as root: every device that is plugged in is there
//   host.plug(DeviceDescription::fromFile("tarvo-camera.json"), "tarvo-camera");
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>

#include "Utilities/FileDescriptor.h"
#include "simulator/host/DeviceHost.h"
#include "simulator/usbip/UsbipConnection.h"

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

struct UsbipOptions {
  bool attaches = false;  ///< hands devices to the kernel's vhci_hcd as they are plugged in
  /// Of 127.0.0.1; 0: any free one. Absent: devices are not exported.
  std::optional<std::uint16_t> listenPort;
};

/// A device that is plugged in here.
struct ExportedDevice : HostedDevice {
  std::unique_ptr<UsbipConnection> connection;  ///< null until it is imported
  std::optional<unsigned> kernelPort;           ///< of vhci_hcd, where it was attached
};

/// Main thread only; the default main context must run. Where devices are attached, their port
/// numbers are the kernel's, 1 to 8, and a port's bus is the one that the kernel gives.
class UsbipHost : public DeviceHost {
 public:
  /// Raises std::runtime_error or std::system_error, in words, when it cannot listen or the kernel
  /// has no vhci_hcd.
  explicit UsbipHost(const UsbipOptions& options);
  ~UsbipHost() override;

  /// The port of 127.0.0.1 that it listens at; 0 where it does not.
  std::uint16_t listenPort() const;

 protected:
  std::unique_ptr<HostedDevice> makeEntry() override;
  void show(HostedDevice& device) override;
  /// Waits up to 5 s for the kernel to let the device go, so that its port can be used again.
  void hide(HostedDevice& device) override;

 private:
  void listen(std::uint16_t port);
  void attach(ExportedDevice& device);
  /// Takes one connection until it has imported a device; a peer that is slow holds the loop for
  /// 2 s at most.
  void acceptOne();
  void import(FileDescriptor socket);

  FileDescriptor listener_;
  unsigned source_ = 0;
  std::optional<VhciController> kernel_;
};

}  // namespace tarvo::simulator
