// Connects to PTP devices over an opener of USB devices; in the product that is LibusbDeviceOpener.
#pragma once

#include <memory>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/PTPConnection.h"

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

}  // namespace tarvo::ptp
