// A file on its way: written under a hidden name beside its own, which it gets once it is whole.
//
//   PartFile part(folder.get(), PartFile::nameFor("IMG.JPG", ""));
//   if (part.open(PartFile::Opening::kNew) != 0) return ...;
//   write(part.descriptor(), ...);
//   const int error = part.putInPlace("IMG.JPG", false);
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/FileDescriptor.h"

namespace tarvo {

/// Unless it was put in place or is kept, the file goes with its owner. Errors are errno numbers, 0
/// is success.
class PartFile {
 public:
  enum class Opening : std::uint8_t {
    kNew,       ///< EEXIST where a file of that name is there
    kContinue,  ///< goes on with what is there
  };

  /// ".IMG.JPG.0123456789abcdef.part": the same for the same `name` and `identity`, another one
  /// each time where `identity` is empty.
  static std::string nameFor(std::string_view name, std::string_view identity);

  /// The other way: "IMG.JPG", cut where it was long; none for the name of no part.
  static std::optional<std::string> objectOf(std::string_view name);

  /// Names of those in `folder` that nobody has written to since `date`, which a cut download or a
  /// killed process has left. None of a folder that cannot be read.
  static std::vector<std::string> leftSince(const std::string& folder, std::time_t date);

  /// `folder` is the descriptor of an open directory, lent.
  PartFile(int folder, std::string name) : folder_(folder), name_(std::move(name)) {}
  ~PartFile();
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  /// Makes it readable and writable for its owner alone. Never follows a link; EPERM for one that
  /// is another user's or no regular file, EBUSY for one that another owner has open.
  [[nodiscard]] int open(Opening opening);
  const std::string& name() const { return name_; }
  int descriptor() const { return file_.get(); }
  /// Bytes that are there.
  std::uint64_t size() const;
  /// Whether a regular file of that name, no link, holds the same bytes.
  bool hasContentOf(const std::string& name) const;
  /// Leaves the first `size` bytes.
  [[nodiscard]] int truncate(std::uint64_t size);
  /// It stays when its owner goes, to be gone on with.
  void keep() { isKept_ = true; }

  /// Gives it `permissions`, or those of new files, and `name`. EEXIST where there is one of that
  /// name, unless it shall be replaced; it may be tried with another name then. `modified` is the
  /// date that the file shall show.
  [[nodiscard]] int putInPlace(const std::string& name, bool replace,
                               std::optional<std::time_t> modified,
                               std::optional<mode_t> permissions = std::nullopt);

 private:
  [[nodiscard]] int rename(const std::string& name, bool replace) const;

  int folder_;
  std::string name_;
  FileDescriptor file_;
  bool isKept_ = false;
};

/// Moves a file to a name that nothing has: EEXIST where something does. As renameat(2) has folders
/// and names. 0, or errno.
[[nodiscard]] int renameIfFree(int folder, const std::string& name, int newFolder,
                               const std::string& newName);

}  // namespace tarvo
