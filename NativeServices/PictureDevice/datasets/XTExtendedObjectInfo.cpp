#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "Utilities/Format.h"

namespace tarvo {
namespace {

// The maker's formats of favourites, older and newer.
constexpr std::uint16_t kBragbookFormat = 0xB802;
constexpr std::uint16_t kBragbook2Format = 0xB803;

// The reserves of the writer. The larger one is the shorter form's: intended, see docs/oddities.md.
constexpr std::uint32_t kExtendedReserve = 308;
constexpr std::uint32_t kStandardReserve = 508;

// The bounds of capture and modification dates, and what stands in the place of a date beyond them.
// Their form is not the one that PTP gives to dates: intended, see docs/oddities.md.
constexpr unsigned kFirstYear = 1970;
constexpr unsigned kLastYear = 2038;
constexpr const char* kFirstDate = "1970-01-01 00:00:00 +0000";
constexpr const char* kLastDate = "2038-01-01 00:00:00 +0000";

/// The six numbers of a date, no zone among them.
struct DateTime {
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
};

// The C library's readers of dates and numbers ask the locale, and cost more than all the rest of
// an object information; the form is fixed, so it is read here.

/// Takes a number of one to `width` digits, with blanks before it, off the front of `text`.
bool takeNumber(std::string_view& text, std::size_t width, unsigned& number) {
  const std::size_t start = text.find_first_not_of(' ');
  if (start == std::string_view::npos) return false;
  text.remove_prefix(start);
  std::size_t taken = 0;
  for (number = 0; taken < std::min(width, text.size()); ++taken) {
    const char digit = text[taken];
    if (digit < '0' || digit > '9') break;
    number = number * 10 + static_cast<unsigned>(digit - '0');
  }
  text.remove_prefix(taken);
  return taken != 0;
}

/// Whether a calendar has that day and a clock that time. Cameras without a set clock send zeros,
/// which are no date and stay.
bool isValid(const DateTime& date) {
  constexpr std::array<unsigned, 13> kDays = {0, 31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  constexpr unsigned kFebruary = 2;
  const bool isLeapYear = date.year % 4 == 0 && (date.year % 100 != 0 || date.year % 400 == 0);
  if (date.month < 1 || date.month > 12 || date.day < 1 || date.day > kDays[date.month])
    return false;
  if (date.month == kFebruary && date.day == kDays[kFebruary] && !isLeapYear) return false;
  return date.hour < 24 && date.minute < 60 && date.second < 60;
}

/// "YYYYMMDDThhmmss"; a fraction and a zone behind it do not matter.
std::optional<DateTime> dateFromText(std::string_view text) {
  DateTime date;
  if (!takeNumber(text, 4, date.year) || !takeNumber(text, 2, date.month) ||
      !takeNumber(text, 2, date.day) || !text.starts_with('T'))
    return std::nullopt;
  text.remove_prefix(1);
  if (!takeNumber(text, 2, date.hour) || !takeNumber(text, 2, date.minute) ||
      !takeNumber(text, 2, date.second) || !isValid(date))
    return std::nullopt;
  return date;
}

bool isAfterLastDate(const DateTime& date) {
  if (date.year != kLastYear) return date.year > kLastYear;
  // The bound is the very first second of its year.
  return date.month > 1 || date.day > 1 || date.hour + date.minute + date.second > 0;
}

/// Dates are compared as UTC. A text that is no date stays.
void clampDate(std::string& text) {
  const std::optional<DateTime> date = dateFromText(text);
  if (!date) return;
  if (date->year < kFirstYear) {
    text = kFirstDate;
  } else if (isAfterLastDate(*date)) {
    text = kLastDate;
  }
}

}  // namespace

XTExtendedObjectInfo XTExtendedObjectInfo::initExtended() {
  XTExtendedObjectInfo info;
  info.isExtended_ = true;
  return info;
}

XTExtendedObjectInfo XTExtendedObjectInfo::initWithDataSet(XTPTPDataSet& dataSet, bool extended) {
  XTExtendedObjectInfo info;
  info.isExtended_ = extended;
  XTExtendedObjectInfoFields::visitStandard(info, FieldReader(dataSet));
  clampDate(info.captureDateStr_);
  clampDate(info.modDataStr_);
  if (extended) info.readExtension(dataSet);
  return info;
}

void XTExtendedObjectInfo::readExtension(XTPTPDataSet& dataSet) {
  XTExtendedObjectInfoFields::visitFingerprints(*this, FieldReader(dataSet));
  // Pictures have a height; folders and recordings need no fingerprint.
  if (imagePixHeight_ != 0 && quickFingerprint_ == XTUInt128{}) {
    TraceLog::traceMethod("XTExtendedObjectInfo", "initWithDataSet:extended:", this);
    TraceLog::trace("Error in PTP data set - quickFingerprint is 0");
  }
  XTExtendedObjectInfoFields::visitSharing(*this, FieldReader(dataSet));
}

XTMutablePTPDataSet XTExtendedObjectInfo::dataSetWithByteOrder(std::int32_t byteOrder) const {
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(
      byteOrder, isExtended_ ? kExtendedReserve : kStandardReserve);
  // Texts are stored as they are held: a date that was replaced is not turned back.
  visitFields(*this, FieldWriter(dataSet));
  return dataSet;
}

void XTExtendedObjectInfo::setQuickFingerPrintString(std::string_view text) {
  XTHexStringAsUInt128(text, &quickFingerprint_);
}

void XTExtendedObjectInfo::setBBSourceQFPString(std::string_view text) {
  XTHexStringAsUInt128(text, &bbSourceQFP_);
}

// A copy on the device names the picture it was made from; a name alone could be anything.
bool XTExtendedObjectInfo::isDirectFavoriteInfo() const {
  const bool isFavorite = objFmtCode_ == kBragbookFormat || objFmtCode_ == kBragbook2Format;
  return isExtended_ && isFavorite && fileName_.starts_with("FAV") && bbSourceQFP_ != XTUInt128{};
}

std::string XTExtendedObjectInfo::description() const {
  return formatted(
      "XTExtendedObjectInfo file:%s format:%X storageID:%X compressed size:%d width:%d height:%d",
      fileName_.c_str(), objFmtCode_, storageID_, static_cast<int>(compressedSize_),
      static_cast<int>(imagePixWidth_), static_cast<int>(imagePixHeight_));
}

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
  const auto date = dateFromText(text);
  if (!date) return std::nullopt;
  std::tm time{};
  time.tm_year = static_cast<int>(date->year) - kFirstYearOfTm;
  time.tm_mon = static_cast<int>(date->month) - 1;
  time.tm_mday = static_cast<int>(date->day);
  time.tm_hour = static_cast<int>(date->hour);
  time.tm_min = static_cast<int>(date->minute);
  time.tm_sec = static_cast<int>(date->second);
  return time;
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
  constexpr int kLastYearOfPTP = 9999;
  std::tm date{};
  if (::localtime_r(&time, &date) == nullptr) return std::nullopt;
  if (date.tm_year < -kFirstYearOfTm || date.tm_year > kLastYearOfPTP - kFirstYearOfTm) {
    return std::nullopt;
  }
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%S%z", &date);
  return std::string(text.data(), length);
}

std::optional<std::time_t> dateOfObject(const XTExtendedObjectInfo& info) {
  const auto changed = timeOfPTPDate(info.modDataStr());
  // The date of the last change is what the file system of a computer shows, too.
  return changed ? changed : timeOfPTPDate(info.captureDateStr());
}

}  // namespace tarvo
