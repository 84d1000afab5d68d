// What an import does with the files that it has made.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "import/Placement.h"

namespace tarvo::importing {

/// A regular file for reading, no link. Of nothing, with errno, where it is none.
FileDescriptor openFile(const std::string& path);

/// As much of its beginning as CaptureDate.h wants; what can be read of it.
std::vector<std::byte> beginningOf(int descriptor);

/// The first number, from 1 on, with which none of these names is taken in a folder: "A.JPG",
/// "A.DNG" get the same one. As numberedFileName() has it.
unsigned freeNumber(const std::string& folder, const std::vector<std::string>& names);

/// One of the first `number - 1` files of that name which has the same content as `path`.
std::optional<std::string> twinOf(const std::string& path, const Place& place, unsigned number);

struct Moved {
  std::string path{};     ///< where it is now
  bool wasThere = false;  ///< a file with the same content was there: that one stays, alone
  int error = 0;          ///< errno: it stays where it was
};
/// Gives a file another place, with the next free number where the name is taken. Nothing is
/// replaced.
Moved moveTo(const std::string& path, const Place& place);

/// Puts what a file, and what its folder, says of it on the disk. 0, or errno.
[[nodiscard]] int flushFile(int descriptor);
[[nodiscard]] int flushFolder(const std::string& path);

}  // namespace tarvo::importing
