// Where device descriptions are found.
#pragma once

#include <filesystem>
#include <string>

namespace tarvo::simulator {

/// The file that `text` names: a path, or the name of a description that comes with the program.
/// Raises DescriptionError, with the known names, when there is none.
std::filesystem::path findDeviceFile(const std::string& text);

/// The shipped ggcam.inf; empty when there is none.
std::filesystem::path findModelsFile();

}  // namespace tarvo::simulator
