// Bytes written and shown in hexadecimal: hexBytes("03 6100 0000"), hexText(span).
#pragma once

#include <cctype>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::test {

/// Blanks are ignored; anything else but an even number of digits fails the test.
inline std::vector<std::byte> hexBytes(std::string_view text) {
  std::string digits;
  for (const char character : text)
    if (character != ' ') digits += character;
  if (digits.size() % 2 != 0) throw std::invalid_argument("odd number of hexadecimal digits");
  std::vector<std::byte> bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes.push_back(static_cast<std::byte>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

inline std::string hexText(std::span<const std::byte> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    text += kDigits[std::to_integer<std::size_t>(byte) >> 4];
    text += kDigits[std::to_integer<std::size_t>(byte) & 0x0F];
  }
  return text;
}

}  // namespace tarvo::test
