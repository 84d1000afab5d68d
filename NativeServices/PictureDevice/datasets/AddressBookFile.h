// The address book as devices without vendor data sets keep it: a text file "DCEMAIL.ABK" with one
// contact a line.
#pragma once

#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Fills the contacts of `book` from the file's text (UTF-8). A text with more lines than the
/// book's limit leaves them as they were, and says so in the trace.
void fillInABDictFromText(AddressBook& book, std::string_view text);

/// The same from a local file in `defaultEncoding` (an iconv name). Always 0; a file that cannot be
/// read, or is empty, gives no contacts.
Status fillInABDict(AddressBook& book, const std::string& abFile,
                    const std::string& defaultEncoding);

/// Keeps the file's transfer off the sizes (a multiple of 64 bytes) that some hosts lose: lengthens
/// a nickname by a blank, or shortens the longest one. True when a nickname was edited.
bool editAddressBookToAvoidMod64ICABug(AddressBook& book);

}  // namespace tarvo
