// The command line of ViewerApp, as the agent starts it: PAGE -h 400 -v 155.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace tarvo::viewer {

struct Arguments {
  std::string page;  ///< path of the page
  /// What the page has of the screen, in logical pixels.
  int width = 400;
  int height = 155;
  bool wantsHelp = false;
  bool wantsVersion = false;
};

/// From the words behind the program's name. None where there is not one page, a word is unknown,
/// or a size is no number. A size is held between 100 and 4,000. Any thread.
std::optional<Arguments> parsedArguments(std::span<const char* const> words);

}  // namespace tarvo::viewer
