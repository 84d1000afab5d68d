#include "platform/imagecapture/ObjectTable.h"

#include <algorithm>
#include <utility>

#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {

const DeviceObject& ObjectTable::add(PropertyDictionary dictionary,
                                     std::shared_ptr<PTPChannel> channel) {
  return devices_.emplace_back(
      DeviceObject{++lastHandle_, std::move(dictionary), std::move(channel)});
}

DeviceObject ObjectTable::remove(ICAObject handle) {
  const auto found = std::ranges::find(devices_, handle, &DeviceObject::handle);
  // Handle 0, which is no object.
  if (found == devices_.end()) return {};
  DeviceObject removed = std::move(*found);
  devices_.erase(found);
  return removed;
}

const DeviceObject* ObjectTable::device(ICAObject handle) const {
  const auto found = std::ranges::find(devices_, handle, &DeviceObject::handle);
  return found == devices_.end() ? nullptr : &*found;
}

Status ObjectTable::statusOfMissing(ICAObject handle) const {
  // Handles count up, so one that was given out and is not there any more has gone.
  // Clients are told the difference, for a device that has gone is no mistake of theirs.
  return handle > kDeviceList && handle <= lastHandle_ ? status::kICADeviceGone
                                                       : status::kICAInvalidObject;
}

void EventRegistrations::set(ICAObject object, FourCharCode type,
                             ImageCapture::EventCallback callback) {
  if (callback) {
    callbacks_[{object, type}] = std::move(callback);
  } else {
    callbacks_.erase({object, type});
  }
}

void EventRegistrations::deliver(const ICAEvent& event) const {
  // The object's own listener first: it knows the object, the other may ask it.
  deliverTo(event.object, event);
  deliverTo(0, event);
}

void EventRegistrations::forget(ICAObject object) {
  std::erase_if(callbacks_, [&](const auto& each) { return each.first.first == object; });
}

void EventRegistrations::deliverTo(ICAObject registered, const ICAEvent& event) const {
  const auto found = callbacks_.find({registered, event.type});
  if (found == callbacks_.end()) return;
  const auto callback = found->second;  // it may be replaced while it runs
  guardedEntry(log_, "Image Capture event", [&] { callback(event); });
}

}  // namespace tarvo
