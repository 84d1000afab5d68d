// rm and rename: objects of a device go, or get another name.
#pragma once

#include <string>
#include <vector>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct RemoveOptions {
  std::vector<std::string> objects{};  ///< handles, names and patterns; not empty
  bool yes = false;                    ///< does not ask
};

/// Asks first. Each object has its own result.
int runRemove(ToolContext& context, const RemoveOptions& options);

struct RenameOptions {
  std::string handle{};
  std::string name{};
};

/// Names that a device cannot keep are refused before they are sent.
int runRename(ToolContext& context, const RenameOptions& options);

}  // namespace tarvo::tools
