#include "platform/files/FileNames.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>

#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/foundation/XdgFolders.h"

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
  // A stranger may make no file that only its owner's shell and desktop look for.
  if (isFileName(fitting) && fitting.front() == '.') fitting.front() = '_';
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

namespace {

struct FileType {
  std::string_view extension;
  FourCharCode type;
};
constexpr FourCharCode kUnknownType = fourCharCode("????");

// An extension without a known type is listed as such, so that the list is whole.
constexpr FileType kFileTypes[] = {
    {"jpg", fourCharCode("JPEG")},  {"jpeg", fourCharCode("JPEG")}, {"jfif", fourCharCode("JPEG")},
    {"jp2", fourCharCode("JPEG")},  {"jpe", fourCharCode("JPEG")},  {"jpx", fourCharCode("JPEG")},
    {"tif", fourCharCode("TIFF")},  {"tiff", fourCharCode("TIFF")}, {"fpx", fourCharCode("FPix")},
    {"fpix", fourCharCode("FPix")}, {"bmp", fourCharCode("BMPf")},  {"gif", fourCharCode("GIFf")},
    {"cif", kUnknownType},          {"pcd", kUnknownType},          {"pict", fourCharCode("PICT")},
    {"png", fourCharCode("PNGf")},  {"tdc", fourCharCode("TDC ")},  {"mov", fourCharCode("MooV")},
    {"avi", fourCharCode("VfW ")},  {"mpg", fourCharCode("MPEG")},  {"mpeg", fourCharCode("MPEG")},
    {"asf", kUnknownType},          {"aif", fourCharCode("AIFF")},  {"aiff", fourCharCode("AIFF")},
    {"aifc", fourCharCode("AIFC")}, {"wav", fourCharCode("WAVE")},  {"wave", fourCharCode("WAVE")},
    {"mp3", kUnknownType},          {"txt", fourCharCode("TEXT")},  {"exe", kUnknownType},
    {"htm", fourCharCode("HTML")},  {"html", fourCharCode("HTML")}, {"fw", kUnknownType},
    {"bin", kUnknownType},          {"pak", kUnknownType},          {"pof", kUnknownType},
    {"lcb", kUnknownType},          {"cfa", kUnknownType},          {"m3u", fourCharCode("TEXT")},
    {"abk", fourCharCode("TEXT")},
};

struct PTPFormat {
  std::string_view extension;
  std::uint16_t format;
};

// Differs from the table above (docs/oddities.md): "fpix" has no format, "lid", "how" and "sbx" no
// type, and "jfif", "jp2", "jpx" and "aifc" are told apart in one of the two only.
constexpr PTPFormat kPTPFormats[] = {
    {"fw", 0xB001},                                                        // firmware
    {"bin", 0xB001},                                                       // firmware
    {"pak", 0xB20C}, {"m3u", 0xB002},  {"abk", 0xB003},                    // address book
    {"pof", 0xB004}, {"lcb", 0xB005},  {"lid", 0xB006},  {"how", 0xB008},  // host object wrapper
    {"cfa", 0xB801}, {"tdc", 0xB804},  {"sbx", 0xB00C},                    // shoebox
    {"jpg", 0x3801}, {"jpeg", 0x3801}, {"jpe", 0x3801},  {"jp2", 0x380F},  {"jpx", 0x3810},
    {"tif", 0x3802}, {"tiff", 0x3802}, {"fpx", 0x3803},  {"bmp", 0x3804},  {"cif", 0x3805},
    {"gif", 0x3807}, {"jfif", 0x3808}, {"pcd", 0x3809},  {"pict", 0x380A}, {"png", 0x380B},
    {"mov", 0x300D}, {"avi", 0x300A},  {"mpg", 0x300B},  {"mpeg", 0x300B}, {"asf", 0x300C},
    {"aif", 0x3007}, {"aiff", 0x3007}, {"aifc", 0x3007}, {"wav", 0x3008},  {"wave", 0x3008},
    {"mp3", 0x3009}, {"txt", 0x3004},  {"exe", 0x3003},  {"htm", 0x3005},  {"html", 0x3005},
};

}  // namespace

FourCharCode fileTypeOfExtension(std::string_view extension) {
  // A few dozen rows that are asked for once a file: a search from the front does.
  const auto* found = std::ranges::find(kFileTypes, extension, &FileType::extension);
  return found == std::end(kFileTypes) ? kUnknownType : found->type;
}

std::uint16_t ptpFormatOfExtension(std::string_view extension) {
  const auto* found = std::ranges::find(kPTPFormats, extension, &PTPFormat::extension);
  return found == std::end(kPTPFormats) ? ptp::kUndefinedFormat : found->format;
}

std::string lowerCaseExtension(std::string_view path) {
  std::string extension = std::filesystem::path(path).extension().string();
  if (!extension.empty()) extension.erase(0, 1);
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

std::string userDataFolder() {
  return xdgDataHome();
}

std::string userStateFolder() {
  return xdgStateHome();
}

}  // namespace tarvo
