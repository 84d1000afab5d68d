// One watching of a device's events, from the packets of its interrupt endpoint to the handler.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/EventAssembler.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// Main thread only. It lasts until it is destroyed or the endpoint fails; its handler
/// may destroy it, and the device with it.
class EventWatch {
 public:
  /// `device` is lent. `name` says in log lines which device this is. What the handler raises is
  /// logged.
  EventWatch(USBDevice& device, std::function<void(const Event&)> handler, LogSink log,
             std::string name);
  EventWatch(const EventWatch&) = delete;
  EventWatch& operator=(const EventWatch&) = delete;
  ~EventWatch();

 private:
  struct State;

  USBDevice& device_;
  /// Shared with a call of the handler that is running.
  std::shared_ptr<State> state_;
};

}  // namespace tarvo::ptp
