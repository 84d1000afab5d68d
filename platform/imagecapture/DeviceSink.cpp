#include "platform/imagecapture/DeviceSink.h"

namespace tarvo {

std::optional<PropertyDictionary> usbDeviceAbove(Registry& registry, ServiceHandle service) {
  for (const ServiceHandle ancestor :
       registry.ancestors(service).value_or(std::vector<ServiceHandle>{})) {
    auto properties = registry.properties(ancestor);
    if (properties && properties->contains("USB Product Name")) return properties;
  }
  return std::nullopt;
}

PropertyDictionary deviceDictionary(const std::string& name, std::string_view module,
                                    const PropertyDictionary& usbDevice) {
  // Clients compare the last component of the path alone.
  PropertyDictionary dictionary = {
      {"ifil", name},
      {"device module", "/System/Library/Image Capture/Devices/" + std::string(module)},
      {"capa", PropertyDictionary::array()}};
  for (const char* key : {"idVendor", "idProduct", "locationID"}) {
    const auto number = usbDevice.find(key);
    // A device that tells no number has no key, which clients take for unknown; 0 would be a
    // number.
    if (number != usbDevice.end()) dictionary[key] = *number;
  }
  return dictionary;
}

}  // namespace tarvo
