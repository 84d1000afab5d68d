#include "agent/ListenerMain.h"

#include <algorithm>
#include <cstdarg>
#include <filesystem>
#include <new>
#include <utility>
#include <vector>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "identify/DeviceInfoSupport.h"
#include "msc/TarvoMSCDeviceList.h"
#include "platform/desktop/Desktop.h"

namespace tarvo {

namespace {

using std::chrono::milliseconds;

// It repeats, and lives no longer than kKillDelay.
constexpr milliseconds kLostDevInterval{1000};
constexpr milliseconds kKillDelay{5000};
// BCD, as the platform numbers its versions.
constexpr std::uint32_t kFirstVersionWithAviBug = 0x1060;
constexpr std::uint32_t kLastVersionWithAviBug = 0x1063;

// How a unit is sent to camera mode.
constexpr bool kCameraMode = true;
constexpr bool kPowerDown = true;
// The page holds a tenth of it (usbModePage()).
constexpr std::uint32_t kAutowakeDelay = 1000;

constexpr const char* kNotActive = "this user's session is not active";

// Raised, not asserted: the guard at the loop's entry logs it, and the agent goes on.
void assertNotification(const Notification* notification, int line) {
  if (notification) return;
  throw Exception(std::string(exception_name::kInternalInconsistency),
                  "Invalid parameter not satisfying: notification != nil",
                  {{"source", "ListenerMain"}, {"line", line}});
}

}  // namespace

std::unique_ptr<Listener> Listener::init(ListenerServices services) {
  std::unique_ptr<Listener> listener(new (std::nothrow) Listener(std::move(services)));
  if (!listener) return nullptr;
  listener->observeDevices();
  listener->observeSession();
  listener->registerForAviBug();
  listener->observeApplications();
  listener->launchWRLApp();
  listener->launchWirelessUtilityAgain();
  // Only now: devices that were attached at start have been handled without a blocker, and no busy
  // was announced for them.
  listener->appBlocker = AppBlocker::initForBlockingOnWRLA(listener->services_.distributedCenter,
                                                           listener->services_.now);
  listener->appBlocker->setChangeListener([self = listener.get()] { self->changed(); });
  std::string separator(11, '-');
  separator.append(95, '=');
  systemLogLine(separator);
  systemLogLine(separator);
  return listener;
}

Listener::Listener(ListenerServices services) : services_(std::move(services)) {}

Listener::~Listener() {
  services_.center.removeObserver(this);
  services_.workspaceCenter.removeObserver(this);
  services_.distributedCenter.removeObserver(this);
  // Unlike a centre, Image Capture knows no observers that can be removed. What it refuses it does
  // not have.
  if (handleAviBug_)
    (void)services_.imageCapture.registerForEventNotification(
        0, ica::kICANotificationTypeDeviceAdded, {});
  stopLostDevTimer();
  if (killTimer_) killTimer_->invalidate();
}

void Listener::observeDevices() {
  services_.center.addObserver(this, std::string(kMSCDeviceAddedEvent),
                               [this](const Notification& n) { newMSCDeviceAdded(&n); });
  services_.center.addObserver(this, "DeviceAdded",
                               [this](const Notification& n) { newImageCaptureDeviceAdded(&n); });
  // The first call makes the list.
  TarvoMSCDeviceList::sharedDeviceList();
  // Hands over what is attached already before it returns, so the observers had to come first.
  XTImageCaptureDevice::registerDeviceAddedNotifications();
}

void Listener::observeSession() {
  for (const std::string_view name : {kSessionDidBecomeActive, kSessionDidResignActive}) {
    services_.workspaceCenter.addObserver(
        this, std::string(name), [this](const Notification& n) { fastUserSwitchHandler(n); });
  }
}

// Beside the picture-device room's own registration: a device that comes arrives by its event on
// these system versions, too.
void Listener::registerForAviBug() {
  handleAviBug_ = services_.systemVersion >= kFirstVersionWithAviBug &&
                  services_.systemVersion <= kLastVersionWithAviBug;
  if (!handleAviBug_) return;
  logListener("handle ICA AVI bug");
  const Status headerErr = services_.imageCapture.registerForEventNotification(
      0, ica::kICANotificationTypeDeviceAdded, [this](const ICAEvent& event) {
        addDeviceNotificationCB(fourCharText(event.type), event.dictionary, this);
      });
  if (headerErr != status::kOK) logListener("ERROR ---- ICARegisterEventNotification failed");
}

void Listener::observeApplications() {
  services_.center.addObserver(this, std::string(kTaskDidTerminateNotification),
                               [this](const Notification& n) { appDiedHandler(n); });
  services_.distributedCenter.addObserver(this, std::string(kLaunchWRLAppNotification),
                                          [this] { launchWRLAHandler(); });
}

// A task refuses its second launch, so this raises, and the line is logged at every start:
// intended, see docs/oddities.md.
void Listener::launchWirelessUtilityAgain() {
  try {
    wrlaTask->launch();
  } catch (const Exception& exception) {
    logListener("launch WRLApp - caught exception: %s", exception.reason().c_str());
  }
}

void Listener::newImageCaptureDeviceAdded(const Notification* notification) {
  logListener("newImageCaptureDeviceAdded - entered");
  assertNotification(notification, 474);
  // Any arrival ends the search, even one that is then ignored.
  stopLostDevTimer();
  const auto device = std::dynamic_pointer_cast<XTPictureDevice>(notification->object);
  if (const std::string hindrance = hindranceToLaunch(); !hindrance.empty()) {
    if (device) sayIgnored(*device, hindrance);
    return;
  }
  if (!device) {
    logListener("newImageCaptureDeviceAdded - ERROR - device is nil!");
    return;
  }
  std::string type;
  std::string path;
  std::int32_t locationID = 0;
  DeviceInfoSupport::getInfoForDevice(device, &type, &locationID, &path);
  if (type.empty()) {
    // Said of every unsupported device, cameras included.
    logListener("newImageCaptureDeviceAdded - ignoring invalid mass storage device.");
    sayIgnored(*device, "its model is not supported");
    return;
  }
  // So that the search finds it again should it get lost.
  if (handleAviBug_) device->removeFromCache();
  launchAppWithType(type, std::to_string(locationID), path);
}

// The guards of an arrival, each with its own line.
std::string Listener::hindranceToLaunch() {
  if (!active_) {
    logListener("newImageCaptureDeviceAdded - not active. Ignoring this camera event.");
    return kNotActive;
  }
  if (relayAppIsRunning()) {
    logListener(
        "newImageCaptureDeviceAdded - RelayApp is already running. Ignoring this camera event.");
    return "the Relay application is running already";
  }
  if (rlaTask) {
    logListener("newImageCaptureDeviceAdded --- ERROR --- rlaTask is not nil, but RLA is running!");
    rlaTask = nullptr;
    changed();
  }
  if (wirelessIsBusy()) {
    showBusyMessage();
    logListener("newImageCaptureDeviceAdded - WRLA is transferring. Ignoring this camera event.");
    // Whoever has said so: without an end of it no camera starts the Relay.
    return formatted("the wireless utility is transferring, for %lld s by now",
                     static_cast<long long>(appBlocker->busyFor().count()));
  }
  return {};
}

// Anybody's stick is ignored all day; only of the maker's devices a user expects something.
void Listener::sayIgnored(const XTPictureDevice& device, const std::string& why) {
  const auto* volume = dynamic_cast<const XTImageCaptureDevice*>(&device);
  // A PTP device that is none of the maker's does not come this far.
  if (device.isPTPDevice() || (volume && volume->isOfMaker()))
    logTo(services_.log, LogLevel::kInfo, "'" + device.name() + "' is ignored: " + why);
}

void Listener::newMSCDeviceAdded(const Notification* notification) {
  logListener("newMSCDeviceAdded - entered");
  assertNotification(notification, 566);
  const auto device = std::dynamic_pointer_cast<TarvoMSCDevice>(notification->object);
  if (!active_) {
    logListener("newMSCDeviceAdded - not active. Ignoring this camera event.");
    if (device)
      logTo(services_.log, LogLevel::kInfo,
            device->massStorageModel() + " is ignored: " + kNotActive);
    return;
  }
  if (!device) return;
  if (!device->canAutoPowerCycle()) {
    logListener("newMSCDeviceAdded - device does not support canAutoPowerCycle - ignoring it");
    if (device->lastFailure().status != status::kOK)
      warnOfFailure(*device, "did not tell its USB mode");
    // The results do not matter: there is nothing else to try.
    // A unit that cannot switch is opened, so that the user can take out the card.
    if (device->unmountMedia() != status::kOK) warnOfFailure(*device, "could not be unmounted");
    if (!device->ejectTray()) warnOfFailure(*device, "could not be ejected");
    return;
  }
  logListener("newMSCDeviceAdded - setting device USB mode.");
  warnOfMountedCard(*device);
  if (!device->setUSBMode(kCameraMode, kPowerDown, kAutowakeDelay))
    warnOfFailure(*device, "could not be switched to camera mode");
  if (handleAviBug_) awaitReturnOf(*device);
}

// The unit is switched all the same: nothing is unmounted on this way (docs/oddities.md).
void Listener::warnOfMountedCard(TarvoMSCDevice& device) {
  const auto bsdName = device.dcfVolumeBSDName();
  if (!bsdName) return;
  logTo(services_.log, LogLevel::kWarning,
        "The volume " + device.dcfVolumeName().value_or("") + " (" + *bsdName + ") of " +
            device.massStorageModel() +
            " is still mounted while the camera is switched: what has not been written to it yet "
            "may be lost.");
}

void Listener::warnOfFailure(const TarvoMSCDevice& device, const char* what) {
  const auto& failure = device.lastFailure();
  logTo(services_.log, LogLevel::kWarning,
        device.massStorageModel() + " " + what + ": " + failure.why + ", " +
            statusText(failure.status));
}

// The unit comes back as a camera with the same serial number.
void Listener::awaitReturnOf(const TarvoMSCDevice& device) {
  // Asked now, while the unit is still there: it leaves a moment later.
  const auto usbDevice = DeviceInfoSupport::getRootUSBDictionaryForService(device.iokitService());
  if (!usbDevice) {
    logListener("--- ERROR --- getRootUSBDictionaryForService failed.");
    return;
  }
  // Without one any device ends the search.
  mscSerialNum_ = textForKey(*usbDevice, "USB Serial Number");
  if (!mscSerialNum_) logListener("--- ERROR --- failed to find serial number in svcDict.");
  startLostDevTimer();
}

void addDeviceNotificationCB(std::string_view /*notificationType*/,
                             const PropertyDictionary& notificationDictionary, Listener* refcon) {
  logListener("addDeviceNotificationCB - entered");
  const auto fileName = textForKey(notificationDictionary, "ifil");
  if (!fileName || fileName->find(".AVI") == std::string::npos) return;
  if (refcon) refcon->startLostDevTimer();
}

void Listener::startLostDevTimer() {
  if (lostDevTimer_) return;  // also one that has found its device: see killTimersHandler
  logListener("starting Lost Device Timer");
  lostDevTimer_ =
      services_.runLoop.scheduleTimer(kLostDevInterval, true, [this] { lostDevTimerHandler(); });
  startKillTimer();
}

void Listener::startKillTimer() {
  if (killTimer_) {
    logListener("startingKillTimer - reset trigger time");
    killTimer_->setFireDelay(kKillDelay);
  } else {
    logListener("starting Kill Timer");
    killTimer_ =
        services_.runLoop.scheduleTimer(kKillDelay, false, [this] { killTimersHandler(); });
  }
  changed();
}

void Listener::stopLostDevTimer() {
  if (lostDevTimer_ && lostDevTimer_->isValid()) lostDevTimer_->invalidate();
}

// What is found arrives as "DeviceAdded" inside the check and is launched for there, which takes it
// from the registry again; the loop only decides whether to go on looking.
void Listener::lostDevTimerHandler() {
  logListener("lostDevTimerHandler - checking for device...");
  XTImageCaptureDevice::checkForDevicesAtStartup(false);
  for (const auto& device : XTPictureDevice::deviceList()) {
    if (mscSerialNum_ && device->serialNumber() != *mscSerialNum_) {
      logListener("lostDevTimerHandler - serial number mismatch. Continuing...");
      continue;
    }
    logListener("lostDevTimerHandler - found a device. Stopping timer.");
    stopLostDevTimer();  // and no break: every device gets its line
  }
}

void Listener::killTimersHandler() {
  logListener("killTimersHandler - entered");
  stopLostDevTimer();
  lostDevTimer_ = nullptr;
  killTimer_ = nullptr;
  mscSerialNum_.reset();
  logSeparator();
  changed();
}

void Listener::fastUserSwitchHandler(const Notification& notification) {
  logListener("fastUserSwitchHandler - entered");
  // Whatever is not the end of activity counts as its start.
  active_ = notification.name != kSessionDidResignActive;
  changed();
}

void Listener::changed() const {
  if (services_.stateChanged) services_.stateChanged();
}

const std::wstring sRLAListener = L"RLA_Listener";

void logListener(const char* format, ...) {
  if (!LogCheck(kLogListener)) return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string message = formattedV(format, arguments);
  va_end(arguments);
  // UTF-16 in wide characters: one beyond 16 bits becomes two elements.
  Log(kLogListener, sRLAListener, stdWStringUTF16(message));
}

void logSeparator() {
  systemLogLine(std::string(90, '-'));
}

namespace {

// The agent's bundle lies in the Relay's (Contents/Library), and that one beside the others.
constexpr std::string_view kRelayPath = "../Tarvo Relay";
constexpr std::string_view kWirelessUtilityPath =
    "../../../../TARVO Wireless Utility.app/Contents/MacOS/TARVO Wireless Utility";
constexpr std::string_view kViewerPath = "../../../../ViewerApp.app/Contents/MacOS/ViewerApp";
constexpr std::string_view kBusyPagePath =
    "../../../../Modules/web/gg/statics/conflict window/conflictpage.htm";

// A null-terminated list: the first argument that is absent ends it.
std::vector<std::string> argumentList(const std::string& type,
                                      const std::optional<std::string>& usbId,
                                      const std::optional<std::string>& path) {
  std::vector<std::string> arguments{type};
  if (!usbId) return arguments;
  arguments.push_back(*usbId);
  if (path) arguments.push_back(*path);
  return arguments;
}

}  // namespace

std::string Listener::bundlePath(std::string_view relativePath) const {
  const std::string joined = services_.constants.agentBundlePath + "/" + std::string(relativePath);
  // As text, not in the file system: the lines that are logged show what would be started, whether
  // or not it is there.
  return std::filesystem::path(joined).lexically_normal().string();
}

std::shared_ptr<Task> Listener::createTaskForPath(std::string_view relativePath) const {
  std::string path = bundlePath(relativePath);
  logListener("createTaskForPath '%s'", path.c_str());
  return services_.taskFactory.makeTask(std::move(path));
}

void Listener::launchAppWithType(const std::string& type, const std::optional<std::string>& usbId,
                                 const std::optional<std::string>& path) {
  logListener("launch with type='%s' usbId='%s' path='%s'", type.c_str(),
              usbId.value_or("").c_str(), path.value_or("").c_str());
  if (rlaTask) {
    // The line names the other handler: intended, see docs/oddities.md.
    logListener("appDiedHandler --- ERROR --- rlaTask is not nil!");
    rlaTask = nullptr;
  }
  rlaTask = createTaskForPath(kRelayPath);
  rlaTask->setArguments(argumentList(type, usbId, path));
  try {
    launchAs(services_.constants.relayBundleIdentifier, rlaTask);
    logListener("call SendBusyNotification");
    // There is none during start-up, when devices that are attached already are handled.
    if (appBlocker) appBlocker->SendBusyNotification();
  } catch (const Exception& exception) {
    // The handle is kept, and reported as stale at the next arrival (docs/oddities.md).
    // No busy was announced, so nobody waits for a done.
    logListener("launch - caught exception: %s", exception.reason().c_str());
    logTo(services_.log, LogLevel::kWarning,
          "The Relay application could not be started: " + exception.reason());
  }
  // A search that goes on writes its own separator at its end.
  if (!killTimer_) logSeparator();
  changed();
}

// The child is recognised without a desktop entry then.
void Listener::launchAs(const std::string& identifier, const std::shared_ptr<Task>& task) {
  task->setStandardErrorToPipeReadingEnd();  // the wrong end: docs/oddities.md
  task->launch();
  services_.runningApplications.nameTask(task, identifier);
}

std::optional<std::string> Listener::launchOrTrace(const std::string& identifier,
                                                   const std::shared_ptr<Task>& task,
                                                   const char* method) {
  try {
    launchAs(identifier, task);
  } catch (const Exception& exception) {
    logListener("%s - caught exception: %s", method, exception.reason().c_str());
    return exception.reason();
  }
  return std::nullopt;
}

// Asked of the system and not of our child: the user may have started the Relay by hand.
bool Listener::relayAppIsRunning() const {
  const auto applications = services_.runningApplications.launchedApplications();
  return std::ranges::any_of(applications, [&](const RunningApplication& application) {
    return application.bundleIdentifier == services_.constants.relayBundleIdentifier;
  });
}

void Listener::showBusyMessage() {
  logListener("showBusyMessage entered");
  std::string page = bundlePath(kBusyPagePath);
  // Nobody keeps it, so its end is that of an unknown application.
  const auto viewer = createTaskForPath(kViewerPath);
  viewer->setArguments({std::move(page), "-h", "400", "-v", "155"});
  launchOrTrace("ViewerApp", viewer, "showBusyMessage");
}

void Listener::launchWRLApp() {
  logListener("Launch WRLApp");
  // Overwritten without a look whether the utility still runs: intended, see docs/oddities.md.
  wrlaTask = createTaskForPath(kWirelessUtilityPath);
  const auto failure = launchOrTrace("TARVO Wireless Utility", wrlaTask, "launchWRLApp");
  // Once: whoever is on the bus may ask for it as often as it likes.
  if (failure && !std::exchange(wirelessWasMissed_, true))
    logTo(services_.log, LogLevel::kInfo, "There is no wireless utility to start: " + *failure);
}

void Listener::launchWRLAHandler() {
  logListener("Received a notification to launch WRLA");
  launchWRLApp();
}

// Every end of a child arrives here, also of those that have been replaced; the object tells them
// apart. An end without an object must not match an empty handle.
void Listener::appDiedHandler(const Notification& notification) {
  if (notification.object && notification.object == rlaTask) {
    logListener("appDiedHandler - got RLA died notification");
    rlaTask = nullptr;
    if (appBlocker) appBlocker->SendDoneNotification();
    changed();
  } else if (notification.object && notification.object == wrlaTask) {
    logListener("appDiedHandler --- ERROR --- got WRLA died notification");
    wrlaTask = nullptr;
    if (appBlocker) appBlocker->setBusy(false);  // it cannot say done any more
  } else {
    logListener("appDiedHandler --- ERROR --- got unknown app died notification");
  }
}

}  // namespace tarvo
