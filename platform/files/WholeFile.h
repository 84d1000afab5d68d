// Small files that are written whole or not at all.
#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <span>

#include "platform/files/FilePlace.h"

namespace tarvo {

/// Writes a file of the request's own name beside it and renames it when it is whole. Statuses as
/// FetchResult has them for what this host refuses. `modified` is the date that it shall show.
FetchResult writeWhole(const FetchRequest& request, std::span<const std::byte> content,
                       std::optional<std::time_t> modified = std::nullopt);

/// All of `content` to an open file; false, with errno, where it cannot be written.
[[nodiscard]] bool writeAll(int descriptor, std::span<const std::byte> content);

}  // namespace tarvo
