// Making a device's address book another one, with all that a user has to be told and asked.
#pragma once

#include "tools/access/ToolContext.h"
#include "tools/addressbook/BookFile.h"

namespace tarvo::tools {

class OpenedDevice;

struct BookImportOptions : BookFileOptions {
  bool merge = false;   ///< what only the device has stays
  bool dryRun = false;  ///< says what would change
  bool sync = false;    ///< the library's synchronisation alone, which writes no contact
  bool yes = false;     ///< does not ask
};

/// Gives the exit status. Raises a ToolError: for a book that the device cannot keep, for a device
/// whose own book cannot be read in whole, and where writing ends early.
int importBook(ToolContext& context, const OpenedDevice& device, const BookFile& wanted,
               const BookImportOptions& options, const Consent& consent);

}  // namespace tarvo::tools
