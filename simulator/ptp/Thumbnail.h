// Thumbnails as cameras make them: a small JPEG (ITU-T T.81, baseline) for each object.
#pragma once

#include <cstdint>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {

/// Pixels of every thumbnail, as Exif has them.
inline constexpr std::uint16_t kThumbnailWidth = 160;
inline constexpr std::uint16_t kThumbnailHeight = 120;

/// A valid grey JPEG of that size, some 280 bytes; its brightness and so its bytes depend on
/// `handle`, and are the same at every call.
Bytes thumbnailJPEG(std::uint32_t handle);

}  // namespace tarvo::simulator
