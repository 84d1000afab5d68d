#include "tools/output/Words.h"

#include <glib.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
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
  const char* at = ptpDate.data();
  return formatted("%.4s-%.2s-%.2s %.2s:%.2s:%.2s", at, at + 4, at + 6, at + 9, at + 11, at + 13);
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
  for (const char* at = valid.data(); at < valid.data() + valid.size();
       at = g_utf8_find_next_char(at, nullptr)) {
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

/// Names of the codes from the first one on, without a gap.
struct CodeNames {
  std::uint16_t first;
  std::initializer_list<const char*> names;

  /// Null for a code that is none of them.
  constexpr const char* nameOf(std::int64_t code) const {
    const bool isOne = code >= first && code - first < std::ssize(names);
    return isOne ? names.begin()[code - first] : nullptr;
  }
};

constexpr CodeNames kOperations[] = {
    {0x1001,
     {"GetDeviceInfo",
      "OpenSession",
      "CloseSession",
      "GetStorageIDs",
      "GetStorageInfo",
      "GetNumObjects",
      "GetObjectHandles",
      "GetObjectInfo",
      "GetObject",
      "GetThumb",
      "DeleteObject",
      "SendObjectInfo",
      "SendObject",
      "InitiateCapture",
      "FormatStore",
      "ResetDevice",
      "SelfTest",
      "SetObjectProtection",
      "PowerDown",
      "GetDevicePropDesc",
      "GetDevicePropValue",
      "SetDevicePropValue",
      "ResetDevicePropValue",
      "TerminateOpenCapture",
      "MoveObject",
      "CopyObject",
      "GetPartialObject",
      "InitiateOpenCapture"}},
    {0x9001, {"XTO_SEND_VENDOR_OBJECT_INFO", "XTO_SEND_VENDOR_OBJECT"}},
    {0x9005,
     {"XTO_SEND_OBJECT_INFO", "XTO_SEND_OBJECT", "XTO_GET_ADDRESS_BOOK_INFO", "XTO_DISPLAY_REQUEST",
      "XT_GET_DISPLAY_REQUEST_VERSION"}},
    {0x900C, {"XTO_GET_LCB_INFO"}},
    {0x9011, {"XTO_GET_BRAGBOOK_VERSION"}},
    {0x9019, {"XTO_SEND_OBJECT_PART", "XTO_GET_DB_ROWS"}},
    {0x9202,
     {"XTO_SEND_EXT_OBJECT_INFO", "XTO_GET_PICTURE_FILE_SIZES", "XTO_GET_DATASET",
      "XTO_CREATE_DATASET", "XTO_UPDATE_EXT_OBJECT_INFO", "XTO_UPDATE_DATASET",
      "XTO_MODIFY_ASSET_LIST", "XTO_DELETE_VENDOR_OBJECT", "XTO_GET_SUPPORTED_DATASETS"}}};

constexpr CodeNames kProperties[] = {
    {0x5001,
     {"BatteryLevel",
      "FunctionalMode",
      "ImageSize",
      "CompressionSetting",
      "WhiteBalance",
      "RGBGain",
      "FNumber",
      "FocalLength",
      "FocusDistance",
      "FocusMode",
      "ExposureMeteringMode",
      "FlashMode",
      "ExposureTime",
      "ExposureProgramMode",
      "ExposureIndex",
      "ExposureBiasCompensation",
      "DateTime",
      "CaptureDelay",
      "StillCaptureMode",
      "Contrast",
      "Sharpness",
      "DigitalZoom",
      "EffectMode",
      "BurstNumber",
      "BurstInterval",
      "TimelapseNumber",
      "TimelapseInterval",
      "FocusMeteringMode",
      "UploadURL",
      "Artist",
      "CopyrightInfo"}},
    {0xD00B, {"CaptureCapability"}},
    {0xD201, {"DeviceGUID", "DeviceUserName", "DefaultHostID", "DefaultCollectionID"}},
    {0xD206, {"Intention"}}};

constexpr CodeNames kEvents[] = {
    {0x4001,
     {"CancelTransaction", "ObjectAdded", "ObjectRemoved", "StoreAdded", "StoreRemoved",
      "DevicePropChanged", "ObjectInfoChanged", "DeviceInfoChanged", "RequestObjectTransfer",
      "StoreFull", "DeviceReset", "StorageInfoChanged", "CaptureComplete", "UnreportedStatus"}}};

constexpr CodeNames kFormats[] = {
    {0x3000,
     {"file", "folder", "script", "program", "text", "HTML page", "print order file", "AIFF sound",
      "WAV sound", "MP3 sound", "AVI movie", "MPEG movie", "ASF movie", "QuickTime movie",
      "XML text"}},
    {0x3800, {"image", "JPEG image", "TIFF/EP image", "FlashPix image", "BMP image", "CIFF image"}},
    {0x3807, {"GIF image", "JFIF image", "PhotoCD image", "PICT image", "PNG image"}},
    {0x380D, {"TIFF image", "TIFF/IT image", "JPEG 2000 image", "JPEG 2000 (JPX) image"}},
    {0xB001, {"firmware"}},
    {0xB003, {"address book"}},
    {0xB005, {"album names"}},
    {0xB008, {"host object wrapper"}},
    {0xB00E, {"query"}},
    {0xB201,
     {"album", "group", "contact", "e-mail order", "print order", "transfer order",
      "wireless e-mail order", "wireless print order", "wireless transfer order",
      "wireless settings"}},
    {0xB802, {"favourite picture (older form)", "favourite picture"}},
    {0xB805, {"shoebox picture"}}};

/// Null where the table has no such code.
const char* nameIn(std::span<const CodeNames> table, std::uint16_t code) {
  for (const auto& row : table)
    if (const char* name = row.nameOf(code)) return name;
  return nullptr;
}

std::string nameOrNumber(std::span<const CodeNames> table, std::uint16_t code) {
  const char* name = nameIn(table, code);
  return name ? name : formatted("0x%04x", unsigned{code});
}

/// Of a property that counts what it can be.
struct SettingNames {
  std::uint16_t property;
  CodeNames values;
};

constexpr SettingNames kSettings[] = {
    {0x5002, {0, {"standard", "asleep"}}},
    {0x5005,
     {1,
      {"manual", "automatic", "automatic at a push", "daylight", "fluorescent light",
       "tungsten light", "flash"}}},
    {0x500A, {1, {"manual", "automatic", "automatic, close up"}}},
    {0x500B, {1, {"average", "average by the centre", "several spots", "spot in the centre"}}},
    {0x500C,
     {1,
      {"automatic", "off", "fill", "automatic, against red eyes", "fill, against red eyes",
       "external"}}},
    {0x500E,
     {1,
      {"manual", "automatic", "aperture priority", "shutter priority",
       "creative, for depth of field", "action, for short exposures", "portrait"}}},
    {0x5013, {1, {"single", "burst", "at intervals"}}},
    {0x5017, {1, {"none", "black and white", "sepia"}}},
    {0x501C, {1, {"spot in the centre", "several spots"}}}};

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
  for (const auto& row : kProperties) {
    const auto* const found = std::ranges::find_if(row.names, [&](const char* each) {
      return ::strcasecmp(each, std::string(name).c_str()) == 0;
    });
    if (found != row.names.end())
      return static_cast<std::uint16_t>(row.first + (found - row.names.begin()));
  }
  return 0;
}

std::string settingInWords(std::uint16_t property, std::int64_t value) {
  const auto* const row = std::ranges::find(kSettings, property, &SettingNames::property);
  const char* const name = row == std::end(kSettings) ? nullptr : row->values.nameOf(value);
  return name ? name : measureInWords(property, value);
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
