// The devices of the registry as the agent's status shows them.
#pragma once

#include <vector>

#include "agent/AgentStatus.h"

namespace tarvo {

/// In the order of the registry, which is that of arrival; unsupported devices are among them, with
/// an empty type. Looks at mount points for the marker files of cards, so it belongs into an idle
/// moment. Empty while no room of picture devices lives. Main thread only; raises nothing.
std::vector<AgentStatus::Device> presentDevices();

}  // namespace tarvo
