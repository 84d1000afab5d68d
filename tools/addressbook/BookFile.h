// Address books as files of this computer: JSON, which holds everything, and vCard, which other
// programs read.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/FileDescriptor.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

class OpenedDevice;

enum class BookFormat { kJSON, kVCard };

/// What `format` ("json", "vcard") says; where it is empty, the ending of `path` (".vcf" and
/// ".vcard" are vCards).
BookFormat bookFormat(const std::string& format, const std::string& path);

struct BookFileOptions {
  std::string file{};    ///< "-" is standard input or output; empty: see the command
  std::string format{};  ///< "json" or "vcard"; empty: by the file's ending
};

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

// The text of a device's address-book file, "DCEMAIL.ABK".

/// The bytes of the file with every contact that is not to be deleted, a line each, lines ended by
/// CR LF, in `encoding` (an iconv name). The last line goes without its end where the file would
/// else have a size that some hosts lose. None where a contact does not fit the form or the
/// encoding; `why` tells which.
std::optional<std::string> bookText(const AddressBook& book, const std::string& encoding,
                                    std::string& why);

// A text in the user's own editor.

/// Main thread only. The text lies in a file that only its owner can read (Kept::kEdit), and stays
/// there until discard(). While this lives its folder is locked, shared (flock(2)).
class BookEditor {
 public:
  /// Raises a ToolError where no file can be made.
  BookEditor(const OpenedDevice& device, std::string text);

  /// Runs $VISUAL, else $EDITOR, else "editor", on the file until it ends. Raises a ToolError where
  /// it cannot be started or fails.
  void run();
  /// Whether the file says what it said at first.
  bool isUnchanged() const;
  void discard();
  const std::string& path() const { return path_; }

 private:
  std::string operation_;
  std::string text_;
  std::string path_;
  FileDescriptor folder_;
};

}  // namespace tarvo::tools
