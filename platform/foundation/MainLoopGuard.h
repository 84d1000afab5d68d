// The guard around every entry from the main loop: what a callback raises is logged and the loop
// goes on, since no exception may cross GLib's C frames.
//
//   gboolean Watch::readable(int, GIOCondition, gpointer self) {
//     guardedEntry(static_cast<Watch*>(self)->log_, "readable", [&] { ... });
//     return G_SOURCE_CONTINUE;
//   }
#pragma once

#include <exception>
#include <type_traits>
#include <utility>

#include "Utilities/LogSink.h"

namespace tarvo {

/// Logs "handling uncaught exception in NAME: REASON" for `raised`. Any thread; raises nothing.
/// Known exceptions tell their reason; anything else is "unknown exception". A log that fails is
/// passed over in silence.
void logUncaughtException(const LogSink& log, const char* name,
                          const std::exception_ptr& raised) noexcept;

/// Calls `entry` and gives back its result; when it raises, logs that under `name` and gives back a
/// default value (false, null, 0). A source that must outlive a failure returns its constant
/// outside of the guard.
template <typename Entry>
/// Not for use around code whose caller can handle an exception: it ends here.
auto guardedEntry(const LogSink& log, const char* name, Entry&& entry) noexcept {
  using Result = std::invoke_result_t<Entry>;
  try {
    return std::forward<Entry>(entry)();
  } catch (...) {
    logUncaughtException(log, name, std::current_exception());
  }
  if constexpr (!std::is_void_v<Result>) return Result{};
}

}  // namespace tarvo
