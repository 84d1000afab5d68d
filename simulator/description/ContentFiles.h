// The described content of a volume as real files.
#pragma once

#include <filesystem>
#include <vector>

#include "simulator/description/ContentDescription.h"

namespace tarvo::simulator {

/// Makes files and folders in `folder`, which must exist. A file without text is a hole of its
/// size, which takes no room. Raises std::system_error.
void writeContent(const std::filesystem::path& folder, const std::vector<ContentNode>& content);

}  // namespace tarvo::simulator
