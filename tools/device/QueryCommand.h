// query: rows of the device's own database.
#pragma once

#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct QueryOptions {
  std::string sql{};
};

/// The rows as the device gives them: bytes for a person, one text (or hexadecimal digits where it
/// is none) with --json. The query is let go again, also after a failure.
int runQuery(ToolContext& context, const QueryOptions& options);

}  // namespace tarvo::tools
