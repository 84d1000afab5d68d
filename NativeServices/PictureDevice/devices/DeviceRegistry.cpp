#include "NativeServices/PictureDevice/devices/DeviceRegistry.h"

#include <algorithm>
#include <string>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"

namespace tarvo {

void DeviceRegistry::add(const std::shared_ptr<XTPictureDevice>& device) {
  // A camera that announces itself twice, or comes back before its removal was seen, is one device.
  const auto known = std::ranges::find_if(
      deviceSet_, [&](const auto& each) { return each->isSameDeviceAs(*device); });
  if (known != deviceSet_.end()) {
    const std::string shown = (*known)->description();
    // One that was only looked at once more is nothing to wonder about.
    logTo(log_, shown == device->description() ? LogLevel::kDebug : LogLevel::kInfo,
          device->description() + " is ignored: it is known already, as " + shown);
    return;
  }
  // First, so that an observer finds the device in the list that it asks for.
  deviceSet_.push_back(device);
  try {
    device->notifySelfAdded();
  } catch (const std::exception&) {
    TraceLog::trace("exception while caching a new device %s", device->description().c_str());
    throw;
  }
}

void DeviceRegistry::remove(XTPictureDevice& device) {
  const auto isDevice = [&](const auto& known) { return known.get() == &device; };
  const auto found = std::ranges::find_if(deviceSet_, isDevice);
  if (found == deviceSet_.end()) return;
  const auto kept = *found;  // observers may drop every other holder
  // A device must not hear of its own removal: it would act on a list that still has it.
  center_.removeObserver(&device);
  try {
    device.notifySelfRemoved();
  } catch (...) {
    // Whatever an observer does, a device that is gone must not stay.
    std::erase_if(deviceSet_, isDevice);
    throw;
  }
  std::erase_if(deviceSet_, isDevice);
}

void DeviceRegistry::notify(std::string_view name, XTPictureDevice& device) {
  Notification notification{std::string(name), device.shared_from_this()};
  if (discoveryNotificationPostingStyle != PostingStyle::kWhenIdle) {
    center_.post(notification);
    return;
  }
  // Delivered from the loop, so that observers are never called from inside discovery.
  runLoop_.performOnMainThread([this, alive = alive_, notification = std::move(notification)] {
    // The registry may have ended while the call waited in the loop.
    if (*alive) postAtIdleTime(notification);
  });
}

void DeviceRegistry::postAtIdleTime(const Notification& notification) {
  // The style of now, not that of the discovery which deferred it.
  queue_.enqueue(notification, discoveryNotificationPostingStyle);
}

}  // namespace tarvo
