// The USB device that a registry entry is part of.
#pragma once

#include <string_view>

#include "platform/iokit/Registry.h"

namespace tarvo {

/// The nearest USB device above `service`; 0 where there is none.
inline ServiceHandle usbHandleAbove(Registry& registry, ServiceHandle service) {
  for (const ServiceHandle ancestor :
       registry.ancestors(service).value_or(std::vector<ServiceHandle>{})) {
    const auto properties = registry.properties(ancestor);
    if (properties && properties->value("IOClass", "") == "usb_device") return ancestor;
  }
  return 0;
}

/// That of the disk or partition `bsdName`; 0 where there is none.
inline ServiceHandle usbDeviceOfDisk(Registry& registry, std::string_view bsdName) {
  const auto disks = registry.servicesMatchingBSDName(bsdName);
  return disks.empty() ? 0 : usbHandleAbove(registry, disks.front());
}

}  // namespace tarvo
