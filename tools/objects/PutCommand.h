// put: files as objects on a device.
#pragma once

#include <string>
#include <vector>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct PutOptions {
  std::vector<std::string> files{};
  std::string store{};   ///< id as the user wrote it; empty: the device chooses
  std::string parent{};  ///< handle of a folder; empty: the device chooses
};

/// Each file is an object of its own. Names and sizes that PTP cannot carry are refused before
/// anything is sent. The exit status tells whether one failed.
int runPut(ToolContext& context, const PutOptions& options);

/// How many UTF-16 units a name has, which a PTP string counts.
std::size_t nameLength(const std::string& name);
/// Names of so many units and more cannot be told to a device.
inline constexpr std::size_t kNameLimit = 255;

}  // namespace tarvo::tools
