// Waiting in tests: the default main context is iterated until a condition holds.
#pragma once

#include <glib.h>

#include <chrono>
#include <functional>

namespace tarvo::test {

/// True as soon as `condition` holds, false when it does not before `deadline` has passed.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds deadline = std::chrono::seconds(20)) {
  bool late = false;
  const auto expire = +[](gpointer flag) -> gboolean {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_CONTINUE;
  };
  const guint timer = g_timeout_add(static_cast<guint>(deadline.count()), expire, &late);
  // The condition may depend on what no source announces (a file, another process).
  const guint look = g_timeout_add(
      10, +[](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  while (!condition() && !late)
    g_main_context_iteration(nullptr, TRUE);
  g_source_remove(timer);
  g_source_remove(look);
  return condition();
}

/// Runs what the main context has ready, without waiting for more.
inline void drainMainContext() {
  while (g_main_context_iteration(nullptr, FALSE) != 0) {
  }
}

}  // namespace tarvo::test
