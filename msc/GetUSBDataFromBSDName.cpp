#include "msc/GetUSBDataFromBSDName.h"

#include "NativeServices/Logging.h"
#include "msc/MSCRoom.h"

namespace tarvo {

namespace {

/// The first service of that name; 0, traced, where there is none.
ServiceHandle serviceOf(Registry& registry, const std::string& bsdName) {
  if (bsdName.empty()) {
    TraceLog::trace("Error: GetUSBDataFromBSDName failed to get dictionary for bsdName %s",
                    bsdName.c_str());
    return 0;
  }
  const auto services = registry.servicesMatchingBSDName(bsdName);
  if (!services.empty()) return services.front();
  TraceLog::trace("Error: GetUSBDataFromBSDName failed to get service for %s", bsdName.c_str());
  return 0;
}

PropertyDictionary usbDataOf(const PropertyDictionary& properties) {
  PropertyDictionary data = PropertyDictionary::object();
  for (const char* key : {"locationID", "idVendor", "idProduct"}) {
    if (properties.contains(key)) data[key] = properties[key];
  }
  return data;
}

}  // namespace

PropertyDictionary GetUSBDataFromBSDName(const std::string& bsdName) {
  auto& registry = MSCRoom::required().services().registry;
  const ServiceHandle service = serviceOf(registry, bsdName);
  if (service == 0) return PropertyDictionary::object();
  const auto ancestors = registry.ancestors(service);
  if (!ancestors) {
    TraceLog::trace("Error: GetUSBDataFromBSDName IORegistryEntryCreateIterator failed");
    return PropertyDictionary::object();
  }
  for (const ServiceHandle ancestor : *ancestors) {
    const auto properties = registry.properties(ancestor);
    if (!properties) {
      TraceLog::trace("Error: GetUSBDataFromBSDName IORegistryEntryCreateCFProperties failed");
    } else if (properties->contains("idVendor")) {
      return usbDataOf(*properties);
    }
  }
  TraceLog::trace("Error: GetUSBDataFromBSDName failed to find the device in IOKit Registry");
  return PropertyDictionary::object();
}

}  // namespace tarvo
