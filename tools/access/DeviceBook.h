// The address book of a device as a command reads it: with what is missing in it, and what it would
// be on paper.
#pragma once

#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"
#include "Utilities/PropertyDictionary.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/UnreadEntries.h"

namespace tarvo::tools {

struct DeviceBook {
  AddressBook book;  ///< with contacts and groups, as far as they could be read
  /// What could not be: while there is any, nothing may be written back, and nobody be taken for
  /// gone.
  std::vector<UnreadEntry> unread;
};

/// Whether the device keeps each contact by itself (as a data set), or all of them in one file.
bool keepsContactsSingly(const OpenedDevice& device);

/// Reads it anew, record by record where it cannot be had as a whole. Raises a ToolError for a
/// device that keeps none, and where not even its limits can be read.
DeviceBook readDeviceBook(const ToolContext& context, const OpenedDevice& device);

/// Which entry breaks which rule, for a person: "contact 3, Bob <bob@>: ...".
std::string inWords(const AddressBookError& error, const AddressBook& book);
/// "valid", and for an invalid book "ptpErrorCode", "errorObject" (where a value is to blame) and
/// "message".
PropertyDictionary validityAsJSON(const std::optional<AddressBookError>& error,
                                  const AddressBook& book);

}  // namespace tarvo::tools
