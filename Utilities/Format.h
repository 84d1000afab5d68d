// printf-style formatting into a std::string, for log lines whose texts are given as such.
#pragma once

#include <cstdarg>
#include <string>

namespace tarvo {

/// vsnprintf into a string of the right size, whatever its length. Never pass text that came from a
/// device as `format`: its directives would read arguments that are not there. Empty text when the
/// C library refuses the format (a wide character that the locale cannot show). Any thread.
///
///   formatted("%d of 0x%x", 1, 255U)  gives "1 of 0xff"
[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...);
/// The same for functions that have such arguments themselves. `arguments` is spent afterwards.
[[gnu::format(printf, 1, 0)]] std::string formattedV(const char* format, std::va_list arguments);

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

}  // namespace tarvo
