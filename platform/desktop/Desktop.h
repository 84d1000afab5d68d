// What this system asks of the desktop session: notifications between the processes of one user,
// whether the session is in use, and which applications run.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/Task.h"

namespace tarvo {

/// Main thread only. Handlers run from the main loop.
/// Any process of the user may post any name: a notification is a hint, never proof.
class DistributedNotificationCenter {
 public:
  /// Called without arguments: a notification carries nothing but its name.
  using Handler = std::function<void()>;

  virtual ~DistributedNotificationCenter() = default;

  /// Hears `name` from every process, this one included. `observer` is an identity for removal.
  virtual void addObserver(const void* observer, std::string name, Handler handler) = 0;
  /// Ends every registration of `observer`; must be called before what its handlers use goes.
  virtual void removeObserver(const void* observer) = 0;

  /// Posts `name`. Without a bus it is dropped, with one log line.
  virtual void post(std::string_view name) = 0;
};

// The running applications of this user, by desktop-entry id.

/// A process with the application that it is known to belong to.
struct RunningApplication {
  pid_t pid = 0;
  std::string bundleIdentifier;  ///< desktop-entry id, for example "com.tarvo.Relay"
};

/// Main thread only.
/// The list is a look at one moment: a process may have ended, or become another program, by the
/// time it is used. Ids are those of desktop entries, without ".desktop".
class RunningApplications {
 public:
  virtual ~RunningApplications() = default;
  /// Every process of this user that belongs to an application, in order of process id.
  virtual std::vector<RunningApplication> launchedApplications() = 0;
  /// From now on the list names the process of `task`, which runs, with this identifier for as long
  /// as it does, whatever else tells of it, and the session may treat it as an application of its
  /// own. The task is not kept alive.
  virtual void nameTask(const std::shared_ptr<const Task>& task, std::string bundleIdentifier) = 0;
  /// Identifier of the parent process of this one; none when it is no application.
  virtual std::optional<std::string> launcherIdentifier() = 0;
};

// Whether this user's login session is the active one on its seat.

/// Posted without a sender and without further information.
inline constexpr std::string_view kSessionDidBecomeActive =
    "NSWorkspaceSessionDidBecomeActiveNotification";
inline constexpr std::string_view kSessionDidResignActive =
    "NSWorkspaceSessionDidResignActiveNotification";

/// Posts kSessionDidBecomeActive and kSessionDidResignActive on the workspace notification centre
/// whenever the state changes, and resign once soon after start when the session is inactive then.
/// Without a session service the session counts as active, with one log line. Main thread only.
/// "Active" is logind's word: in the foreground, so that this user sits at the machine.
class SessionMonitor {
 public:
  virtual ~SessionMonitor() = default;
  /// Starts watching; posts to `workspace`, which must outlive the monitor.
  virtual void start(NotificationCenter& workspace) = 0;
};

}  // namespace tarvo
