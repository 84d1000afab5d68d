#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"

#include <algorithm>
#include <string>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/Exception.h"

namespace tarvo {
namespace {

// Set by the room itself for its life. The class operations have no object to reach it through.
PictureDeviceRoom* currentRoom = nullptr;

}  // namespace

PictureDeviceRoom::PictureDeviceRoom(PictureDeviceServices services)
    : services_(std::move(services)),
      deviceRegistry_(services_.center, services_.queue, services_.runLoop, services_.log),
      pendingInspections_(services_.runLoop) {
  currentRoom = this;
}

PictureDeviceRoom::~PictureDeviceRoom() {
  // The wait for the helper's wireless device is observed in the room's name.
  services_.center.removeObserver(this);
  // While the room is still current: devices look it up as they end.
  deviceRegistry_.clear();
  if (currentRoom == this) currentRoom = nullptr;
}

PictureDeviceRoom* PictureDeviceRoom::current() {
  return currentRoom;
}

PictureDeviceRoom& PictureDeviceRoom::required() {
  if (!currentRoom) raiseAssertion("There is no PictureDeviceRoom.");
  return *currentRoom;
}

void DeviceRegistry::add(const std::shared_ptr<XTPictureDevice>& device) {
  // A camera that announces itself twice, or comes back before its removal was seen, is one device.
  // The older one stays, since it may be in use.
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

PendingInspections::~PendingInspections() {
  // The loop keeps its timers by itself and would fire them into nothing.
  for (const auto& [object, timer] : timers_)
    timer->invalidate();
}

bool PendingInspections::isWaiting(ICAObject object) const {
  const auto found = timers_.find(object);
  return found != timers_.end() && found->second->isValid();
}

void PendingInspections::schedule(ICAObject object, std::chrono::milliseconds delay,
                                  std::function<void()> inspect) {
  cancelTimer(object);
  // `this` is safe in it: the destructor invalidates every timer.
  timers_[object] = runLoop_.scheduleTimer(delay, false, [this, object, work = std::move(inspect)] {
    timers_.erase(object);  // first: the work may schedule the next one
    work();
  });
}

int PendingInspections::countRetry(ICAObject object, int limit) {
  const int number = ++retries_[object];
  return number <= limit ? number : 0;
}

void PendingInspections::forget(ICAObject object) {
  cancelTimer(object);
  retries_.erase(object);
}

void PendingInspections::cancelTimer(ICAObject object) {
  const auto found = timers_.find(object);
  if (found == timers_.end()) return;
  found->second->invalidate();
  timers_.erase(found);
}

}  // namespace tarvo
