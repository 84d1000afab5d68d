// The text of a device's address-book file, "DCEMAIL.ABK".
#pragma once

#include <optional>
#include <string>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"

namespace tarvo::library {

/// The bytes of the file with every contact that is not to be deleted, a line each, lines ended by
/// CR LF, in `encoding` (an iconv name). The last line goes without its end where the file would
/// else have a size that some hosts lose. None where a contact does not fit the form or the
/// encoding; `why` tells which.
std::optional<std::string> bookText(const AddressBook& book, const std::string& encoding,
                                    std::string& why);

}  // namespace tarvo::library
