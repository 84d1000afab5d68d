// Requests of the control socket about what a camera holds, and about what it does by itself.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>

#include "simulator/ptp/PTPCamera.h"

namespace tarvo::simulator {

/// Answers "objects", "add", "remove", "export", "dataset", "display" and "capture" for the camera
/// that the request names; none for another command. Paths in requests are absolute. Raises
/// std::exception in words for what is wrong.
std::optional<nlohmann::json> answerObjectRequest(PTPCamera& camera, const nlohmann::json& request);

}  // namespace tarvo::simulator
