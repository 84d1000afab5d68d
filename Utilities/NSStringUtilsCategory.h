// Conversions between text (UTF-8), wide strings whose elements are UTF-16 code units, and the
// locale's multibyte encoding; and the one filter for control characters, which log, tools and file
// names pass text of a device through. The agent's log takes wide strings.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <string_view>

namespace tarvo {

/// UTF-8 to UTF-16, in the host's byte order and without a byte order mark. Bytes that are no UTF-8
/// become U+FFFD, one for each longest beginning of a well-formed sequence (Unicode, "U+FFFD
/// Substitution of Maximal Subparts"). Zero characters are kept. Any thread.
std::u16string utf16FromUTF8(std::string_view text);

/// The number of UTF-16 code units of a text, by which devices limit it. Any thread.
std::size_t utf16Length(std::string_view text);

/// UTF-16 to UTF-8. An unpaired surrogate becomes U+FFFD, so the result is always well-formed: what
/// goes into D-Bus messages and JSON must be. Any thread.
std::string utf8FromUTF16(std::u16string_view units);

/// Text that may be anything, with U+FFFD for what is no UTF-8; the rest is as it was. Any thread.
std::string validUTF8(std::string_view text);

/// What can steer a terminal, or make a line look like another one: Unicode's control characters
/// (C0, DEL and C1), line and paragraph separators, and the marks that turn the direction of text
/// around. Any thread.
bool isControlCharacter(char32_t character);

/// `text` with `substitute(character)` in place of each control character. The rest is as it was,
/// bytes that are no UTF-8 included. Any thread.
std::string replacingControls(std::string_view text,
                              const std::function<std::string(char32_t character)>& substitute);

/// `text` as valid UTF-8 without the control characters at its ends. Any thread.
std::string withoutOuterControls(std::string_view text);

/// A wide string with one element for each UTF-16 code unit of `text`; a character outside the
/// basic plane becomes two elements.
std::wstring stdWStringUTF16(std::string_view text);

/// The text made of the low 16 bits of each element: the inverse of stdWStringUTF16. Elements above
/// 0xFFFF are cut, not encoded as surrogate pairs.
std::string stringFromUTF16Wstring(std::wstring_view wide);

/// Text that cannot be converted: the root of what this file raises.
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
/// `bytes` in the locale's multibyte encoding (LC_CTYPE) as a wide string, up to the first zero
/// byte. One element is one character here, not a UTF-16 unit.
/// Raises mbcs_to_wide_string_conversion_exception when a byte has no meaning in the encoding; in
/// the "C" locale that is every byte above 0x7F.
std::wstring wide(const std::string& bytes);
}  // namespace string_conversion

}  // namespace tarvo
