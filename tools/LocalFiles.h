// Files on this side: where a download goes, and small files that are written whole or not at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "NativeServices/PictureDevice/ObjectFetch.h"
#include "Utilities/Status.h"

namespace tarvo::tools {

/// Where files go: into a folder, under their own names or under the one that was given.
struct LocalTarget {
  std::string folder = ".";
  std::optional<std::string> name{};
};

/// What `output` means: a folder that is there, or ends with "/", is a folder, and so is any where
/// there is more than one object; it is made where it is missing. Otherwise it is the file's name.
/// Raises a ToolError for a folder that cannot be made and for a file's folder that is not there.
LocalTarget resolvedTarget(const std::string& operation, const std::string& output,
                           bool isOneObject);

/// Whether `folder` has a file NAME, or NAME (n), of that size.
bool hasFileOfSize(const std::string& folder, const std::string& name, std::uint64_t size);

struct WrittenFile {
  Status status = status::kOK;  ///< -48 for one that is there, -36 for one that cannot be written
  std::string why{};
  std::string path{};
};

/// Writes a file beside its final name and renames it when it is whole.
WrittenFile writeWhole(const std::string& folder, const std::string& name,
                       std::span<const std::byte> content, ExistingFile existing);

/// All of `content` to an open file; false, with errno, where it cannot be written.
bool writeAll(int descriptor, std::span<const std::byte> content);

/// "NAME (2).EXT" for 2; the name itself for 1.
std::string numberedName(const std::string& name, unsigned number);

}  // namespace tarvo::tools
