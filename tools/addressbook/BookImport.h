// Making a device's address book another one, with all that a user has to be told and asked.
#pragma once

#include "tools/access/ToolContext.h"
#include "tools/addressbook/BookFile.h"

namespace tarvo::tools {

struct BookImportOptions : BookFileOptions {
  bool merge = false;        ///< what only the device has stays
  bool dryRun = false;       ///< says what would change
  bool skipInvalid = false;  ///< leaves out what the device cannot keep
  bool shorten = false;      ///< cuts what is too long for it
  bool sync = false;         ///< the library's synchronisation alone, which writes no contact
  bool yes = false;          ///< does not ask
};

/// A book that lacks anybody would be taken for all of it. Raises a ToolError for one with gaps;
/// `outcome` stands behind its reason.
void refuseGaps(const ToolContext& context, Device& device, const ContactBook& there,
                const char* outcome, Status status = status::kOK);

/// Gives the exit status. Raises a ToolError or Error: for a book that the device cannot keep, for
/// a device whose own book cannot be read in whole, and where writing ends early.
int importBook(ToolContext& context, Device& device, const BookFile& wanted,
               const BookImportOptions& options, const Consent& consent);

}  // namespace tarvo::tools
