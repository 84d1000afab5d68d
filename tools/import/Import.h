// The command "import", done: what is new on a device, into folders by date.
#pragma once

#include "tools/objects/ImportCommand.h"

namespace tarvo::tools {

/// Gives the exit status; raises what a command raises.
int runImport(ToolContext& context, const ImportCommandOptions& options);

}  // namespace tarvo::tools
