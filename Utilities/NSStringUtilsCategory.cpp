#include "Utilities/NSStringUtilsCategory.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace tarvo {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

constexpr bool isHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// What the first byte of a UTF-8 sequence promises: how many bytes follow, the payload it carries,
/// and the range of the byte after it (which excludes overlong forms, surrogates and values above
/// 0x10FFFF; Unicode, table "Well-Formed UTF-8 Byte Sequences").
struct Lead {
  int following;
  char32_t payload;
  unsigned char low;
  unsigned char high;
};

constexpr Lead kNoLead = {-1, 0, 0, 0};

/// The lead byte alone decides about overlong forms of two bytes (0xC0, 0xC1) and about everything
/// above 0x10FFFF (0xF5 and up); the rest is decided by the byte behind it.
Lead leadOf(unsigned char byte) {
  if (byte < 0x80) return {0, byte, 0, 0};
  if (byte < 0xC2) return kNoLead;
  if (byte < 0xE0) return {1, byte & 0x1FU, 0x80, 0xBF};
  if (byte < 0xF0) {
    return {2, byte & 0x0FU, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
            static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
  }
  if (byte < 0xF5) {
    return {3, byte & 0x07U, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
            static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
  }
  return kNoLead;
}

/// The character at `at`, which moves behind it. A malformed sequence gives U+FFFD for its longest
/// well-formed beginning.
char32_t nextCharacter(std::string_view text, std::size_t& at) {
  Lead lead = leadOf(static_cast<unsigned char>(text[at++]));
  if (lead.following < 0) return kReplacement;
  char32_t character = lead.payload;
  for (int i = 0; i < lead.following; ++i) {
    const auto byte = at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
    // `at` stays on a byte that does not fit: it may begin a character of its own, which a device's
    // cut-off text must not take with it.
    if (byte < lead.low || byte > lead.high) return kReplacement;
    character = (character << 6) | (byte & 0x3FU);
    // Only the second byte has a narrower range.
    lead.low = 0x80;
    lead.high = 0xBF;
    ++at;
  }
  return character;
}

/// The number of ASCII characters that `text` begins with: they are the same in both encodings, and
/// file names and dates consist of nothing else, so they are copied at once.
template <typename Character>
std::size_t plainLength(std::basic_string_view<Character> text) {
  const auto isPlain = [](Character each) {
    return static_cast<std::make_unsigned_t<Character>>(each) < 0x80;
  };
  return static_cast<std::size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
}

/// `character` is no surrogate: those have no form in UTF-8 (Unicode, D92).
void appendUTF8(std::string& text, char32_t character) {
  const auto tail = [&](int shift) {
    text += static_cast<char>(0x80 | ((character >> shift) & 0x3F));
  };
  if (character < 0x80) {
    text += static_cast<char>(character);
  } else if (character < 0x800) {
    text += static_cast<char>(0xC0 | (character >> 6));
    tail(0);
  } else if (character < 0x10000) {
    text += static_cast<char>(0xE0 | (character >> 12));
    tail(6);
    tail(0);
  } else {
    text += static_cast<char>(0xF0 | (character >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

}  // namespace

std::u16string utf16FromUTF8(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());          // never too small: no sequence has more units than bytes
  std::size_t at = plainLength(text);  // most text is ASCII as a whole
  units.assign(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at));
  while (at < text.size()) {
    const char32_t character = nextCharacter(text, at);
    if (character < 0x10000) {
      units += static_cast<char16_t>(character);
    } else {
      units += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
    }
  }
  return units;
}

std::size_t utf16Length(std::string_view text) {
  const std::size_t plain = plainLength(text);
  return plain + utf16FromUTF8(text.substr(plain)).size();
}

std::string utf8FromUTF16(std::u16string_view units) {
  std::string text;
  text.reserve(units.size());
  std::size_t at = plainLength(units);
  text.assign(units.begin(), units.begin() + static_cast<std::ptrdiff_t>(at));
  for (; at < units.size(); ++at) {
    char32_t character = units[at];
    // A low unit is looked at but not taken when the high one before it is missing, so of two high
    // units only the first is replaced.
    const bool paired =
        isHighSurrogate(character) && at + 1 < units.size() && isLowSurrogate(units[at + 1]);
    if (paired) {
      character = 0x10000 + ((character - 0xD800) << 10) + (units[++at] - 0xDC00U);
    } else if (isHighSurrogate(character) || isLowSurrogate(character)) {
      character = kReplacement;
    }
    appendUTF8(text, character);
  }
  return text;
}

std::string validUTF8(std::string_view text) {
  return utf8FromUTF16(utf16FromUTF8(text));
}

bool isControlCharacter(char32_t character) {
  return character < 0x20 || (character >= 0x7F && character <= 0x9F) ||
         (character >= 0x2028 && character <= 0x202E) ||
         (character >= 0x2066 && character <= 0x2069);
}

std::string replacingControls(std::string_view text,
                              const std::function<std::string(char32_t character)>& substitute) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const char32_t character = nextCharacter(text, at);
    if (isControlCharacter(character)) {
      result += substitute(character);
    } else {
      result += text.substr(start, at - start);
    }
  }
  return result;
}

std::string withoutOuterControls(std::string_view text) {
  // None of them needs a surrogate, so each is one unit.
  const std::u16string units = utf16FromUTF8(text);
  std::u16string_view inner = units;
  while (!inner.empty() && isControlCharacter(inner.front()))
    inner.remove_prefix(1);
  while (!inner.empty() && isControlCharacter(inner.back()))
    inner.remove_suffix(1);
  return utf8FromUTF16(inner);
}

std::wstring stdWStringUTF16(std::string_view text) {
  const std::u16string units = utf16FromUTF8(text);
  return {units.begin(), units.end()};
}

std::string stringFromUTF16Wstring(std::wstring_view wide) {
  std::u16string units;
  units.reserve(wide.size());
  for (const wchar_t element : wide)
    units += static_cast<char16_t>(element);
  return utf8FromUTF16(units);
}

const char* string_conversion_exception::what() const noexcept {
  return "string conversion failed";
}

const char* mbcs_to_wide_string_conversion_exception::what() const noexcept {
  return "text is not valid in the encoding of the locale";
}

namespace string_conversion {

std::wstring wide(const std::string& bytes) {
  constexpr auto kFailed = static_cast<std::size_t>(-1);
  // mbstowcs has no state of its own between calls, so measuring first and converting then is sound
  // as long as the locale stays; the second result is tested because another thread may change it.
  const std::size_t length = std::mbstowcs(nullptr, bytes.c_str(), 0);
  if (length == kFailed) throw mbcs_to_wide_string_conversion_exception();
  std::wstring result(length + 1, L'\0');
  const std::size_t converted = std::mbstowcs(result.data(), bytes.c_str(), length + 1);
  if (converted == kFailed) throw mbcs_to_wide_string_conversion_exception();
  result.resize(converted);
  return result;
}

}  // namespace string_conversion

}  // namespace tarvo
