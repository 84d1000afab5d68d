// The agent's one controller: decides what happens when a device arrives.
//
// Every arrival of a supported device ends in one launch of the Relay application, unless a guard
// says to ignore it: the user's session is inactive, the Relay application runs already, or the
// wireless utility is transferring. Beside that the Listener starts the wireless utility, tells
// other processes when the Relay application is busy and done, and looks for devices that one
// defect of the Image Capture service loses (system versions 10.6.0 to 10.6.3).
//
// The way of one arrival: the registry posts "DeviceAdded", newImageCaptureDeviceAdded() asks the
// guards and what the device is, launchAppWithType() starts the child, appDiedHandler() hears of
// its end.
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
#include "platform/desktop/Desktop.h"
#include "platform/foundation/MakerConstants.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/foundation/Task.h"
#include "platform/imagecapture/ImageCapture.h"

namespace tarvo {

class TarvoMSCDevice;
class XTPictureDevice;

/// Tag of everything that the Listener logs.
extern const std::wstring sRLAListener;

/// What the Listener stands on; all of it outlives the Listener. The device registry, the Image
/// Capture devices and the mass-storage list are reached through their rooms.
struct ListenerServices {
  NotificationCenter& center;           ///< process-local: devices, ends of children
  NotificationCenter& workspaceCenter;  ///< session active and inactive
  DistributedNotificationCenter& distributedCenter;
  RunLoop& runLoop;
  TaskFactory& taskFactory;
  RunningApplications& runningApplications;
  ImageCapture& imageCapture;
  const MakerConstants& constants;
  std::uint32_t systemVersion = 0;               ///< BCD, 0x1062 is 10.6.2; 0 when it is not known
  LogSink log;                                   ///< what the user must learn even with tracing off
  std::function<void()> stateChanged;            ///< called after any state below may have changed
  AppBlocker::Now now = AppBlocker::Clock::now;  ///< when the wireless utility became busy
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
  /// The user's session has become active or inactive; the notification's name says which.
  void fastUserSwitchHandler(const Notification& notification);

  /// Starts looking for a lost device once a second, for five seconds in all. Does nothing while a
  /// search is on.
  void startLostDevTimer();
  /// Ends every search five seconds from now; one that is running already is moved.
  void startKillTimer();
  /// One look: asks Image Capture for devices that nobody has announced, and stops looking when the
  /// registry holds one that fits. Raises what the look-up raises.
  void lostDevTimerHandler();
  /// The end of a search, found or not; only from here on can another one start.
  void killTimersHandler();

  /// Starts the Relay application with these arguments and announces busy. The list ends at the
  /// first one that is absent; an empty `path` is an argument. A failed start is logged, also with
  /// tracing off; nothing is announced then.
  void launchAppWithType(const std::string& type, const std::optional<std::string>& usbId,
                         const std::optional<std::string>& path);
  /// A child that is not started yet; `relativePath` starts at the agent's bundle and may lead out
  /// of it. Whether there is such a program shows at its start.
  std::shared_ptr<Task> createTaskForPath(std::string_view relativePath) const;
  /// Whether any process of the user is the Relay application, whoever started it.
  bool relayAppIsRunning() const;
  /// Shows the busy page in the viewer. A failed start is logged.
  void showBusyMessage();
  /// Starts the wireless utility. A failed start is logged with tracing alone: on most machines the
  /// utility is not installed.
  void launchWRLApp();
  /// Another process asks for the wireless utility.
  void launchWRLAHandler();
  /// A child has ended; it is the notification's object. After the Relay's end done is announced;
  /// after the wireless utility's it does not count as busy any more.
  void appDiedHandler(const Notification& notification);

  // What the agent shows of itself. `relayIsRunning` means this Listener's child, unlike
  // relayAppIsRunning().
  bool isActive() const { return active_; }
  bool relayIsRunning() const { return rlaTask && rlaTask->isRunning(); }
  bool wirelessIsBusy() const { return appBlocker && appBlocker->isBusy(); }
  std::optional<AppBlocker::Clock::time_point> wirelessBusySince() const {
    return appBlocker ? appBlocker->busySince() : std::nullopt;
  }
  bool recoveryIsArmed() const { return lostDevTimer_ || killTimer_; }

 private:
  explicit Listener(ListenerServices services);

  // The steps of init(), in their order.
  void observeDevices();
  void observeSession();
  void registerForAviBug();
  void observeApplications();
  void launchWirelessUtilityAgain();

  /// Asks the guards of an arrival in their order; the first that holds is logged and gives its
  /// words, none gives empty text.
  std::string hindranceToLaunch();
  /// Tells the user why a device of the maker is ignored, also with tracing off.
  void sayIgnored(const XTPictureDevice& device, const std::string& why);
  /// Looks for the camera that this unit becomes.
  void awaitReturnOf(const TarvoMSCDevice& device);
  void warnOfMountedCard(TarvoMSCDevice& device);
  void warnOfFailure(const TarvoMSCDevice& device, const char* what);
  /// Starts `task` as the application of that identifier. Raises what its launch raises.
  void launchAs(const std::string& identifier, const std::shared_ptr<Task>& task);
  /// The same, but what is raised is one line, in the name of `method`, and the result.
  std::optional<std::string> launchOrTrace(const std::string& identifier,
                                           const std::shared_ptr<Task>& task, const char* method);
  void stopLostDevTimer();
  /// Without "..": the paths lead through folders that need not be there.
  std::string bundlePath(std::string_view relativePath) const;
  /// To be called after any state that is shown has been set.
  void changed() const;

  ListenerServices services_;
  std::shared_ptr<Timer> lostDevTimer_;  ///< kept after a find, cleared by killTimersHandler only
  std::shared_ptr<Timer> killTimer_;     ///< there until killTimersHandler() has run
  std::shared_ptr<Task> rlaTask;         ///< the last one launched, until its end has been heard of
  std::shared_ptr<Task> wrlaTask;        ///< the last one launched; earlier ones may still run
  std::unique_ptr<AppBlocker> appBlocker;  ///< null until init() is through with attached devices
  bool wirelessWasMissed_ = false;  ///< the user has been told that the utility does not start
  bool active_ = true;
  bool handleAviBug_ = false;
  /// Of the device that is looked for; absent means that any will do.
  std::optional<std::string> mscSerialNum_;
  [[maybe_unused]] bool closeInstallerWindow = false;  ///< used by nobody, see docs/oddities.md
};

/// Image Capture's callback for added devices while devices may get lost: a file whose name holds
/// ".AVI" (in capitals) starts the search. `refcon` is the reference value of the registration and
/// may be null.
void addDeviceNotificationCB(std::string_view notificationType,
                             const PropertyDictionary& notificationDictionary, Listener* refcon);

// The Listener's log lines: built only when its subsystem is on.
//
//   logListener("launch with type='%s'", type.c_str());

/// Logs under the tag sRLAListener when the listener's subsystem is active; the text is formatted
/// only then. Any thread. Text that came from a device is an argument, never the format.
[[gnu::format(printf, 1, 2)]] void logListener(const char* format, ...);

/// The line that marks the end of a chapter in the system log; written whatever is switched on.
void logSeparator();

}  // namespace tarvo
