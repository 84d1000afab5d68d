#include "Utilities/Numbers.h"

#include <charconv>
#include <system_error>

namespace tarvo {

std::optional<std::uint64_t> numberOf(std::string_view text, std::uint64_t maximum) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t value = 0;
  const char* end = text.data() + text.size();
  // from_chars takes no sign for an unsigned number, no blank and no prefix of its own; what is
  // left over behind the number is refused below.
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc() || stop != end || value > maximum) return std::nullopt;
  return value;
}

}  // namespace tarvo
