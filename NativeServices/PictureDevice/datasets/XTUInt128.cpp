#include "NativeServices/PictureDevice/datasets/XTUInt128.h"

#include <algorithm>
#include <cstddef>

#include "Utilities/Exception.h"

namespace tarvo {

namespace {

/// The value of a hexadecimal digit, or -1. The locale, which isxdigit() asks, has no say in it.
int digitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

}  // namespace

std::string XTUInt128AsHexString(const XTUInt128& value) {
  if (std::ranges::all_of(value, [](std::uint8_t byte) { return byte == 0; })) return {};
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * value.size());
  for (const std::uint8_t byte : value) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

bool XTHexStringAsUInt128(std::optional<std::string_view> hexString, XTUInt128* digest) {
  assertParameter(hexString.has_value(), "hexString");
  assertParameter(digest != nullptr, "digest");
  if (hexString->size() != 2 * digest->size()) return false;
  for (std::size_t i = 0; i < digest->size(); ++i) {
    const int high = digitValue((*hexString)[2 * i]);
    const int low = digitValue((*hexString)[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    (*digest)[i] = static_cast<std::uint8_t>(high * 16 + low);
  }
  return true;
}

}  // namespace tarvo
