// What a person reads in place of numbers: sizes, dates, durations, formats, and names of codes.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "Utilities/Printable.h"

namespace tarvo {
class StoreInfo;
}  // namespace tarvo

namespace tarvo::tools {

/// "4.2 MB"; thousands, not 1024s. Below a thousand "27 bytes".
std::string sizeInWords(std::uint64_t bytes);
/// "1 file fetched", "2 files fetched": `things` begins with a noun in the plural, on "s", which
/// one thing does without.
std::string counted(std::uint64_t count, std::string_view things);
/// "1,234,567".
std::string grouped(std::uint64_t count);
/// Of a store; "unknown" where the device says what cannot be: a size of all ones, or more free
/// than there is.
std::string capacityInWords(const StoreInfo& store);
std::string freeSpaceInWords(const StoreInfo& store);
/// What lies in it; empty for "unknown".
std::string usedSpaceInWords(const StoreInfo& store);
/// "20240615T120000.0+0200" (ISO 15740, "DateTime strings") gives "2024-06-15 12:00:00". Text that
/// is no date comes back as it is, printable.
std::string dateInWords(std::string_view ptpDate);
/// How many seconds a PTP date lies ahead of this computer's clock, negative behind it; none for
/// what is no date.
std::optional<std::int64_t> secondsAhead(std::string_view ptpDate);
/// "2024-06-15 12:00:00, 2 min behind this computer".
std::string clockInWords(std::string_view ptpDate);
/// The PTP date that a person means by either form, "2024-06-15 12:00:00" or that of PTP, with or
/// without a zone behind it; none for what is no date of the calendar.
std::optional<std::string> ptpDateFromWords(std::string_view words);
/// By this computer's clock, as strftime(3) has the format.
std::string localDateText(std::time_t date, const char* format);
/// What a device says that cannot tell.
inline constexpr std::uint8_t kUnknownBatteryLevel = 255;
/// "1:02:03", or "02:03" below an hour.
std::string durationInWords(std::uint64_t seconds);

/// Object formats: "JPEG image", "folder"; "format 0xb123" where nobody knows.
std::string formatInWords(std::uint16_t format);
/// Types and access of a store (ISO 15740, "StorageInfo dataset").
std::string storageTypeInWords(std::uint16_t type);
std::string accessInWords(std::uint16_t capability);

/// Names of ISO 15740 and of the maker's extension: "GetObject", "BatteryLevel", "ObjectAdded";
/// "0x1234" where there is none.
std::string operationName(std::uint16_t code);
std::string propertyName(std::uint16_t code);
std::string eventName(std::uint16_t code);
/// What a number means as the value of a property (ISO 15740, "Device property descriptions"):
/// "automatic", "f/2.8"; empty where nobody knows.
std::string settingInWords(std::uint16_t property, std::int64_t value);
/// 0 for a name that no property has. The case of letters does not matter.
std::uint16_t propertyCode(std::string_view name);

/// Columns that printable text takes on a terminal.
std::size_t displayWidth(std::string_view text);
/// `text` with blanks behind it, or before it, up to `width` columns.
std::string padded(const std::string& text, std::size_t width, bool alignRight = false);

}  // namespace tarvo::tools
