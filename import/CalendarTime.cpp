#include "import/CalendarTime.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "Utilities/Format.h"

namespace tarvo::importing {
namespace {

constexpr int kFirstYear = 1900;
constexpr std::int64_t kSecondsOfDay = 86'400;

/// Digits of `text` where `pattern` has Y, M, D, h, m and s, and every other letter as it stands.
std::optional<CalendarTime> timeByPattern(std::string_view text, std::string_view pattern) {
  if (text.size() < pattern.size()) return std::nullopt;
  CalendarTime::Parts parts;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    int* part = nullptr;
    switch (pattern[i]) {
      case 'Y':
        part = &parts.year;
        break;
      case 'M':
        part = &parts.month;
        break;
      case 'D':
        part = &parts.day;
        break;
      case 'h':
        part = &parts.hour;
        break;
      case 'm':
        part = &parts.minute;
        break;
      case 's':
        part = &parts.second;
        break;
      default:
        break;
    }
    if (part == nullptr ? text[i] != pattern[i] : text[i] < '0' || text[i] > '9')
      return std::nullopt;
    if (part != nullptr) *part = *part * 10 + (text[i] - '0');
  }
  return CalendarTime::of(parts);
}

}  // namespace

std::optional<CalendarTime> CalendarTime::of(const Parts& parts) {
  using namespace std::chrono;
  const year_month_day date(year(parts.year), month(static_cast<unsigned>(parts.month)),
                            std::chrono::day(static_cast<unsigned>(parts.day)));
  const auto isWithin = [](int value, int most) { return value >= 0 && value <= most; };
  if (!date.ok() || parts.year < kFirstYear || !isWithin(parts.hour, 23) ||
      !isWithin(parts.minute, 59) || !isWithin(parts.second, 60))
    return std::nullopt;
  const std::int64_t days = sys_days(date).time_since_epoch().count();
  return CalendarTime(days * kSecondsOfDay + std::int64_t{parts.hour} * 3600 +
                      std::int64_t{parts.minute} * 60 + std::min(parts.second, 59));
}

std::optional<CalendarTime> CalendarTime::ofPTPDate(std::string_view text) {
  return timeByPattern(text, "YYYYMMDDThhmmss");
}

std::optional<CalendarTime> CalendarTime::ofEXIFDate(std::string_view text) {
  return timeByPattern(text, "YYYY:MM:DD hh:mm:ss");
}

std::optional<CalendarTime> CalendarTime::ofTime(std::time_t time) {
  std::tm local{};
  if (::localtime_r(&time, &local) == nullptr) return std::nullopt;
  return of({local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
             local.tm_sec});
}

CalendarTime::Parts CalendarTime::parts() const {
  using namespace std::chrono;
  const auto days = floor<std::chrono::days>(sys_seconds(std::chrono::seconds(seconds_)));
  const year_month_day date(days);
  const hh_mm_ss time(sys_seconds(std::chrono::seconds(seconds_)) - days);
  return {static_cast<int>(date.year()),
          static_cast<int>(static_cast<unsigned>(date.month())),
          static_cast<int>(static_cast<unsigned>(date.day())),
          static_cast<int>(time.hours().count()),
          static_cast<int>(time.minutes().count()),
          static_cast<int>(time.seconds().count())};
}

std::string CalendarTime::day() const {
  const Parts all = parts();
  return formatted("%04d-%02d-%02d", all.year, all.month, all.day);
}

bool isSameTime(CalendarTime one, CalendarTime other) {
  return std::abs(one.seconds() - other.seconds()) <= kTimeTolerance;
}

}  // namespace tarvo::importing
