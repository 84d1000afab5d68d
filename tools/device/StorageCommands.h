// storage: the stores of a device.
#pragma once

#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Every store with its room; one that cannot be read is said and does not end the list.
int runStorageList(ToolContext& context);

struct FormatOptions {
  std::string store{};  ///< id; empty: the only one
  bool yes = false;     ///< does not ask
};

/// Deletes everything in a store, after a question. Without a terminal to ask on it needs --yes.
int runStorageFormat(ToolContext& context, const FormatOptions& options);

}  // namespace tarvo::tools
