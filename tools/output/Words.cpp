#include "tools/output/Words.h"

#include <glib.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <span>
#include <utility>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tarvo/Device.h"

namespace tarvo::tools {
namespace {

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

bool isBelievable(const StoreInfo& store) {
  constexpr std::uint64_t kAllOnes = 0xFFFFFFFFFFFFFFFF;
  return store.capacity() != kAllOnes && store.freeBytes() <= store.capacity();
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

std::string grouped(std::uint64_t count) {
  std::string digits = std::to_string(count);
  for (std::size_t at = digits.size(); at > 3; at -= 3)
    digits.insert(at - 3, ",");
  return digits;
}

std::string capacityInWords(const StoreInfo& store) {
  return isBelievable(store) ? sizeInWords(store.capacity()) : "unknown";
}

std::string freeSpaceInWords(const StoreInfo& store) {
  return isBelievable(store) ? sizeInWords(store.freeBytes()) : "unknown";
}

std::string usedSpaceInWords(const StoreInfo& store) {
  return isBelievable(store) ? sizeInWords(store.capacity() - store.freeBytes()) : "";
}

std::string dateInWords(std::string_view ptpDate) {
  if (!beginsWith(ptpDate, kShapeOfPTP)) return printable(ptpDate);
  const auto part = [&](std::size_t at, std::size_t length) {
    return std::string(ptpDate.substr(at, length));
  };
  return part(0, 4) + "-" + part(4, 2) + "-" + part(6, 2) + " " + part(9, 2) + ":" + part(11, 2) +
         ":" + part(13, 2);
}

std::optional<std::int64_t> secondsAhead(std::string_view ptpDate) {
  const auto time = timeOfPTPDate(ptpDate);
  return time ? std::optional(std::int64_t{*time - std::time(nullptr)}) : std::nullopt;
}

std::string clockInWords(std::string_view ptpDate) {
  constexpr std::int64_t kNothing = 2;
  std::string date = dateInWords(ptpDate);
  const auto ahead = secondsAhead(ptpDate);
  if (!ahead) return date;
  const std::int64_t seconds = std::abs(*ahead);
  if (seconds <= kNothing) return date + ", as this computer";
  const char* const side = *ahead < 0 ? " behind" : " ahead of";
  // Each unit until the next one says it better.
  const auto [unit, name] = seconds < 120       ? std::pair(1, "s")
                            : seconds < 7200    ? std::pair(60, "min")
                            : seconds < 172'800 ? std::pair(3600, "h")
                                                : std::pair(86400, "days");
  return date + ", " + std::to_string(seconds / unit) + " " + name + side + " this computer";
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

std::string localDateText(std::time_t date, const char* format) {
  std::tm local = {};
  std::array<char, 64> text = {};
  if (::localtime_r(&date, &local) == nullptr) return {};
  return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
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

namespace {

struct CodeName {
  std::uint16_t code;
  const char* name;
};

constexpr auto kOperations = std::to_array<CodeName>({
    {ptp::kGetDeviceInfo, "GetDeviceInfo"},
    {ptp::kOpenSession, "OpenSession"},
    {ptp::kCloseSession, "CloseSession"},
    {ptp::kGetStorageIDs, "GetStorageIDs"},
    {ptp::kGetStorageInfo, "GetStorageInfo"},
    {ptp::kGetNumObjects, "GetNumObjects"},
    {ptp::kGetObjectHandles, "GetObjectHandles"},
    {ptp::kGetObjectInfo, "GetObjectInfo"},
    {ptp::kGetObject, "GetObject"},
    {ptp::kGetThumb, "GetThumb"},
    {ptp::kDeleteObject, "DeleteObject"},
    {ptp::kSendObjectInfo, "SendObjectInfo"},
    {ptp::kSendObject, "SendObject"},
    {ptp::kInitiateCapture, "InitiateCapture"},
    {ptp::kFormatStore, "FormatStore"},
    {ptp::kResetDevice, "ResetDevice"},
    {ptp::kSelfTest, "SelfTest"},
    {ptp::kSetObjectProtection, "SetObjectProtection"},
    {ptp::kPowerDown, "PowerDown"},
    {ptp::kGetDevicePropDesc, "GetDevicePropDesc"},
    {ptp::kGetDevicePropValue, "GetDevicePropValue"},
    {ptp::kSetDevicePropValue, "SetDevicePropValue"},
    {ptp::kResetDevicePropValue, "ResetDevicePropValue"},
    {ptp::kTerminateOpenCapture, "TerminateOpenCapture"},
    {ptp::kMoveObject, "MoveObject"},
    {ptp::kCopyObject, "CopyObject"},
    {ptp::kGetPartialObject, "GetPartialObject"},
    {ptp::kInitiateOpenCapture, "InitiateOpenCapture"},
    {0x9001, "XTO_SEND_VENDOR_OBJECT_INFO"},
    {0x9002, "XTO_SEND_VENDOR_OBJECT"},
    {0x9005, "XTO_SEND_OBJECT_INFO"},
    {0x9006, "XTO_SEND_OBJECT"},
    {ptp::XTO_GET_ADDRESS_BOOK_INFO, "XTO_GET_ADDRESS_BOOK_INFO"},
    {ptp::XTO_DISPLAY_REQUEST, "XTO_DISPLAY_REQUEST"},
    {ptp::XT_GET_DISPLAY_REQUEST_VERSION, "XT_GET_DISPLAY_REQUEST_VERSION"},
    {ptp::XTO_GET_LCB_INFO, "XTO_GET_LCB_INFO"},
    {ptp::XTO_GET_BRAGBOOK_VERSION, "XTO_GET_BRAGBOOK_VERSION"},
    {ptp::XTO_SEND_OBJECT_PART, "XTO_SEND_OBJECT_PART"},
    {ptp::XTO_GET_DB_ROWS, "XTO_GET_DB_ROWS"},
    {0x9202, "XTO_SEND_EXT_OBJECT_INFO"},
    {ptp::XTO_GET_PICTURE_FILE_SIZES, "XTO_GET_PICTURE_FILE_SIZES"},
    {ptp::XTO_GET_DATASET, "XTO_GET_DATASET"},
    {ptp::XTO_CREATE_DATASET, "XTO_CREATE_DATASET"},
    {ptp::XTO_UPDATE_EXT_OBJECT_INFO, "XTO_UPDATE_EXT_OBJECT_INFO"},
    {ptp::XTO_UPDATE_DATASET, "XTO_UPDATE_DATASET"},
    {ptp::XTO_MODIFY_ASSET_LIST, "XTO_MODIFY_ASSET_LIST"},
    {0x9209, "XTO_DELETE_VENDOR_OBJECT"},
    {ptp::XTO_GET_SUPPORTED_DATASETS, "XTO_GET_SUPPORTED_DATASETS"},
});

constexpr auto kProperties = std::to_array<CodeName>({
    {0x5001, "BatteryLevel"},
    {0x5002, "FunctionalMode"},
    {0x5003, "ImageSize"},
    {0x5004, "CompressionSetting"},
    {0x5005, "WhiteBalance"},
    {0x5006, "RGBGain"},
    {0x5007, "FNumber"},
    {0x5008, "FocalLength"},
    {0x5009, "FocusDistance"},
    {0x500A, "FocusMode"},
    {0x500B, "ExposureMeteringMode"},
    {0x500C, "FlashMode"},
    {0x500D, "ExposureTime"},
    {0x500E, "ExposureProgramMode"},
    {0x500F, "ExposureIndex"},
    {0x5010, "ExposureBiasCompensation"},
    {0x5011, "DateTime"},
    {0x5012, "CaptureDelay"},
    {0x5013, "StillCaptureMode"},
    {0x5014, "Contrast"},
    {0x5015, "Sharpness"},
    {0x5016, "DigitalZoom"},
    {0x5017, "EffectMode"},
    {0x5018, "BurstNumber"},
    {0x5019, "BurstInterval"},
    {0x501A, "TimelapseNumber"},
    {0x501B, "TimelapseInterval"},
    {0x501C, "FocusMeteringMode"},
    {0x501D, "UploadURL"},
    {0x501E, "Artist"},
    {0x501F, "CopyrightInfo"},
    {ptp::kCaptureCapability, "CaptureCapability"},
    {ptp::kDeviceGUID, "DeviceGUID"},
    {0xD202, "DeviceUserName"},
    {0xD203, "DefaultHostID"},
    {0xD204, "DefaultCollectionID"},
    {ptp::kIntention, "Intention"},
});

constexpr auto kEvents = std::to_array<CodeName>({
    {0x4001, "CancelTransaction"},
    {ptp::kObjectAdded, "ObjectAdded"},
    {ptp::kObjectRemoved, "ObjectRemoved"},
    {ptp::kStoreAdded, "StoreAdded"},
    {ptp::kStoreRemoved, "StoreRemoved"},
    {ptp::kDevicePropChanged, "DevicePropChanged"},
    {ptp::kObjectInfoChanged, "ObjectInfoChanged"},
    {0x4008, "DeviceInfoChanged"},
    {0x4009, "RequestObjectTransfer"},
    {0x400A, "StoreFull"},
    {ptp::kDeviceReset, "DeviceReset"},
    {ptp::kStorageInfoChanged, "StorageInfoChanged"},
    {0x400D, "CaptureComplete"},
    {ptp::kUnreportedStatus, "UnreportedStatus"},
});

constexpr auto kFormats = std::to_array<CodeName>({
    {0x3000, "file"},
    {0x3001, "folder"},
    {0x3002, "script"},
    {0x3003, "program"},
    {0x3004, "text"},
    {0x3005, "HTML page"},
    {0x3006, "print order file"},
    {0x3007, "AIFF sound"},
    {0x3008, "WAV sound"},
    {0x3009, "MP3 sound"},
    {0x300A, "AVI movie"},
    {0x300B, "MPEG movie"},
    {0x300C, "ASF movie"},
    {0x300D, "QuickTime movie"},
    {0x300E, "XML text"},
    {0x3800, "image"},
    {0x3801, "JPEG image"},
    {0x3802, "TIFF/EP image"},
    {0x3803, "FlashPix image"},
    {0x3804, "BMP image"},
    {0x3805, "CIFF image"},
    {0x3807, "GIF image"},
    {0x3808, "JFIF image"},
    {0x3809, "PhotoCD image"},
    {0x380A, "PICT image"},
    {0x380B, "PNG image"},
    {0x380D, "TIFF image"},
    {0x380E, "TIFF/IT image"},
    {0x380F, "JPEG 2000 image"},
    {0x3810, "JPEG 2000 (JPX) image"},
    {0xB001, "firmware"},
    {ptp::XTD_ADDRESS_BOOK_FILE, "address book"},
    {ptp::XTD_ALBUM_NAMES_FILE, "album names"},
    {ptp::XTD_HOST_OBJECT_WRAPPER, "host object wrapper"},
    {ptp::XTD_QUERY, "query"},
    {ptp::XTD_ALBUM, "album"},
    {ptp::XTD_GROUP, "group"},
    {ptp::XTD_CONTACT, "contact"},
    {ptp::XTD_EMAIL_ORDER, "e-mail order"},
    {ptp::XTD_PRINT_ORDER, "print order"},
    {ptp::XTD_TRANSFER_ORDER, "transfer order"},
    {ptp::XTD_SQUIRT_EMAIL_ORDER, "wireless e-mail order"},
    {ptp::XTD_SQUIRT_PRINT_ORDER, "wireless print order"},
    {ptp::XTD_SQUIRT_TRANSFER_ORDER, "wireless transfer order"},
    {ptp::XTD_WIRELESS_CONFIG, "wireless settings"},
    {ptp::XTD_BRAGBOOK, "favourite picture (older form)"},
    {ptp::XTD_BRAGBOOK2, "favourite picture"},
    {ptp::XTD_SHOEBOX_IMAGE, "shoebox picture"},
});

/// Null where the table has no such code.
const char* nameIn(std::span<const CodeName> table, std::uint16_t code) {
  const auto row = std::ranges::find(table, code, &CodeName::code);
  return row == table.end() ? nullptr : row->name;
}

std::string nameOrNumber(std::span<const CodeName> table, std::uint16_t code) {
  const char* name = nameIn(table, code);
  return name ? name : formatted("0x%04x", unsigned{code});
}

}  // namespace

std::string operationName(std::uint16_t code) {
  return nameOrNumber(kOperations, code);
}

std::string propertyName(std::uint16_t code) {
  return nameOrNumber(kProperties, code);
}

std::string eventName(std::uint16_t code) {
  return nameOrNumber(kEvents, code);
}

std::uint16_t propertyCode(std::string_view name) {
  const auto* row = std::ranges::find_if(kProperties, [&](const CodeName& each) {
    return ::strcasecmp(each.name, std::string(name).c_str()) == 0;
  });
  return row == kProperties.end() ? 0 : row->code;
}

namespace {

/// Of a property that counts what it can be.
struct ValueName {
  std::uint16_t property;
  std::uint16_t value;
  const char* name;
};

constexpr auto kValues = std::to_array<ValueName>({
    {0x5002, 0, "standard"},
    {0x5002, 1, "asleep"},
    {0x5005, 1, "manual"},
    {0x5005, 2, "automatic"},
    {0x5005, 3, "automatic at a push"},
    {0x5005, 4, "daylight"},
    {0x5005, 5, "fluorescent light"},
    {0x5005, 6, "tungsten light"},
    {0x5005, 7, "flash"},
    {0x500A, 1, "manual"},
    {0x500A, 2, "automatic"},
    {0x500A, 3, "automatic, close up"},
    {0x500B, 1, "average"},
    {0x500B, 2, "average by the centre"},
    {0x500B, 3, "several spots"},
    {0x500B, 4, "spot in the centre"},
    {0x500C, 1, "automatic"},
    {0x500C, 2, "off"},
    {0x500C, 3, "fill"},
    {0x500C, 4, "automatic, against red eyes"},
    {0x500C, 5, "fill, against red eyes"},
    {0x500C, 6, "external"},
    {0x500E, 1, "manual"},
    {0x500E, 2, "automatic"},
    {0x500E, 3, "aperture priority"},
    {0x500E, 4, "shutter priority"},
    {0x500E, 5, "creative, for depth of field"},
    {0x500E, 6, "action, for short exposures"},
    {0x500E, 7, "portrait"},
    {0x5013, 1, "single"},
    {0x5013, 2, "burst"},
    {0x5013, 3, "at intervals"},
    {0x5017, 1, "none"},
    {0x5017, 2, "black and white"},
    {0x5017, 3, "sepia"},
    {0x501C, 1, "spot in the centre"},
    {0x501C, 2, "several spots"},
});

/// Of a property that measures something, in parts of a unit.
std::string measureInWords(std::uint16_t property, std::int64_t value) {
  const auto number = static_cast<double>(value);
  switch (property) {
    case ptp::kBatteryLevel:
      return value >= 0 && value <= 100 ? std::to_string(value) + " %" : "";
    case 0x5007:
      return formatted("f/%.1f", number / 100);
    case 0x5008:
      return formatted("%.1f mm", number / 100);
    case 0x5009:
      return value == 0xFFFF ? "infinity" : formatted("%.2f m", number / 1000);
    case 0x500D:
      return value > 0 && value < 10000 ? formatted("1/%.0f s", 10000 / number)
                                        : formatted("%.1f s", number / 10000);
    case 0x500F:
      return value == 0xFFFF ? "automatic" : formatted("ISO %.0f", number);
    case 0x5010:
      return formatted("%+.1f EV", number / 1000);
    case 0x5012:
    case 0x5019:
    case 0x501B:
      return formatted("%.1f s", number / 1000);
    case 0x5016:
      return formatted("%.1fx", number / 10);
    default:
      return {};
  }
}

}  // namespace

std::string settingInWords(std::uint16_t property, std::int64_t value) {
  const auto row = std::ranges::find_if(kValues, [&](const ValueName& each) {
    return each.property == property && each.value == value;
  });
  return row == kValues.end() ? measureInWords(property, value) : row->name;
}

std::string formatInWords(std::uint16_t format) {
  const char* name = nameIn(kFormats, format);
  return name ? name : formatted("format 0x%04x", unsigned{format});
}

std::string storageTypeInWords(std::uint16_t type) {
  constexpr std::array kTypes = {"unknown memory", "fixed ROM", "removable ROM", "fixed memory",
                                 "removable memory"};
  return type < kTypes.size() ? kTypes[type] : formatted("type 0x%04x", unsigned{type});
}

std::string accessInWords(std::uint16_t capability) {
  constexpr std::array kAccess = {"read and write", "read only", "read and delete"};
  return capability < kAccess.size() ? kAccess[capability]
                                     : formatted("access 0x%04x", unsigned{capability});
}

}  // namespace tarvo::tools
