// Finds PTP cameras: every USB interface of class 6, subclass 1, protocol 1 is a device, whoever
// made it.
#pragma once

#include <map>
#include <memory>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/DeviceSink.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only.
/// The triple is that of the USB Still Image Capture Device Definition: base class 6, subclass
/// 1, protocol 1.
class PTPSource {
 public:
  /// Reports what is there at once, and what comes and goes while it lives.
  /// Both must outlive the source. Devices that are there when it goes are not reported as gone.
  PTPSource(Registry& registry, DeviceSink& sink, LogSink log);

 private:
  /// Called for what is found and for what is announced; one that is known already is left alone.
  void interfaceCame(ServiceHandle service);
  /// Its properties cannot be read any more; the handle is enough.
  void interfaceWent(ServiceHandle service);
  /// None for an interface that has lost its device or its place by now.
  std::optional<FoundDevice> describe(ServiceHandle service);

  Registry& registry_;
  DeviceSink& sink_;
  LogSink log_;
  // Handles are what tells an interface that is found and announced as well from two.
  std::map<ServiceHandle, ICAObject> devices_;
  /// Last, so that no callback comes once the members above have gone.
  std::unique_ptr<RegistrySubscription> subscription_;
};

}  // namespace tarvo
