// The list of picture devices that are there, and the two notifications about it.
//
// Devices enter and leave through XTPictureDevice::cache() and uncache(); "DeviceAdded" and
// "DeviceRemoved" carry the device as object and no user information.
#pragma once

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/NotificationQueue.h"

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

}  // namespace tarvo
