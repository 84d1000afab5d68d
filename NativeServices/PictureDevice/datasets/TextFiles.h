// Texts and their encodings, of local files that do not say theirs among them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

/// Bytes that a text file may have; one that is larger is none that a device writes.
inline constexpr std::size_t kMostBytesOfTextFile = std::size_t{8} << 20;

/// Whether no byte is above 0x7F.
bool isASCII(std::string_view text);
/// The bytes as UTF-8, read in an encoding (an iconv name). None where they are no such text or the
/// encoding is unknown. Any thread.
std::optional<std::string> textInEncoding(std::string_view bytes, const std::string& encoding);
/// The bytes as UTF-8 or UTF-16 by their byte-order mark, else as UTF-8 where they are that, else
/// in `encoding`. Any thread.
std::optional<std::string> plainText(std::string_view bytes, const std::string& encoding);

// The same of a whole file. None, too, for a path that is empty and for a file that cannot be read
// or is too large.

std::optional<std::string> textFileInEncoding(const std::string& path, const std::string& encoding);
std::optional<std::string> plainTextFile(const std::string& path, const std::string& encoding);

}  // namespace tarvo
