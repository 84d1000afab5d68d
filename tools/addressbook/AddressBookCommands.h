// addressbook: the e-mail addresses that a device keeps, and the groups of them.
#pragma once

#include <string>
#include <vector>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Contacts, groups and limits. The exit status tells whether all could be read.
int runAddressBookShow(ToolContext& context);

struct BookFileOptions {
  std::string file{};    ///< "-" is standard input or output; empty: see the command
  std::string format{};  ///< "json" or "vcard"; empty: by the file's ending
};

/// Whether the device would take the file, or, without one, whether its own book is valid. 1 when
/// it is not.
int runAddressBookValidate(ToolContext& context, const BookFileOptions& options);

struct BookExportOptions : BookFileOptions {
  bool overwrite = false;
};

/// The device's book into a file, or to standard output.
int runAddressBookExport(ToolContext& context, const BookExportOptions& options);

struct BookImportOptions : BookFileOptions {
  bool merge = false;   ///< what only the device has stays
  bool dryRun = false;  ///< says what would change
  bool sync = false;    ///< the library's synchronisation alone, which writes no contact
  bool yes = false;     ///< does not ask
};

/// Makes the device's book that of the file. Says what changes and how, asks, keeps what the device
/// held, and says what was written where that ends early.
int runAddressBookImport(ToolContext& context, const BookImportOptions& options);

struct BookEditOptions {
  bool yes = false;
};

/// The device's book in the user's editor, as JSON, and back.
int runAddressBookEdit(ToolContext& context, const BookEditOptions& options);

struct BookDeleteOptions {
  std::vector<std::string> entries{};  ///< handles
  bool yes = false;
};

/// Deletes contacts, groups and address-book files by their handles, also such as cannot be read;
/// keeps what the device holds of them.
int runAddressBookDelete(ToolContext& context, const BookDeleteOptions& options);

}  // namespace tarvo::tools
