// The names by which the programs of the family know each other on the session bus. They are a
// contract with programs of others, so they stand here once.
#pragma once

#include <string_view>

namespace tarvo {

/// Distributed notifications. Each side of a device says when it begins and when it has finished;
/// RLA is the Relay application, WRLA the wireless utility.
inline constexpr std::string_view kRLABusyNotification = "kRLABusyNotification";
inline constexpr std::string_view kRLADoneNotification = "kRLADoneNotification";
inline constexpr std::string_view kWRLABusyNotification = "kWRLABusyNotification";
inline constexpr std::string_view kWRLADoneNotification = "kWRLADoneNotification";
/// Asks the agent to start the wireless utility.
inline constexpr std::string_view kLaunchWRLAppNotification = "LaunchWRLAppNotification";

/// The agent's name on the bus, and its object there with what it sees
/// (data/dbus/com.tarvo.Agent1.xml).
inline constexpr const char* kAgentBusName = "com.tarvo.Agent";
inline constexpr const char* kAgentObjectPath = "/com/tarvo/Agent";
inline constexpr const char* kAgentInterface = "com.tarvo.Agent1";

}  // namespace tarvo
