// The process-wide state of the picture devices. The owner of the process makes one and holds it
// for its life; while it lives, the class operations of the devices reach it.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/desktop/Desktop.h"
#include "platform/foundation/MakerConstants.h"
#include "platform/foundation/MountTable.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

class XTPictureDevice;

inline constexpr std::string_view kDeviceAddedNotification = "DeviceAdded";
inline constexpr std::string_view kDeviceRemovedNotification = "DeviceRemoved";

/// Main thread only.
///
/// The registry shares each device with whoever got it from the list: a device that has left lives
/// on, disconnected, until the last of them lets it go.
class DeviceRegistry {
 public:
  using DeviceList = std::vector<std::shared_ptr<XTPictureDevice>>;

  DeviceRegistry(NotificationCenter& center, NotificationQueue& queue, RunLoop& runLoop,
                 LogSink log)
      : center_(center), queue_(queue), runLoop_(runLoop), log_(std::move(log)) {}
  ~DeviceRegistry() { *alive_ = false; }
  DeviceRegistry(const DeviceRegistry&) = delete;
  DeviceRegistry& operator=(const DeviceRegistry&) = delete;

  /// In the order of arrival. Valid until the next change; observers take a copy.
  const DeviceList& devices() const { return deviceSet_; }

  /// Appends the device and announces it, unless one that is the same device is there already,
  /// which is logged. What an observer raises is logged and passed on; the device stays in the
  /// list.
  void add(const std::shared_ptr<XTPictureDevice>& device);
  /// Ends the device's observing, announces its removal and drops it; nothing for a device that is
  /// not in the list. What an observer raises is passed on after the device has been dropped.
  void remove(XTPictureDevice& device);
  /// Drops every device without a notification.
  void clear() { deviceSet_.clear(); }

  /// Posts the notification about `device` as the posting style says: when the main loop is idle,
  /// with the style that holds then, or at once.
  void notify(std::string_view name, XTPictureDevice& device);

  /// kWhenIdle while discovery runs at the start, so that the observers are called when all of it
  /// is known; kNow otherwise.
  PostingStyle discoveryNotificationPostingStyle = PostingStyle::kNow;

 private:
  /// From the loop: the second half of a deferred notify().
  void postAtIdleTime(const Notification& notification);

  NotificationCenter& center_;
  NotificationQueue& queue_;
  RunLoop& runLoop_;
  LogSink log_;
  DeviceList deviceSet_;
  /// Tells deferred calls that their registry has gone.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// Inspections of Image Capture devices that wait for their time: the half second after an arrival,
// and the retries while somebody else holds the device's interface.

/// Main thread only. At most one inspection of an object waits; destroying this drops them all.
///
/// A timer of the main loop waits for each, none of them repeats, and none is left when nothing
/// waits.
class PendingInspections {
 public:
  explicit PendingInspections(RunLoop& runLoop) : runLoop_(runLoop) {}
  ~PendingInspections();
  PendingInspections(const PendingInspections&) = delete;
  PendingInspections& operator=(const PendingInspections&) = delete;

  /// Whether an inspection of the object is scheduled.
  bool isWaiting(ICAObject object) const;
  /// Calls `inspect` once after `delay`. Replaces what waits for the same object.
  void schedule(ICAObject object, std::chrono::milliseconds delay, std::function<void()> inspect);
  /// Counts a retry and gives its number, from 1 on; 0 once `limit` retries have been counted since
  /// the last forget().
  int countRetry(ICAObject object, int limit);
  /// Drops what waits for the object, and its count of retries.
  void forget(ICAObject object);

 private:
  void cancelTimer(ICAObject object);

  RunLoop& runLoop_;
  /// Only timers that have not fired.
  std::map<ICAObject, std::shared_ptr<Timer>> timers_;
  /// Of objects whose interface was refused, until forget().
  std::map<ICAObject, int> retries_;
};

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
  /// The Image Capture service of the required room.
  static ImageCapture& imageCapture() { return required().services().imageCapture; }

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
