#include "msc/ClockPage.h"

#include <algorithm>

namespace tarvo {

namespace {

constexpr std::size_t kPageCodeAt = 8;
constexpr std::size_t kPageLengthAt = 9;
constexpr std::size_t kDigitsAt = 10;
constexpr std::uint8_t kPageLength = 14;

}  // namespace

std::string localDateText(std::time_t date, const char* format) {
  std::tm local = {};
  if (!::localtime_r(&date, &local)) return {};
  std::array<char, 64> text;
  return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
}

void fillClockPage(ClockPage& page, const std::string& digits) {
  page[kPageCodeAt] = std::byte{kClockPageCode};
  page[kPageLengthAt] = std::byte{kPageLength};
  const std::size_t count = std::min<std::size_t>(digits.size(), kPageLength);
  std::transform(digits.begin(), digits.begin() + static_cast<std::ptrdiff_t>(count),
                 page.begin() + kDigitsAt,
                 [](char digit) { return static_cast<std::byte>(digit); });
}

}  // namespace tarvo
