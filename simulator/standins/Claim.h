// Claiming a device by its location id with nothing but libusb, as another program would.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>

namespace tarvo::simulator {

/// Shows that the agent has let a device go by the time the Relay starts. Opens the device at
/// `location`, claims interface 0 and asks for its device information. Gives
/// {"node", "claimed": true, "response"}, where the response is the PTP response code, or 0 when
/// none came; or {"node", "claimed": false, "error"} with libusb's or the system's words.
nlohmann::json tryClaim(std::uint32_t location);

}  // namespace tarvo::simulator
