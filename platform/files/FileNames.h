// Names of files on this host: what may be left of a name that a device gave, numbers for names
// that are taken, and what an extension says of the content.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Utilities/FourCharCode.h"

namespace tarvo {

/// Bytes that a file's name may have on Linux.
inline constexpr std::size_t kMaximumFileName = 255;

/// The last component of a name that a device gave, fit to be a file's name: control characters
/// and a leading dot, which would hide it, replaced, at most 255 bytes, of which an extension keeps
/// its place. None for an empty one, "." and "..". Any thread.
std::optional<std::string> safeFileName(std::string_view name);

/// Whether a text is the name of a file as it stands. Any thread.
bool isFileName(std::string_view name);

/// The name that the `number`th file of the same name gets: "IMG.JPG", "IMG (2).JPG", ...; never
/// longer than a name may be. `name` is a file name, `number` begins at 1. Any thread.
std::string numberedFileName(std::string_view name, unsigned number);
/// Bounds a search for one that is free, should somebody make the next name each time.
inline constexpr unsigned kMostOfOneName = 100'000;

// File-name extensions, four-character file types and PTP object formats.

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

/// Where this user's programs keep their data: $XDG_DATA_HOME, else ~/.local/share.
std::string userDataFolder();
/// Where they keep what is to last from one run to the next: $XDG_STATE_HOME, else ~/.local/state.
std::string userStateFolder();

}  // namespace tarvo
