#include "platform/imagecapture/ptp/LibusbConnector.h"

#include <utility>

#include "Utilities/Format.h"
#include "platform/imagecapture/ptp/BulkConnection.h"

namespace tarvo::ptp {

LibusbConnector::LibusbConnector(std::unique_ptr<USBDeviceOpener> opener, const Timeouts& timeouts,
                                 LogSink log)
    : opener_(std::move(opener)), timeouts_(timeouts), log_(std::move(log)) {}

std::unique_ptr<PTPConnection> LibusbConnector::connect(const USBInterfaceAddress& address,
                                                        Status* failure, std::string* why) {
  Status status = status::kOK;
  std::string words;
  auto device = opener_->open(address, &status, &words);
  // The opener always gets both, for the log line below.
  if (failure != nullptr) *failure = status;
  if (why != nullptr) *why = words;
  std::string name =
      formatted("%s interface %u", address.deviceNode.c_str(), address.interfaceNumber);
  if (!device) {
    logTo(log_, LogLevel::kDebug, formatted("PTP: no connection: %s", words.c_str()));
    return nullptr;
  }
  logTo(log_, LogLevel::kDebug, formatted("PTP: connected to %s", name.c_str()));
  return std::make_unique<BulkConnection>(std::move(device), timeouts_, log_, std::move(name));
}

}  // namespace tarvo::ptp
