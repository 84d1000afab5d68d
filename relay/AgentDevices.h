// The devices that the agent sees, while there is an agent: how an open window learns of one that
// comes.
#pragma once

#include <functional>
#include <vector>

#include "platform/desktop/AgentProperty.h"
#include "relay/Arrival.h"

namespace tarvo::relay {

/// Main thread only. The agent is not started for it.
class AgentDevices {
 public:
  using Changed = std::function<void(std::vector<Arrival> devices)>;

  static constexpr std::size_t kMost = 100;

  /// Follows the agent on `bus`, or on the session's bus. `changed` gets the supported devices,
  /// from the loop, at first as soon as they are known; none where there is no agent.
  explicit AgentDevices(Changed changed, GDBusConnection* bus = nullptr);

 private:
  AgentProperty devices_;
};

}  // namespace tarvo::relay
