#include "tools/Words.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo::tools {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// C0, C1 and DEL, line and paragraph separators, and the marks that turn the direction of text
/// around: all of them can make a line look like another one.
bool steersTerminals(gunichar character) {
  return g_unichar_iscntrl(character) != 0 || character == 0x2028 || character == 0x2029 ||
         (character >= 0x202A && character <= 0x202E) ||
         (character >= 0x2066 && character <= 0x2069);
}

/// "YYYYMMDDThhmmss": digits and a "T" in their places.
bool beginsWithDate(std::string_view text) {
  constexpr std::string_view kShape = "00000000T000000";
  if (text.size() < kShape.size()) return false;
  return std::ranges::equal(text.substr(0, kShape.size()), kShape, [](char actual, char shape) {
    return shape == '0' ? actual >= '0' && actual <= '9' : actual == shape;
  });
}

/// Behind the character at `at`, in valid UTF-8.
const char* nextCharacter(const char* at) {
  return g_utf8_find_next_char(at, nullptr);
}

bool isBelievable(const PTPStorageInfo& info) {
  constexpr std::uint64_t kAllOnes = 0xFFFFFFFFFFFFFFFF;
  return info.maxCapacity != kAllOnes && info.freeSpaceInBytes <= info.maxCapacity;
}

}  // namespace

std::string sizeInWords(std::uint64_t bytes) {
  constexpr std::array kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes == 1) return "1 byte";
  if (bytes < 1000) return std::to_string(bytes) + " bytes";
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  // 999.95 would be written as 1000.0.
  while (value >= 999.95 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  return formatted("%.1f %s", value, kUnits[unit]);
}

std::string capacityInWords(const PTPStorageInfo& info) {
  return isBelievable(info) ? sizeInWords(info.maxCapacity) : "unknown";
}

std::string freeSpaceInWords(const PTPStorageInfo& info) {
  return isBelievable(info) ? sizeInWords(info.freeSpaceInBytes) : "unknown";
}

std::string dateInWords(std::string_view ptpDate) {
  if (!beginsWithDate(ptpDate)) return printable(ptpDate);
  const auto part = [&](std::size_t at, std::size_t length) {
    return std::string(ptpDate.substr(at, length));
  };
  return part(0, 4) + "-" + part(4, 2) + "-" + part(6, 2) + " " + part(9, 2) + ":" + part(11, 2) +
         ":" + part(13, 2);
}

std::string durationInWords(std::uint64_t seconds) {
  const auto hours = static_cast<unsigned>(seconds / 3600);
  const auto minutes = static_cast<unsigned>(seconds / 60 % 60);
  const auto rest = static_cast<unsigned>(seconds % 60);
  return hours > 0 ? formatted("%u:%02u:%02u", hours, minutes, rest)
                   : formatted("%02u:%02u", minutes, rest);
}

std::string printable(std::string_view text) {
  const std::string valid = validUTF8(text);
  std::string shown;
  for (const char* at = valid.data(); at < valid.data() + valid.size(); at = nextCharacter(at)) {
    if (steersTerminals(g_utf8_get_char(at))) {
      shown += kReplacement;
    } else {
      shown.append(at, static_cast<std::size_t>(nextCharacter(at) - at));
    }
  }
  return shown;
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string all;
  for (const auto& text : texts) {
    if (!all.empty()) all += separator;
    all += text;
  }
  return all;
}

std::size_t displayWidth(std::string_view text) {
  const std::string valid = validUTF8(text);
  std::size_t width = 0;
  for (const char* at = valid.data(); at < valid.data() + valid.size(); at = nextCharacter(at)) {
    const gunichar character = g_utf8_get_char(at);
    if (g_unichar_iszerowidth(character) != 0) continue;
    width += g_unichar_iswide(character) != 0 ? 2 : 1;
  }
  return width;
}

std::string padded(const std::string& text, std::size_t width, bool alignRight) {
  const std::size_t used = displayWidth(text);
  if (used >= width) return text;
  const std::string blanks(width - used, ' ');
  return alignRight ? blanks + text : text + blanks;
}

}  // namespace tarvo::tools
