// The objects that the service shows: the device list and the devices in it.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/PTPChannel.h"

namespace tarvo {

/// A device with what its messages need.
struct DeviceObject {
  ICAObject handle = 0;
  PropertyDictionary dictionary;
  std::shared_ptr<PTPChannel> channel;  ///< null for a volume

  bool isVolume() const { return channel == nullptr; }
};

/// Main thread only.
class ObjectTable {
 public:
  /// Handle of the list of devices.
  static constexpr ICAObject kDeviceList = 1;

  /// Gives the device a handle that was never used before.
  const DeviceObject& add(PropertyDictionary dictionary, std::shared_ptr<PTPChannel> channel);
  /// Takes the device off the table; an empty object when it is not there.
  DeviceObject remove(ICAObject handle);
  /// Null when `handle` is no device. Valid until the next add() or remove().
  const DeviceObject* device(ICAObject handle) const;
  DeviceObject* device(ICAObject handle) {
    return const_cast<DeviceObject*>(std::as_const(*this).device(handle));
  }
  /// In order of arrival.
  const std::vector<DeviceObject>& devices() const { return devices_; }
  /// Whether it is the device list or one of the devices.
  bool contains(ICAObject handle) const { return handle == kDeviceList || device(handle); }
  /// What to answer where device() gave null: kICADeviceGone for a device that went, otherwise
  /// kICAInvalidObject.
  Status statusOfMissing(ICAObject handle) const;

 private:
  std::vector<DeviceObject> devices_;
  /// What lies between the list and this one, and is not in the table, is a device that went.
  ICAObject lastHandle_ = kDeviceList;
};

}  // namespace tarvo
