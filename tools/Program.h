// A program that does what a command line says.
#pragma once

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Gives the exit status. `import` is null where another program does that command.
int runProgram(int argc, char** argv, ImportRun* import = nullptr);

}  // namespace tarvo::tools
