#include "NativeServices/PictureDevice/datasets/PTPDates.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tarvo {

namespace {

constexpr std::size_t kDateLength = 15;
constexpr std::size_t kDayAndTimeSeparator = 8;
constexpr int kFirstYearOfTm = 1900;

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

/// Digits alone, checked beforehand.
int number(std::string_view text, std::size_t from, std::size_t length) {
  int value = 0;
  std::from_chars(text.data() + from, text.data() + from + length, value);
  return value;
}

/// The six numbers, where they form a date; none otherwise.
std::optional<std::tm> brokenDown(std::string_view text) {
  if (text.size() < kDateLength || text[kDayAndTimeSeparator] != 'T') return std::nullopt;
  for (std::size_t i = 0; i < kDateLength; ++i) {
    if (i != kDayAndTimeSeparator && !isDigit(text[i])) return std::nullopt;
  }
  std::tm date{};
  date.tm_year = number(text, 0, 4) - kFirstYearOfTm;
  date.tm_mon = number(text, 4, 2) - 1;
  date.tm_mday = number(text, 6, 2);
  date.tm_hour = number(text, 9, 2);
  date.tm_min = number(text, 11, 2);
  date.tm_sec = number(text, 13, 2);
  // The C library carries what is too much over to the next field: 30 February comes back changed.
  // In UTC, where every hour exists.
  std::tm again = date;
  ::timegm(&again);
  const bool isValid = again.tm_mday == date.tm_mday && again.tm_mon == date.tm_mon &&
                       again.tm_hour == date.tm_hour && again.tm_min == date.tm_min &&
                       again.tm_sec == date.tm_sec;
  return isValid ? std::optional(date) : std::nullopt;
}

/// What is behind the numbers and the fraction: the zone, where there is one.
std::string_view zoneOf(std::string_view text) {
  auto rest = text.substr(kDateLength);
  // Tenths of a second, by the standard; some cameras write more digits.
  if (rest.starts_with('.')) {
    rest.remove_prefix(1);
    rest.remove_prefix(std::min(rest.find_first_not_of("0123456789"), rest.size()));
  }
  return rest;
}

/// Seconds east of UTC; none for what is no zone.
std::optional<int> zoneOffset(std::string_view rest) {
  if (rest == "Z") return 0;
  constexpr std::size_t kZoneLength = 5;
  const bool isZone = rest.size() == kZoneLength && (rest[0] == '+' || rest[0] == '-') &&
                      std::ranges::all_of(rest.substr(1), isDigit);
  if (!isZone) return std::nullopt;
  const int seconds = (number(rest, 1, 2) * 60 + number(rest, 3, 2)) * 60;
  return rest[0] == '-' ? -seconds : seconds;
}

}  // namespace

std::optional<std::time_t> timeOfPTPDate(std::string_view text) {
  auto date = brokenDown(text);
  if (!date) return std::nullopt;
  // What is behind the numbers and no zone says nothing, so the date is local then.
  if (const auto offset = zoneOffset(zoneOf(text))) return ::timegm(&*date) - *offset;
  date->tm_isdst = -1;  // as the zone has it on that day
  return std::mktime(&*date);
}

bool isPTPDate(std::string_view text) {
  if (!brokenDown(text)) return false;
  const auto zone = zoneOf(text);
  return zone.empty() || zoneOffset(zone);
}

std::optional<std::string> ptpDateOfTime(std::time_t time) {
  constexpr int kLastYear = 9999;
  std::tm date{};
  if (::localtime_r(&time, &date) == nullptr) return std::nullopt;
  if (date.tm_year < -kFirstYearOfTm || date.tm_year > kLastYear - kFirstYearOfTm) {
    return std::nullopt;
  }
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%S%z", &date);
  return std::string(text.data(), length);
}

std::optional<std::time_t> dateOfObject(const XTExtendedObjectInfo& info) {
  const auto changed = timeOfPTPDate(info.modDataStr());
  return changed ? changed : timeOfPTPDate(info.captureDateStr());
}

}  // namespace tarvo
