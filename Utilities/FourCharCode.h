// Four-character codes ('icdv', 'cmra', 'pass'): a 32-bit number whose most significant byte is the
// first character.
#pragma once

#include <cstdint>
#include <string>

namespace tarvo {

using FourCharCode = std::uint32_t;

/// fourCharCode("icdv"): the code of four characters, at compile time.
consteval FourCharCode fourCharCode(const char (&text)[5]) {
  FourCharCode code = 0;
  for (int i = 0; i < 4; ++i)
    code = (code << 8) | static_cast<unsigned char>(text[i]);
  return code;
}

/// The four characters, first one first: fourCharText('icdv') is "icdv". Unprintable bytes are
/// shown as '?'.
std::string fourCharText(FourCharCode code);

/// The four characters, least significant byte first: 'icdv' is "vdci".
std::string fourCharTextReversed(FourCharCode code);

}  // namespace tarvo
