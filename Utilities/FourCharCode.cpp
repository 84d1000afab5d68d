#include "Utilities/FourCharCode.h"

#include <algorithm>

namespace tarvo {

std::string fourCharText(FourCharCode code) {
  std::string text(4, '?');
  for (std::size_t i = 0; i < 4; ++i) {
    const auto byte = static_cast<unsigned char>(code >> (24 - 8 * i));
    // By value, not isprint(): the text must not depend on the locale.
    if (byte >= 0x20 && byte < 0x7F) text[i] = static_cast<char>(byte);
  }
  return text;
}

std::string fourCharTextReversed(FourCharCode code) {
  std::string text = fourCharText(code);
  std::reverse(text.begin(), text.end());
  return text;
}

}  // namespace tarvo
