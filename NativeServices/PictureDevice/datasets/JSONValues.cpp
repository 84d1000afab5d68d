#include "NativeServices/PictureDevice/datasets/JSONValues.h"

#include <utility>

#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

/// The writer would wrap the count, and what it writes could not be read again.
void refuseLongText(std::string_view text, std::string_view name, std::size_t most) {
  // No text has more units than bytes.
  if (text.size() <= most || utf16FromUTF8(text).size() <= most) return;
  refuseValue(name,
              "is too long: at most " + std::to_string(most) + " UTF-16 units can be written");
}

}  // namespace

void refuseValue(std::string_view name, std::string_view complaint) {
  std::string reason(name);
  reason.append(" ").append(complaint);
  throw Exception(std::string(exception_name::kInvalidArgument), std::move(reason));
}

std::uint64_t unsignedFromJSON(const PropertyDictionary& value, std::uint64_t most,
                               std::string_view name) {
  // A parser makes numbers from 0 on unsigned, a program signed ones.
  const bool isNatural =
      value.is_number_unsigned() || (value.is_number_integer() && value.get<std::int64_t>() >= 0);
  // Wrapping would write another number than the user meant.
  if (!isNatural || value.get<std::uint64_t>() > most)
    refuseValue(name, "must be a whole number from 0 to " + std::to_string(most));
  return value.get<std::uint64_t>();
}

std::int64_t signedFromJSON(const PropertyDictionary& value, std::int64_t least, std::int64_t most,
                            std::string_view name) {
  // Unsigned ones above the largest signed number would turn negative.
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  const bool fits = value.is_number_unsigned() ? value.get<std::uint64_t>() <= kLargest
                                               : value.is_number_integer();
  if (!fits || value.get<std::int64_t>() < least || value.get<std::int64_t>() > most) {
    refuseValue(name, "must be a whole number from " + std::to_string(least) + " to " +
                          std::to_string(most));
  }
  return value.get<std::int64_t>();
}

bool boolFromJSON(const PropertyDictionary& value, std::string_view name) {
  if (!value.is_boolean()) refuseValue(name, "must be true or false");
  return value.get<bool>();
}

std::string textFromJSON(const PropertyDictionary& value, std::string_view name, std::size_t most) {
  if (!value.is_string()) refuseValue(name, "must be a text");
  auto text = value.get<std::string>();
  refuseLongText(text, name, most);
  return text;
}

std::string linesFromJSON(const PropertyDictionary& value, std::string_view name,
                          std::size_t most) {
  auto text = textFromJSON(value, name, kAnyLength);
  for (const std::string_view line : firstTwoLines(text))
    refuseLongText(line, name, most);
  return text;
}

XTUInt128 bytesFromJSON(const PropertyDictionary& value, std::string_view name) {
  XTUInt128 bytes{};
  if (!value.is_string() || !XTHexStringAsUInt128(value.get<std::string>(), &bytes))
    refuseValue(name, "must be a text of 32 hexadecimal digits");
  return bytes;
}

const PropertyDictionary& arrayFromJSON(const PropertyDictionary& value, std::string_view name) {
  if (!value.is_array()) refuseValue(name, "must be an array");
  return value;
}

/// The codec's text for zero bytes is empty, which a document could not tell from a missing value.
std::string jsonFromBytes(const XTUInt128& bytes) {
  std::string digits = XTUInt128AsHexString(bytes);
  if (digits.empty()) digits.assign(2 * bytes.size(), '0');
  return digits;
}

}  // namespace tarvo
