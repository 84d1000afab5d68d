// The vendor's clock page, which sets the unit's clock: the parameter header of MODE SELECT(10) as
// 8 zero bytes, page code 0x29, page length 14, and local time as 14 digits, "20261125041500".
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace tarvo {

inline constexpr std::uint8_t kClockPageCode = 0x29;
inline constexpr std::size_t kClockPageSize = 24;

using ClockPage = std::array<std::byte, kClockPageSize>;

/// `date` in the local time zone, formatted as by strftime(3); empty for one that has no calendar
/// date.
std::string localDateText(std::time_t date, const char* format);
/// Fills page code, page length and digits in; the rest stays as it is. A year of other than four
/// digits is cut or leaves zero bytes behind.
void fillClockPage(ClockPage& page, const std::string& digits);

}  // namespace tarvo
