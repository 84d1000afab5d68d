// Four-character codes ('icdv', 'cmra', 'pass'): a 32-bit number whose most significant byte is the
// first character.
#pragma once

#include <cstdint>
#include <string>

namespace tarvo {

/// A number, never four bytes in memory: its byte order is that of the host.
using FourCharCode = std::uint32_t;

/// fourCharCode("icdv") is 0x69636476. At compile time only, so that a text of another length is an
/// error of the compiler.
consteval FourCharCode fourCharCode(const char (&text)[5]) {
  FourCharCode code = 0;
  for (int i = 0; i < 4; ++i)
    code = (code << 8) | static_cast<unsigned char>(text[i]);
  return code;
}

/// The four characters, first one first: fourCharText('icdv') is "icdv". Unprintable bytes are
/// shown as '?'.
std::string fourCharText(FourCharCode code);

/// The four characters, least significant byte first: 'icdv' is "vdci". This is how the code looks
/// where a little-endian memory dump of it is shown as text.
std::string fourCharTextReversed(FourCharCode code);

}  // namespace tarvo
