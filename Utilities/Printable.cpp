#include "Utilities/Printable.h"

#include <algorithm>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

constexpr std::string_view kReplacementText = "\xEF\xBF\xBD";

}  // namespace

std::string printable(std::string_view text) {
  // As most text is: a list of thousands is said as fast as it comes.
  if (std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; }))
    return std::string(text);
  return replacingControls(validUTF8(text), [](char32_t) { return std::string(kReplacementText); });
}

std::string printableLines(std::string_view text) {
  std::string lines;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    const bool isEnded = line.size() < text.size();
    text.remove_prefix(line.size() + (isEnded ? 1 : 0));
    if (isEnded && line.ends_with('\r')) line.remove_suffix(1);
    lines += replacingControls(validUTF8(line), [](char32_t character) {
      return std::string(character == '\t' ? "\t" : kReplacementText);
    });
    if (isEnded) lines += '\n';
  }
  return lines;
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string all;
  for (const auto& text : texts) {
    if (!all.empty()) all += separator;
    all += text;
  }
  return all;
}

std::string statusWithHex(Status status) {
  std::string words = statusText(status);
  if (words.find("0x") != std::string::npos) return words;
  const auto hex = formatted("0x%x", static_cast<unsigned>(status));
  if (words.ends_with(')')) {
    words.pop_back();
    return words + ", " + hex + ")";
  }
  return words + " (" + hex + ")";
}

std::string handleText(std::uint32_t handle) {
  return formatted("0x%08x", unsigned{handle});
}

}  // namespace tarvo
