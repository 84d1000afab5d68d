// Who keeps a volume busy.
#pragma once

#include <string>
#include <vector>

namespace tarvo {

/// "NAME (pid N)" of the processes that have something at or below one of the mount points: their
/// working or root folder, program, an open file, or a file mapped into memory. Several are
/// separated by commas, a few are enough. Empty when none is found; of another user's processes
/// nothing can be seen. The volumes themselves are not touched, so a dead one holds nobody up.
std::string processesUsing(const std::vector<std::string>& mountPoints);

}  // namespace tarvo
