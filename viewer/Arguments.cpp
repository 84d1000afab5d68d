#include "viewer/Arguments.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace tarvo::viewer {

namespace {

constexpr int kSmallest = 100;
constexpr int kLargest = 4000;

bool readSize(std::string_view word, int& size) {
  int number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  // One that is too large for a number is too large for a screen as well.
  if (error == std::errc::result_out_of_range) number = kLargest;
  size = std::clamp(number, kSmallest, kLargest);
  return error != std::errc::invalid_argument && end == word.data() + word.size();
}

}  // namespace

std::optional<Arguments> parsedArguments(std::span<const char* const> words) {
  Arguments arguments;
  int pages = 0;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (word == "-h" || word == "-v") {
      if (++i == words.size()) return std::nullopt;
      if (!readSize(words[i], word == "-h" ? arguments.width : arguments.height))
        return std::nullopt;
    } else if (word == "--help") {
      arguments.wantsHelp = true;
    } else if (word == "--version") {
      arguments.wantsVersion = true;
    } else if (word.starts_with('-')) {
      return std::nullopt;
    } else {
      arguments.page = word;
      ++pages;
    }
  }
  const bool isTold = arguments.wantsHelp || arguments.wantsVersion;
  return isTold || pages == 1 ? std::optional(arguments) : std::nullopt;
}

}  // namespace tarvo::viewer
