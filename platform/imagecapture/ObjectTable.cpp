#include "platform/imagecapture/ObjectTable.h"

#include <algorithm>
#include <utility>

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
  return handle > kDeviceList && handle <= lastHandle_ ? status::kICADeviceGone
                                                       : status::kICAInvalidObject;
}

}  // namespace tarvo
