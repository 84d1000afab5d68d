// Claiming a device by its location id with nothing but libusb, as another program would.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>

namespace tarvo::simulator {

/// Opens the device at `location`, claims interface 0 and asks for its device information. Gives
/// {"node", "claimed", "model"} or {"claimed": false, "error"}.
nlohmann::json tryClaim(std::uint32_t location);

}  // namespace tarvo::simulator
