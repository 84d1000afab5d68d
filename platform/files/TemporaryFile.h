// A file that becomes one of a folder once it is whole.
#pragma once

#include <string>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Status.h"

namespace tarvo {

/// A hidden file that is removed unless it is given its final name.
class TemporaryFile {
 public:
  /// Made exclusively in `folder`, with access for this user alone; errno where it is not open.
  explicit TemporaryFile(const std::string& folder);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  bool isOpen() const { return file_.isOpen(); }
  int descriptor() const { return file_.get(); }

  /// Gives the file its name. kDuplicateFile where there is one of that name, kIOError otherwise.
  Status rename(const std::string& path);
  /// Whether there is anything of that name; a link that leads nowhere counts, too.
  static bool exists(const std::string& path);

 private:
  std::string path_;
  FileDescriptor file_;
};

}  // namespace tarvo
