#include "platform/imagecapture/PTPSource.h"

#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

PTPSource::PTPSource(Registry& registry, DeviceSink& sink, LogSink log)
    : registry_(registry), sink_(sink), log_(std::move(log)) {
  const PropertyDictionary match = {{"IOClass", "usb_interface"},
                                    {"bInterfaceClass", ptp::kStillImageClass},
                                    {"bInterfaceSubClass", ptp::kStillImageSubclass},
                                    {"bInterfaceProtocol", ptp::kPTPProtocol}};
  subscription_ = registry_.addMatchingNotification(
      match, [this](ServiceHandle service) { interfaceCame(service); },
      [this](ServiceHandle service) { interfaceWent(service); });
  for (const ServiceHandle service : subscription_->present())
    interfaceCame(service);
}

void PTPSource::interfaceCame(ServiceHandle service) {
  // udev repeats events, and what is found may be announced as well.
  if (devices_.contains(service)) return;
  auto device = describe(service);
  if (!device) {
    logTo(log_, LogLevel::kDebug, formatted("PTP interface %u went before it was read", service));
    return;
  }
  devices_[service] = sink_.deviceCame(std::move(*device));
}

void PTPSource::interfaceWent(ServiceHandle service) {
  // Off the map first: listeners may look for devices in their turn.
  const auto device = devices_.extract(service);
  if (device) sink_.deviceWent(device.mapped());
}

std::optional<FoundDevice> PTPSource::describe(ServiceHandle service) {
  const auto interface = registry_.properties(service);
  const auto usbDevice = usbDeviceAbove(registry_, service);
  if (!interface || !usbDevice) return std::nullopt;
  const auto number = int32ForKey(*interface, "bInterfaceNumber");
  const auto node = textForKey(*usbDevice, "USB Device Node");
  if (!number || !node) return std::nullopt;
  const std::string name = textForKey(*usbDevice, "USB Product Name").value_or("");
  return FoundDevice{deviceDictionary(name, device_module::kPTPCamera, *usbDevice),
                     ptp::USBInterfaceAddress{*node, static_cast<std::uint8_t>(*number)}};
}

}  // namespace tarvo
