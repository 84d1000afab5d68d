// Files that a command is given to read, standard input among them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// All of a file; "-" is standard input. Raises a ToolError for one that cannot be read, and for
/// one of more than 64 MB: nothing that a device takes this way is larger, and what is may be a
/// device that never ends.
std::vector<std::byte> readInput(const ToolContext& context, const std::string& operation,
                                 const std::string& path);
/// The same as text, whatever its bytes are.
std::string readInputText(const ToolContext& context, const std::string& operation,
                          const std::string& path);

}  // namespace tarvo::tools
