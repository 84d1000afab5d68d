#include "platform/files/HostFileNames.h"

#include <algorithm>

#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

namespace {

/// Longer ones are no extensions that anybody would miss.
constexpr std::size_t kMaximumExtension = 16;

bool isContinuationByte(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// The first `most` bytes, less those that would be a part of a character.
std::string_view cutToCharacters(std::string_view text, std::size_t most) {
  if (text.size() <= most) return text;
  while (most > 0 && isContinuationByte(text[most]))
    --most;
  return text.substr(0, most);
}

/// ".JPG" of "IMG.JPG"; empty where there is none, and for a hidden file's name.
std::string_view extensionOf(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  const std::string_view extension = name.substr(dot);
  return extension.size() <= kMaximumExtension ? extension : std::string_view();
}

}  // namespace

bool isFileName(std::string_view name) {
  constexpr std::string_view kNeverInNames("/\0", 2);
  return !name.empty() && name != "." && name != ".." && name.size() <= kMaximumFileName &&
         name.find_first_of(kNeverInNames) == std::string_view::npos;
}

std::optional<std::string> safeFileName(std::string_view name) {
  // A path of another system's makes no folders here: its backslashes are part of the name.
  const std::string clean =
      replacingControls(lastPathComponent(name), [](char32_t) { return std::string("_"); });
  std::string fitting = numberedFileName(clean, 1);
  return isFileName(fitting) ? std::optional(std::move(fitting)) : std::nullopt;
}

std::string numberedFileName(std::string_view name, unsigned number) {
  const std::string_view extension = extensionOf(name);
  const std::string_view stem = name.substr(0, name.size() - extension.size());
  // The extension decides what opens the file, so the stem gives way.
  std::string tail = number > 1 ? " (" + std::to_string(number) + ")" : "";
  tail += extension;
  return std::string(cutToCharacters(stem, kMaximumFileName - tail.size())) + tail;
}

}  // namespace tarvo
