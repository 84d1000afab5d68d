// 128-bit values as PTP carries them: 16 raw bytes, in the order in which they travel.
//
// The maker's extension uses them for object fingerprints and for GUIDs.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

using XTUInt128 = std::array<std::uint8_t, 16>;

/// 32 lower-case hexadecimal digits in byte order; empty text when all bytes are zero.
/// Zero is "no value" to the devices, hence the empty text.
std::string XTUInt128AsHexString(const XTUInt128& value);

/// Reads exactly 32 hexadecimal digits of either case into `digest`. False for any other text; the
/// bytes before the first wrong digit are written all the same. A missing argument is a failed
/// assertion that names it.
bool XTHexStringAsUInt128(std::optional<std::string_view> hexString, XTUInt128* digest);

}  // namespace tarvo
