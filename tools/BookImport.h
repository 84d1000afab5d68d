// Making a device's address book another one, with all that a user has to be told and asked.
#pragma once

#include "tools/AddressBookCommands.h"
#include "tools/BookFile.h"
#include "tools/OpenedDevice.h"
#include "tools/ToolContext.h"

namespace tarvo::tools {

/// Gives the exit status. Raises a ToolError: for a book that the device cannot keep, for a device
/// whose own book cannot be read in whole, and where writing ends early.
int importBook(ToolContext& context, const OpenedDevice& device, const BookFile& wanted,
               const BookImportOptions& options, const Consent& consent);

}  // namespace tarvo::tools
