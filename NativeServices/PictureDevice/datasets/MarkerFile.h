// Order marker files (*.MRK): text in which a camera notes what is to be sent by e-mail, printed or
// transferred by itself.
//
// Parsing never fails: a job that is not complete adds nothing. It takes linear time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Number of separators (blanks and "=") from `offset` on, at most 8.
std::size_t skipSpaceEqual(std::string_view text, std::size_t offset);
/// The same with double quotation marks among them.
std::size_t skipSpaceEqualQuote(std::string_view text, std::size_t offset);

/// Appends the orders of a marker's text (UTF-8), in order; each is traced.
void appendEmailOrders(EmailOrders& list, std::string_view text);
void appendPrintOrders(PrintOrders& list, std::string_view text);

// The same from a local file, whose path may be empty for none. Always 0; a file that cannot be
// read, or not as text, adds nothing.

/// Reads the file in `defaultEncoding` (an iconv name), the platform's 8-bit encoding.
Status fillInEmailOrderList(EmailOrders& list, const std::string& mrkFile,
                            const std::string& defaultEncoding);
/// Reads the file as the platform reads a plain text file: by its byte-order mark, else as UTF-8
/// where it is that, else in `defaultEncoding`. Not as the other one (docs/oddities.md).
Status fillInPrintOrderList(PrintOrders& list, const std::string& mrkFile,
                            const std::string& defaultEncoding);

}  // namespace tarvo
