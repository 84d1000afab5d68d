// The Listener's log lines: built only when its subsystem is on.
#pragma once

#include <string>

namespace tarvo {

/// Logs under the tag sRLAListener when the listener's subsystem is active; the text is formatted
/// only then.
[[gnu::format(printf, 1, 2)]] void logListener(const char* format, ...);

/// The line that marks the end of a chapter in the system log.
void logSeparator();

}  // namespace tarvo
