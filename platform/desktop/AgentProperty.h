// One property of the agent, followed on the bus while there is an agent.
#pragma once

#include <gio/gio.h>

#include <functional>

#include "platform/foundation/GlibPtr.h"

namespace tarvo {

/// Main thread only. The agent is not started for it.
class AgentProperty {
 public:
  /// `value` is the callee's to read alone; null where there is no agent, or where it says
  /// something of another type.
  using Told = std::function<void(GVariant* value)>;

  /// `name` and `type` (a D-Bus signature) must outlive it.
  AgentProperty(const char* name, const char* type, Told told);
  ~AgentProperty() { leave(); }
  AgentProperty(const AgentProperty&) = delete;
  AgentProperty& operator=(const AgentProperty&) = delete;

  /// Tells from the loop what the property is, as soon as that is known, and at each change; on
  /// the session's bus where `bus` is null. What was followed before is left.
  void follow(GDBusConnection* bus);
  void leave();

 private:
  void tell();

  const char* name_;
  const char* type_;
  Told told_;
  GObjectPtr<GCancellable> waiting_;  ///< of the proxy that is being made
  GObjectPtr<GDBusProxy> agent_;
};

}  // namespace tarvo
