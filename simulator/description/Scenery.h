// Pictures that a person can look at, made as a camera makes them: JPEG with the date in an EXIF
// block.
#pragma once

#include <string>
#include <string_view>

namespace tarvo::simulator {

/// The bytes of a JPEG file: a landscape whose sky and hills depend on `name`, always the same for
/// the same arguments. `taken` is a PTP date ("20260801T091500"); another text leaves the block
/// out. Sides in pixels, at least 1. Raises std::runtime_error where there is no memory for it.
std::string sceneryJPEG(int width, int height, std::string_view name, std::string_view taken);

}  // namespace tarvo::simulator
