// The process-wide state of the picture devices. The owner of the process makes one and holds it
// for its life; while it lives, the class operations of the devices reach it.
#pragma once

#include <string>

#include "NativeServices/PictureDevice/devices/DeviceRegistry.h"
#include "NativeServices/PictureDevice/devices/PendingInspections.h"
#include "Utilities/LogSink.h"
#include "platform/desktop/RunningApplications.h"
#include "platform/foundation/MakerConstants.h"
#include "platform/foundation/MountTable.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/NotificationQueue.h"
#include "platform/foundation/RunLoop.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// What the picture devices use of the platform; lent for the life of the room.
struct PictureDeviceServices {
  NotificationCenter& center;
  NotificationQueue& queue;
  RunLoop& runLoop;
  ImageCapture& imageCapture;
  Registry& registry;
  MountTable& mounts;
  RunningApplications& applications;
  const UserDefaults& defaults;
  const MakerConstants& maker;
  LogSink log;
  /// The 8-bit encoding of text files on devices and cards, by the name that iconv has for it.
  std::string defaultEncoding = "UTF-8";
};

/// Main thread only. Destroying it drops every device and everything that is scheduled.
///
///   PictureDeviceRoom room({center, queue, loop, imageCapture, registry, mounts, applications,
///                           defaults, maker, log});
///   XTPictureDevice::registerAllNotifications();
///
/// Devices and callbacks may outlive it: what they need of it they look up anew each time.
class PictureDeviceRoom {
 public:
  /// Becomes the current room.
  explicit PictureDeviceRoom(PictureDeviceServices services);
  ~PictureDeviceRoom();
  PictureDeviceRoom(const PictureDeviceRoom&) = delete;
  PictureDeviceRoom& operator=(const PictureDeviceRoom&) = delete;

  /// The room that lives now; null when there is none.
  static PictureDeviceRoom* current();
  /// The same where there must be one; raises an assertion otherwise.
  static PictureDeviceRoom& required();

  /// The services are of the platform and outlive the room.
  const PictureDeviceServices& services() const { return services_; }
  DeviceRegistry& deviceRegistry() { return deviceRegistry_; }
  PendingInspections& pendingInspections() { return pendingInspections_; }

  /// Set after the device-added event has been registered.
  bool registeredForDeviceAdded = false;
  /// Selects the asynchronous inspection, which yields no device; never set.
  bool gEnableAsyncDeviceInspection = false;

 private:
  PictureDeviceServices services_;
  DeviceRegistry deviceRegistry_;
  PendingInspections pendingInspections_;
};

}  // namespace tarvo
