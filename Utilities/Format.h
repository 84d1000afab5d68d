// printf-style formatting into a std::string, for log lines whose texts are given as such.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>

namespace tarvo {

/// vsnprintf into a string of the right size, whatever its length. Never pass text that came from a
/// device as `format`: its directives would read arguments that are not there. Empty text when the
/// C library refuses the format (a wide character that the locale cannot show). Any thread.
///
///   formatted("%d of 0x%x", 1, 255U)  gives "1 of 0xff"
[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char* format, ...);
/// The same for functions that have such arguments themselves. `arguments` is spent afterwards.
[[gnu::format(printf, 1, 0)]] inline std::string formattedV(const char* format,
                                                            std::va_list arguments);

/// How a trace shows a list of texts: "(one, two)". Any thread.
template <typename Texts>
std::string listText(const Texts& texts) {
  std::string list = "(";
  const char* separator = "";
  for (const auto& text : texts) {
    list += separator;
    list += text;
    separator = ", ";
  }
  return list + ")";
}

inline std::string formatted(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = formattedV(format, arguments);
  va_end(arguments);
  return text;
}

inline std::string formattedV(const char* format, std::va_list arguments) {
  std::array<char, 256> small;  // most log lines fit; only longer ones are formatted twice
  // A va_list is spent by the first vsnprintf; the second pass needs one of its own.
  std::va_list again;
  va_copy(again, arguments);
  // The caller has started its list; the analyzer does not see across the call.
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = std::vsnprintf(small.data(), small.size(), format, arguments);
  std::string text;
  if (length >= 0 && static_cast<std::size_t>(length) < small.size()) {
    text.assign(small.data(), static_cast<std::size_t>(length));
  } else if (length >= 0) {
    text.resize(static_cast<std::size_t>(length));
    // The zero at the end lands on the string's own, which is there behind size().
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

}  // namespace tarvo
