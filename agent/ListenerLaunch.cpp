// The applications that the Listener starts: the Relay application, the wireless utility and the
// busy-page viewer, all found by paths that start at the agent's bundle.
#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "Utilities/Exception.h"
#include "agent/ListenerMain.h"

namespace tarvo {
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
  rlaTask->setStandardErrorToPipeReadingEnd();  // the wrong end: docs/oddities.md
  try {
    rlaTask->launch();
    // The child needs no desktop entry to be recognised then.
    services_.runningApplications.nameTask(rlaTask, services_.constants.relayBundleIdentifier);
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
  viewer->setStandardErrorToPipeReadingEnd();
  try {
    viewer->launch();
  } catch (const Exception& exception) {
    logListener("showBusyMessage - caught exception: %s", exception.reason().c_str());
  }
}

void Listener::launchWRLApp() {
  logListener("Launch WRLApp");
  // Overwritten without a look whether the utility still runs: intended, see docs/oddities.md.
  wrlaTask = createTaskForPath(kWirelessUtilityPath);
  wrlaTask->setStandardErrorToPipeReadingEnd();
  try {
    wrlaTask->launch();
  } catch (const Exception& exception) {
    logListener("launchWRLApp - caught exception: %s", exception.reason().c_str());
  }
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
