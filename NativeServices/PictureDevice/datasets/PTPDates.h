// Dates as PTP writes them (ISO 15740, "DateTime strings"): "YYYYMMDDThhmmss", with an optional
// fraction ".s" and zone "Z" or "+hhmm" behind it.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"

namespace tarvo {

/// Seconds since 1970; the fraction is dropped. A date without a zone is in local time, as cameras
/// keep theirs. None for a text that is no date, or one that the calendar does not have. Any
/// thread.
std::optional<std::time_t> timeOfPTPDate(std::string_view text);

/// Whether a text is such a date from its first character to its last. Any thread.
bool isPTPDate(std::string_view text);

/// "20070615T120000+0200": in local time, with its zone. None for a year beyond four digits. Any
/// thread.
std::optional<std::string> ptpDateOfTime(std::time_t time);

/// When an object was changed last, or else when it was taken; none where its information tells
/// neither.
std::optional<std::time_t> dateOfObject(const XTExtendedObjectInfo& info);

}  // namespace tarvo
