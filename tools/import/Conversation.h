// An import as a conversation of JSON lines: what a window, or any other program, needs in order to
// show pictures and import them without touching the device. docs/import.md is its description.
#pragma once

#include "import/History.h"
#include "import/Items.h"
#include "import/Search.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// On the main thread, until the input ends, or the device leaves. Gives the exit status. All are
/// lent; without a history that is null.
int converse(ToolContext& context, Device& device, importing::History* history,
             importing::ImportOptions& options, importing::Wanted wanted);

}  // namespace tarvo::tools
