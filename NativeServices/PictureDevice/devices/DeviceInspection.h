// The inspection of one Image Capture device: the interface is claimed, the device is built, the
// interface is let go again.
#pragma once

#include <memory>
#include <string>

#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/LogSink.h"

namespace tarvo {

/// Whether the dictionary's USB vendor id is the maker's.
bool isOfMaker(const PropertyDictionary& properties, const MakerConstants& maker);

/// Main thread only.
///
///   if (const auto device = DeviceInspection(room, object, properties).run()) device->cache();
///
/// Of one use. It may block for as long as the device may take to answer: in the agent 5 s for one
/// that is silent and 8 s for one that is slow (ptp::Timeouts).
class DeviceInspection {
 public:
  /// `properties` is lent.
  DeviceInspection(PictureDeviceRoom& room, ICAObject object, const PropertyDictionary& properties)
      : room_(room), object_(object), properties_(properties) {}

  /// The finished device, with its interface let go; null when it is none of ours, when it cannot
  /// be read, or when somebody else holds the interface. A device of the maker that is held is
  /// inspected again from the main loop, for a bounded time; what goes wrong with one is reported
  /// in words. About devices of other vendors nothing is said above debug. Nothing is raised.
  std::shared_ptr<XTImageCaptureDevice> run();

 private:
  /// With the interface held. Reports what is raised, and why there is no device.
  std::shared_ptr<XTImageCaptureDevice> build();
  /// Schedules the next attempt, or reports that there will be none.
  void interfaceRefused(Status failure, const std::string& why);
  /// "'NAME' at 0xLOCATION " and `what`, as a warning for the maker's devices.
  void report(const std::string& what) const;

  PictureDeviceRoom& room_;
  ICAObject object_;
  const PropertyDictionary& properties_;
};

/// Inspects `object` from an entry of the main loop: what is raised is logged as uncaught in
/// `entry`.
/// Nothing without a room: an entry of the loop can outlive it.
void inspectGuarded(ICAObject object, const char* entry);

}  // namespace tarvo
