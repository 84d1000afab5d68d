#include "tools/output/Words.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "NativeServices/PictureDevice/datasets/PTPDates.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo::tools {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

constexpr std::string_view kShapeOfPTP = "00000000T000000";
constexpr std::string_view kShapeInWords = "0000-00-00 00:00:00";

/// Digits where the shape has zeros, and its other characters in their places.
bool beginsWith(std::string_view text, std::string_view shape) {
  if (text.size() < shape.size()) return false;
  return std::ranges::equal(text.substr(0, shape.size()), shape, [](char actual, char expected) {
    return expected == '0' ? actual >= '0' && actual <= '9' : actual == expected;
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
  if (bytes < 1000) return counted(bytes, "bytes");
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  // 999.95 would be written as 1000.0.
  while (value >= 999.95 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  return formatted("%.1f %s", value, kUnits[unit]);
}

std::string counted(std::uint64_t count, std::string_view things) {
  std::string words(things);
  const std::size_t end = std::min(words.find(' '), words.size());
  if (count == 1 && end > 0 && words[end - 1] == 's') words.erase(end - 1, 1);
  return std::to_string(count) + " " + words;
}

std::string capacityInWords(const PTPStorageInfo& info) {
  return isBelievable(info) ? sizeInWords(info.maxCapacity) : "unknown";
}

std::string freeSpaceInWords(const PTPStorageInfo& info) {
  return isBelievable(info) ? sizeInWords(info.freeSpaceInBytes) : "unknown";
}

std::string usedSpaceInWords(const PTPStorageInfo& info) {
  return isBelievable(info) ? sizeInWords(info.maxCapacity - info.freeSpaceInBytes) : "";
}

std::string dateInWords(std::string_view ptpDate) {
  if (!beginsWith(ptpDate, kShapeOfPTP)) return printable(ptpDate);
  const auto part = [&](std::size_t at, std::size_t length) {
    return std::string(ptpDate.substr(at, length));
  };
  return part(0, 4) + "-" + part(4, 2) + "-" + part(6, 2) + " " + part(9, 2) + ":" + part(11, 2) +
         ":" + part(13, 2);
}

std::optional<std::string> ptpDateFromWords(std::string_view words) {
  std::string date(words);
  if (beginsWith(words, kShapeInWords)) {
    date[kShapeInWords.find(' ')] = 'T';
    std::erase_if(date, [](char each) { return each == ' ' || each == ':'; });
    // The hyphens of the day; one behind it belongs to a zone.
    for (int count = 0; count < 2; ++count)
      date.erase(date.find('-'), 1);
  }
  return isPTPDate(date) ? std::optional(date) : std::nullopt;
}

std::string batteryInWords(std::uint8_t level) {
  return level == kUnknownBatteryLevel ? "unknown" : std::to_string(level) + " %";
}

std::string durationInWords(std::uint64_t seconds) {
  const auto hours = static_cast<unsigned>(seconds / 3600);
  const auto minutes = static_cast<unsigned>(seconds / 60 % 60);
  const auto rest = static_cast<unsigned>(seconds % 60);
  return hours > 0 ? formatted("%u:%02u:%02u", hours, minutes, rest)
                   : formatted("%02u:%02u", minutes, rest);
}

std::string printable(std::string_view text) {
  return replacingControls(validUTF8(text), [](char32_t) { return std::string(kReplacement); });
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
