// A picture of a page, decoded no further than its size allows.
#pragma once

#include <gdk/gdk.h>

#include <cstddef>
#include <string>

#include "platform/foundation/GlibPtr.h"

namespace tarvo::viewer {

// Bounds of a picture's file, of what it holds, and of what is kept of it.
inline constexpr std::size_t kMostPictureBytes = 1024 * 1024;
inline constexpr int kMostPictureSide = 2048;
inline constexpr int kMostShownSide = 760;

/// The PNG, JPEG or GIF picture at `path`, which has to be a regular file and no link, made smaller
/// where it is larger than kMostShownSide. Null where it is missing, another thing, or beyond
/// the bounds, which is known before it is decoded; of one that is cut there is what came.
GObjectPtr<GdkTexture> loadPicture(const std::string& path);

}  // namespace tarvo::viewer
