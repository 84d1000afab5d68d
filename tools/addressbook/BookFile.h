// Address books as files of this computer: JSON, which holds everything, and vCard, which other
// programs read.
#pragma once

#include <set>
#include <string>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

enum class BookFormat { kJSON, kVCard };

/// What `format` ("json", "vcard") says; where it is empty, the ending of `path` (".vcf" and
/// ".vcard" are vCards). Raises kBadUsage for another format.
BookFormat bookFormat(const std::string& operation, const std::string& format,
                      const std::string& path);

struct BookFile {
  AddressBook book;
  bool isPartial = false;  ///< of a vCard: some fields of a device's contact are not in it
  /// Whose nickname is not in the file but made of the name.
  std::set<ContactPointer> nameless{};
};

/// Reads a book; "-" is standard input. Raises a ToolError that says what is wrong with the file.
/// What a vCard has and a device cannot keep is said as a message.
BookFile readBookFile(ToolContext& context, const std::string& operation, const std::string& path,
                      BookFormat format);
/// The book as the bytes of such a file.
std::string bookFileText(const std::string& operation, const AddressBook& book, BookFormat format);

}  // namespace tarvo::tools
