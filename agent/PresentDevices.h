// The devices of the registry as the agent's status shows them.
#pragma once

#include <vector>

#include "agent/AgentStatus.h"

namespace tarvo {

/// In the order of the registry. Main thread only.
std::vector<AgentStatus::Device> presentDevices();

}  // namespace tarvo
