// Conversions between text (UTF-8), wide strings whose elements are UTF-16 code units, and the
// locale's multibyte encoding. The agent's log takes wide strings.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tarvo {

/// UTF-8 to UTF-16. Bytes that are no UTF-8 become U+FFFD.
std::u16string utf16FromUTF8(std::string_view text);

/// UTF-16 to UTF-8. An unpaired surrogate becomes U+FFFD.
std::string utf8FromUTF16(std::u16string_view units);

/// A wide string with one element for each UTF-16 code unit of `text`; a character outside the
/// basic plane becomes two elements.
std::wstring stdWStringUTF16(std::string_view text);

/// The text made of the low 16 bits of each element: the inverse of stdWStringUTF16. Elements above
/// 0xFFFF are cut, not encoded as surrogate pairs; this is intended.
std::string stringFromUTF16Wstring(std::wstring_view wide);

class string_conversion_exception : public std::exception {
 public:
  const char* what() const noexcept override;
};

/// Multibyte text that is not valid in the current locale.
class mbcs_to_wide_string_conversion_exception : public string_conversion_exception {
 public:
  const char* what() const noexcept override;
};

namespace string_conversion {
/// `bytes` in the locale's multibyte encoding as a wide string.
/// Raises mbcs_to_wide_string_conversion_exception.
std::wstring wide(const std::string& bytes);
}  // namespace string_conversion

}  // namespace tarvo
