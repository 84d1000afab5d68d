// PTP devices on libusb: which interface of a device speaks PTP, how its node is opened, who holds
// it where that fails, and the connection over it.
#pragma once

#include <libusb.h>

#include <memory>
#include <optional>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

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
