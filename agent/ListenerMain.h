// The agent's one controller: decides what happens when a device arrives.
//
// Every arrival of a supported device ends in one launch of the Relay application, unless a guard
// says to ignore it: the user's session is inactive, the Relay application runs already, or the
// wireless utility is transferring. Beside that the Listener starts the wireless utility, tells
// other processes when the Relay application is busy and done, and looks for devices that one
// defect of the Image Capture service loses (system versions 10.6.0 to 10.6.3).
//
//   auto listener = Listener::init({center, workspaceCenter, ...});
//   // from here on arrivals are handled by the main loop
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Utilities/LogSink.h"
#include "agent/AppBlocker.h"
#include "platform/foundation/DistributedNotificationCenter.h"
#include "platform/foundation/MakerConstants.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/foundation/RunningApplications.h"
#include "platform/foundation/Task.h"
#include "platform/imagecapture/ImageCapture.h"

namespace tarvo {

class TarvoMSCDevice;

/// Posted by another process that wants the wireless utility started again.
inline constexpr std::string_view kLaunchWRLAppNotification = "LaunchWRLAppNotification";

/// Tag of everything that the Listener logs.
extern const std::wstring sRLAListener;

/// What the Listener stands on; all of it outlives the Listener. The device registry, the Image
/// Capture devices and the mass-storage list are reached through their rooms.
struct ListenerServices {
  NotificationCenter& center;           ///< process-local
  NotificationCenter& workspaceCenter;  ///< session active and inactive
  DistributedNotificationCenter& distributedCenter;
  RunLoop& runLoop;
  TaskFactory& taskFactory;
  RunningApplications& runningApplications;
  ImageCapture& imageCapture;
  const MakerConstants& constants;
  std::uint32_t systemVersion = 0;     ///< BCD, 0x1062 is 10.6.2; 0 when it is not known
  LogSink log;                         ///< what the user must learn even with tracing off
  std::function<void()> stateChanged;  ///< called after any state below may have changed
};

/// Main thread only. Exceptions reach the caller, except where an operation says that it logs them.
class Listener {
 public:
  /// Makes the Listener, arms both device watchers, handles the devices that are attached already
  /// and starts the wireless utility. Null when there is no memory for it. Raises what arming the
  /// watchers raises.
  static std::unique_ptr<Listener> init(ListenerServices services);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  /// A picture device has joined the registry; it is the notification's object. Raises the
  /// internal-inconsistency exception without a notification.
  void newImageCaptureDeviceAdded(const Notification* notification);
  /// A mass-storage unit has come; it is the notification's object. Raises like the one above.
  void newMSCDeviceAdded(const Notification* notification);
  void fastUserSwitchHandler(const Notification& notification);

  /// Starts looking for a lost device once a second, for five seconds in all. Does nothing while a
  /// search is on.
  void startLostDevTimer();
  void startKillTimer();
  void lostDevTimerHandler();
  void killTimersHandler();

  /// Starts the Relay application with these arguments and announces busy. The list ends at the
  /// first one that is absent. A failed start is logged; nothing is announced then.
  void launchAppWithType(const std::string& type, const std::optional<std::string>& usbId,
                         const std::optional<std::string>& path);
  /// A child that is not started yet; `relativePath` starts at the agent's bundle.
  std::shared_ptr<Task> createTaskForPath(std::string_view relativePath) const;
  bool relayAppIsRunning() const;
  /// Shows the busy page in the viewer. A failed start is logged.
  void showBusyMessage();
  /// Starts the wireless utility. A failed start is logged.
  void launchWRLApp();
  void launchWRLAHandler();
  /// A child has ended; it is the notification's object.
  void appDiedHandler(const Notification& notification);

  // What the agent shows of itself.
  bool isActive() const { return active_; }
  bool relayIsRunning() const { return rlaTask && rlaTask->isRunning(); }
  bool wirelessIsBusy() const { return appBlocker && appBlocker->isBusy(); }
  bool recoveryIsArmed() const { return lostDevTimer_ || killTimer_; }

 private:
  explicit Listener(ListenerServices services);
  void observeDevices();
  void observeSession();
  void registerForAviBug();
  void observeApplications();
  void launchWirelessUtilityAgain();
  bool mayLaunch();
  void awaitReturnOf(const TarvoMSCDevice& device);
  void stopLostDevTimer();
  std::string bundlePath(std::string_view relativePath) const;
  void changed() const;

  ListenerServices services_;
  std::shared_ptr<Timer> lostDevTimer_;  ///< kept after a find, cleared by killTimersHandler only
  std::shared_ptr<Timer> killTimer_;
  std::shared_ptr<Task> rlaTask;
  std::shared_ptr<Task> wrlaTask;
  std::unique_ptr<AppBlocker> appBlocker;
  bool active_ = true;
  bool handleAviBug_ = false;
  std::optional<std::string> mscSerialNum_;
  [[maybe_unused]] bool closeInstallerWindow = false;  ///< declared, and used by nobody: intended
};

/// Image Capture's callback for added devices while devices may get lost: a file whose name holds
/// ".AVI" (in capitals) starts the search. `refcon` is the reference value of the registration and
/// may be null.
void addDeviceNotificationCB(std::string_view notificationType,
                             const PropertyDictionary& notificationDictionary, Listener* refcon);

}  // namespace tarvo
