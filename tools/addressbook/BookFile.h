// Address books as files of this computer: JSON, which holds everything, and vCard, which other
// programs read.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "tarvo/AddressBook.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

enum class BookFormat { kJSON, kVCard };

/// What `format` ("json", "vcard") says; where it is empty, the ending of `path` (".vcf" and
/// ".vcard" are vCards).
BookFormat bookFormat(const std::string& format, const std::string& path);

struct BookFileOptions {
  std::string file{};    ///< "-" is standard input or output; empty: see the command
  std::string format{};  ///< "json" or "vcard"; empty: by the file's ending
};

struct BookFile {
  ContactBook book;
  bool isPartial = false;  ///< of a vCard: some fields of a device's contact are not in it
  /// The places of those whose nickname is not in the file but made of the name.
  std::vector<std::size_t> nameless{};
};

/// Reads a book; "-" is standard input. Raises a ToolError that says what is wrong with the file.
/// What a vCard has and a device cannot keep is said as a message.
BookFile readBookFile(ToolContext& context, const std::string& path, BookFormat format);
/// The book as the bytes of such a file.
std::string bookFileText(const ContactBook& book, BookFormat format);

// A text in the user's own editor.

/// Main thread only. The text lies in a file that only its owner can read (Kept::kEdit), and stays
/// there until discard(). While this lives its folder is locked, shared (flock(2)).
class BookEditor {
 public:
  /// Raises a ToolError where no file can be made.
  BookEditor(const std::string& serial, std::string text);

  /// Runs $VISUAL, else $EDITOR, else "editor", on the file until it ends. False where the file
  /// says what it said at first. Raises a ToolError where it cannot be started or fails.
  [[nodiscard]] bool run();
  void discard();
  const std::string& path() const { return path_; }

 private:
  std::string text_;
  std::string path_;
  FileDescriptor folder_;
};

}  // namespace tarvo::tools
