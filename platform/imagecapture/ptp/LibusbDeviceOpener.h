// Opens device nodes with libusb.
#pragma once

#include <memory>
#include <string>

#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

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
