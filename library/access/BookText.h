// The text of a device's address-book file, "DCEMAIL.ABK".
#pragma once

#include <string>
#include <vector>

#include "library/access/BookPlan.h"

namespace tarvo::library {

/// The bytes of the file with every contact that is not to be deleted, a line each, lines ended by
/// CR LF, in `encoding` (an iconv name). The last line goes without its end where the file would
/// else have a size that some hosts lose. Contacts that do not fit the form or the encoding are
/// left out, and told in `obstacles`.
std::string bookText(const AddressBook& book, const std::string& encoding,
                     std::vector<BookObstacle>& obstacles);

}  // namespace tarvo::library
