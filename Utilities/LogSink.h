// Where platform code says what happened. A sink is handed in by the owner of the process; lower
// rooms never know which log stands behind it.
#pragma once

#include <functional>
#include <string_view>

namespace tarvo {

/// How much a line matters, least first; the names of syslog (RFC 5424) without those in between.
enum class LogLevel { kDebug, kInfo, kWarning, kError };

/// Takes one line without a line end; `line` is lent for the call alone. Called on the thread that
/// has something to say; a sink that is shared between threads guards itself. An empty sink is
/// allowed and says nothing.
using LogSink = std::function<void(LogLevel level, std::string_view line)>;

/// Calls `sink` unless it is empty.
inline void logTo(const LogSink& sink, LogLevel level, std::string_view line) {
  if (sink) sink(level, line);
}

}  // namespace tarvo
