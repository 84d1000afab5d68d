// Connects to PTP devices over an opener of USB devices; in the product that is LibusbDeviceOpener.
#pragma once

#include <memory>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/PTPConnection.h"

namespace tarvo::ptp {

/// Main thread only.
class LibusbConnector : public PTPConnector {
 public:
  explicit LibusbConnector(std::unique_ptr<USBDeviceOpener> opener, const Timeouts& timeouts = {},
                           LogSink log = {});

  std::unique_ptr<PTPConnection> connect(const USBInterfaceAddress& address, Status* failure,
                                         std::string* why) override;

 private:
  std::unique_ptr<USBDeviceOpener> opener_;
  Timeouts timeouts_;
  LogSink log_;
};

}  // namespace tarvo::ptp
