// The Listener's log lines: built only when its subsystem is on.
//
//   logListener("launch with type='%s'", type.c_str());
#pragma once

#include <string>

namespace tarvo {

/// Logs under the tag sRLAListener when the listener's subsystem is active; the text is formatted
/// only then. Any thread. Text that came from a device is an argument, never the format.
[[gnu::format(printf, 1, 2)]] void logListener(const char* format, ...);

/// The line that marks the end of a chapter in the system log; written whatever is switched on.
void logSeparator();

}  // namespace tarvo
