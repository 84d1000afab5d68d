// Files on this side: where a download goes, and small files that are written whole or not at all.
#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <span>
#include <string>

#include "NativeServices/PictureDevice/operations/ObjectFetch.h"
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

/// Writes a file of the request's own name beside it and renames it when it is whole. Statuses as
/// ObjectFetch has them for what this host refuses. `modified` is the date that it shall show.
FetchResult writeWhole(const FetchRequest& request, std::span<const std::byte> content,
                       std::optional<std::time_t> modified = std::nullopt);

/// All of `content` to an open file; false, with errno, where it cannot be written.
bool writeAll(int descriptor, std::span<const std::byte> content);

}  // namespace tarvo::tools
