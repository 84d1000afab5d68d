// When a picture was taken, as the clock on its camera's wall would have said: no zone.
//
//   const auto taken = CalendarTime::ofPTPDate("20240615T120000.0+0200");
//   if (taken && isSameTime(*taken, *remembered)) folder = taken->day();  // "2024-06-15"
#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo::importing {

/// Seconds since 1970-01-01 00:00 of that clock. Cameras know no zone, or a wrong one, and file
/// systems of cards have none: times are compared as they were shown. A value; any thread.
class CalendarTime {
 public:
  struct Parts {
    int year = 0;
    int month = 0;  ///< 1 to 12
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
  };

  constexpr explicit CalendarTime(std::int64_t seconds) : seconds_(seconds) {}
  /// None for what no calendar has, and before the year 1900; a leap second is the one before it.
  static std::optional<CalendarTime> of(const Parts& parts);
  /// "20240615T120000" with a fraction and a zone or without (ISO 15740, "DateTime strings"); both
  /// are passed over. None for another text.
  static std::optional<CalendarTime> ofPTPDate(std::string_view text);
  /// "2024:06:15 12:00:00" (EXIF 2.3, "DateTimeOriginal"). None for another text, and the blanks
  /// and zeroes of a clock that was never set.
  static std::optional<CalendarTime> ofEXIFDate(std::string_view text);
  /// By this machine's zone as it was then.
  static std::optional<CalendarTime> ofTime(std::time_t time);

  constexpr std::int64_t seconds() const { return seconds_; }
  Parts parts() const;
  /// "2024-06-15"
  std::string day() const;

  auto operator<=>(const CalendarTime&) const = default;

 private:
  std::int64_t seconds_;
};

/// File systems of cards count in steps of two seconds, and round as they like.
inline constexpr std::int64_t kTimeTolerance = 2;

/// Within the tolerance.
bool isSameTime(CalendarTime one, CalendarTime other);

}  // namespace tarvo::importing
