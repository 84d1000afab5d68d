#include "NativeServices/PictureDevice/operations/DeviceProperties.h"

#include <glib.h>

#include <algorithm>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"

namespace tarvo {

// A device need not survive a property that it does not list, so none is tried.
bool DeviceProperties::has(std::uint16_t property) const {
  return containsCode(device_.facts().properties, property);
}

std::optional<XTPTPDataSet> DeviceProperties::value(std::uint16_t property) {
  return has(property) ? device_.propertyValueDataSet(property) : std::nullopt;
}

std::uint32_t DeviceProperties::UInt32Property(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanUInt32() : 0;
}

std::uint16_t DeviceProperties::UInt16Property(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanUInt16() : std::uint16_t{0};
}

std::uint8_t DeviceProperties::UInt8Property(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanByte() : std::uint8_t{0};
}

std::optional<std::string> DeviceProperties::GUIDProperty(std::uint16_t property) {
  auto dataSet = value(property);
  return dataSet ? dataSet->scanGUID() : std::nullopt;
}

std::optional<std::string> DeviceProperties::stringProperty(std::uint16_t property) {
  if (!has(property)) return std::nullopt;
  auto description = device_.propertyDataSet(property);
  if (!description) return std::nullopt;
  // DevicePropDesc: code, datatype, get/set, factory default, current value (ISO 15740).
  description->scanUInt16();
  const std::uint16_t datatype = description->scanUInt16();
  // Codes of texts are the highest (ISO 15740, "Datatype codes"): anything below is a number or an
  // array, which would be read as a text of any length.
  if (datatype < kPTPString) {
    raiseAssertion(formatted("stringProperty reading wrong data type:%x", datatype));
  }
  description->scanByte();
  // A text's length byte counts UTF-16 units, the terminator included.
  description->skip(2U * description->scanByte());
  return description->scanString();
}

Status DeviceProperties::set(std::uint16_t property, const XTMutablePTPDataSet& value) {
  return device_.setProperty(property, value.bytes());
}

Status DeviceProperties::setProperty(std::uint16_t property, const std::string& text) {
  if (!has(property)) return status::kPTPDevicePropNotSupported;
  auto value = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  value.storeString(text);
  return set(property, value);
}

Status DeviceProperties::setPropertyGuid(std::uint16_t property, const std::string& guid) {
  if (!has(property)) return status::kPTPDevicePropNotSupported;
  // Sixteen bytes behind their count; an empty text, which clears the property, is the count alone.
  auto value = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  value.storeGUID(guid);
  return set(property, value);
}

namespace {

/// Codes of ISO 639-1, and the names by which devices and menus know the languages.
struct Language {
  std::string_view code;
  std::string_view name;
};

constexpr Language kLanguages[] = {
    {"ar", "Arabic"},   {"bg", "Bulgarian"},  {"cs", "Czech"},   {"da", "Danish"},
    {"de", "German"},   {"el", "Greek"},      {"en", "English"}, {"es", "Spanish"},
    {"et", "Estonian"}, {"fi", "Finnish"},    {"fr", "French"},  {"he", "Hebrew"},
    {"hr", "Croatian"}, {"hu", "Hungarian"},  {"it", "Italian"}, {"ja", "Japanese"},
    {"ko", "Korean"},   {"lt", "Lithuanian"}, {"lv", "Latvian"}, {"nb", "Norwegian"},
    {"nl", "Dutch"},    {"no", "Norwegian"},  {"pl", "Polish"},  {"pt", "Portuguese"},
    {"ro", "Romanian"}, {"ru", "Russian"},    {"sk", "Slovak"},  {"sl", "Slovenian"},
    {"sv", "Swedish"},  {"th", "Thai"},       {"tr", "Turkish"}, {"uk", "Ukrainian"},
    {"zh", "Chinese"},
};

bool equalWithoutCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      a, b, [](char x, char y) { return g_ascii_tolower(x) == g_ascii_tolower(y); });
}

/// A device may say "de", "de_DE.UTF-8" or "German".
const Language* languageOf(std::string_view text) {
  const std::string_view code = text.substr(0, text.find_first_of("_-.@"));
  for (const Language& language : kLanguages) {
    if (equalWithoutCase(code, language.code) || equalWithoutCase(text, language.name)) {
      return &language;
    }
  }
  return nullptr;
}

}  // namespace

std::string hostLocalization() {
  // The list is never empty: it ends with "C".
  // As GLib reads them: LANGUAGE before LC_ALL, LC_MESSAGES and LANG.
  const std::string_view first = *g_get_language_names();
  const std::string_view localization = first.substr(0, first.find_first_of(".@"));
  const bool isNone = localization == "C" || localization == "POSIX";
  return std::string(isNone ? "en" : localization);
}

std::optional<std::string> languageCode(std::string_view language) {
  const Language* known = languageOf(language);
  return known ? std::optional(std::string(known->code)) : std::nullopt;
}

std::string languageNameOfCode(std::string_view code) {
  const Language* known = languageOf(code);
  return std::string(known ? known->name : code);
}

std::string localizationForLanguage(const std::string& host,
                                    const std::optional<std::string>& device) {
  const auto code = device ? languageCode(*device) : std::nullopt;
  // A variant that the host knows ("de_CH") is kept where the device means the same language; a
  // device knows no variants.
  return !code || languageCode(host) == code ? host : *code;
}

}  // namespace tarvo
