// volume ls, get and rm: files on a mounted card, or on a camera in disk mode.
#pragma once

#include <string>
#include <vector>

#include "tools/access/ToolContext.h"
#include "tools/objects/FetchRun.h"

namespace tarvo::tools {

struct VolumeListOptions {
  bool isLong = false;
  bool all = false;  ///< every file and folder, not the pictures alone
};

/// Every picture by its path, in no order, each as soon as it is found; needs no more memory for
/// many. A folder that cannot be read is said and does not end the list.
int runVolumeList(ToolContext& context, const VolumeListOptions& options);

/// `objects` are names, paths and patterns. Each file is whole or not there at all, with its dates
/// and permissions.
int runVolumeGet(ToolContext& context, const FetchOptions& options);

struct VolumeRemoveOptions {
  std::vector<std::string> objects{};  ///< names, paths and patterns; not empty
  bool yes = false;                    ///< does not ask
};

/// Asks first. Each file has its own result; folders stay.
int runVolumeRemove(ToolContext& context, const VolumeRemoveOptions& options);

}  // namespace tarvo::tools
