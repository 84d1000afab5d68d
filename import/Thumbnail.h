// A JPEG picture made small enough for a list.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace tarvo::importing {

inline constexpr unsigned kMostOfThumbnail = 256;

struct Thumbnail {
  unsigned width = 0;
  unsigned height = 0;
  std::vector<std::byte> pixels{};  ///< red, green, blue; row by row from the top, without padding
};

/// At most 256 x 256 pixels with the shape of the picture, never enlarged, turned as `orientation`
/// says, or as its own EXIF block does. What is cut shows what came.
///
/// None for what is no JPEG picture in colour or grey, has more than 65,500 pixels a side, far more
/// than its bytes can hold, or would need more than 64 MiB of memory. Whatever the bytes are, there
/// is an answer; any thread.
std::optional<Thumbnail> thumbnailOf(std::span<const std::byte> jpeg,
                                     std::optional<unsigned> orientation = std::nullopt);

}  // namespace tarvo::importing
