// The objects that the service shows, the device list and the devices in it, and who has registered
// for their events.
#pragma once

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Utilities/LogSink.h"
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
  [[nodiscard]] Status statusOfMissing(ICAObject handle) const;

 private:
  std::vector<DeviceObject> devices_;
  /// What lies between the list and this one, and is not in the table, is a device that went.
  ICAObject lastHandle_ = kDeviceList;
};

// Who wants to hear of which events.

/// Main thread only. A callback may register, end registrations and send messages.
class EventRegistrations {
 public:
  explicit EventRegistrations(LogSink log) : log_(std::move(log)) {}

  /// One callback for each object (0: any) and type; an empty one ends the registration.
  void set(ICAObject object, FourCharCode type, ImageCapture::EventCallback callback);
  /// Calls who is registered for the event's object, then who is registered for any. An exception
  /// is logged and keeps the event from nobody else.
  void deliver(const ICAEvent& event) const;
  /// Whether an event of this type of the object would be heard by anybody.
  bool hears(ICAObject object, FourCharCode type) const {
    return callbacks_.contains({object, type}) || callbacks_.contains({0, type});
  }
  /// Ends every registration of the object.
  void forget(ICAObject object);

 private:
  /// Calls who is registered for `registered`, which is the event's object or 0.
  void deliverTo(ICAObject registered, const ICAEvent& event) const;

  LogSink log_;
  /// An empty function never stands here.
  std::map<std::pair<ICAObject, FourCharCode>, ImageCapture::EventCallback> callbacks_;
};

}  // namespace tarvo
