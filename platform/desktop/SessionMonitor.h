// Whether this user's login session is the active one on its seat.
#pragma once

#include <string_view>

#include "platform/foundation/NotificationCenter.h"

namespace tarvo {

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
