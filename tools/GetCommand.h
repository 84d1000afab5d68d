// get: objects of a device as files.
#pragma once

#include <string>
#include <vector>

#include "tools/ToolContext.h"

namespace tarvo::tools {

struct GetOptions {
  std::vector<std::string> objects{};  ///< handles, names and patterns
  bool all = false;
  bool onlyNew = false;  ///< not what is in the folder already, by name and size
  /// A folder, or the name of the one file; empty: the current folder.
  std::string output{};
  bool thumbnails = false;
  bool overwrite = false;
  bool keepBoth = false;
};

/// Each object is a file of its own, whole or not at all. The exit status tells whether one failed.
int runGet(ToolContext& context, const GetOptions& options);

}  // namespace tarvo::tools
