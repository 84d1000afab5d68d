// What a picture's file says of itself in its EXIF block.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "import/CalendarTime.h"

namespace tarvo::importing {

/// Of a file, from its beginning, is enough to read for the calls below; more is not looked at.
inline constexpr std::size_t kMostOfHeader = 256UL * 1024;

// `beginning` is that of a JPEG file, or of a raw picture that is a TIFF file at heart. Each reads
// anew. Whatever the bytes are, there is an answer; any thread.

/// When it was taken, else when it was digitised; none on any doubt.
std::optional<CalendarTime> captureDateOf(std::span<const std::byte> beginning);

/// The small JPEG picture in it; empty where there is none.
std::vector<std::byte> embeddedThumbnail(std::span<const std::byte> beginning);

/// How it is to be turned (EXIF 2.3, "Orientation"), 1 to 8; 1 where it does not say.
unsigned orientationOf(std::span<const std::byte> beginning);

}  // namespace tarvo::importing
