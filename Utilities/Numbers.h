// Numbers that a person wrote.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarvo {

/// The decimal or 0x... number that all of `text` is; none when it is none, is negative or is above
/// `maximum`.
/// Blanks and signs are no part of a number.
std::optional<std::uint64_t> numberOf(std::string_view text, std::uint64_t maximum);

}  // namespace tarvo
