// File-name extensions, four-character file types and PTP object formats.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Utilities/FourCharCode.h"

namespace tarvo {

/// The file type of an extension in lower case; '????' for an unknown one.
/// Extensions are given without their dot. Case matters: callers bring them to lower case, as file
/// systems of cameras shout.
FourCharCode fileTypeOfExtension(std::string_view extension);

/// The PTP object format (ISO 15740, or the maker's) of an extension in lower case; 0x3000,
/// undefined, for an unknown one.
std::uint16_t ptpFormatOfExtension(std::string_view extension);

/// "jpg" of "a/IMG.JPG"; empty where there is none, and for a hidden file's name. By ASCII: the
/// tables know no other letters.
std::string lowerCaseExtension(std::string_view path);

}  // namespace tarvo
