// get: objects of a device as files.
#pragma once

#include "tools/access/ToolContext.h"
#include "tools/objects/FetchRun.h"

namespace tarvo::tools {

/// `objects` are handles, names and patterns.
struct GetOptions : FetchOptions {
  bool thumbnails = false;
};

/// Each object is a file of its own, whole or not at all. All are looked up first, so that what
/// there is no room for is said beforehand. The exit status tells whether one failed.
int runGet(ToolContext& context, const GetOptions& options);

}  // namespace tarvo::tools
