#include "Utilities/Format.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace tarvo {

std::string formatted(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = formattedV(format, arguments);
  va_end(arguments);
  return text;
}

std::string formattedV(const char* format, std::va_list arguments) {
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
