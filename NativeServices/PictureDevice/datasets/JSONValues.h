// Values of JSON documents that a user wrote, checked before they become fields of a record.
//
// All raise NSInvalidArgumentException with a reason that begins with `name`, the key that a user
// knows: "objFmtCode must be a whole number from 0 to 65535".
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// A PTP string counts its units, the terminator included, in one byte.
inline constexpr std::size_t kMostStringUnits = 254;
/// For texts that are judged elsewhere.
inline constexpr std::size_t kAnyLength = std::numeric_limits<std::size_t>::max();

/// Raises with "<name> <complaint>".
[[noreturn]] void refuseValue(std::string_view name, std::string_view complaint);

/// A whole number within bounds; fractions are refused even where they are zero.
std::uint64_t unsignedFromJSON(const PropertyDictionary& value, std::uint64_t most,
                               std::string_view name);
std::int64_t signedFromJSON(const PropertyDictionary& value, std::int64_t least, std::int64_t most,
                            std::string_view name);
/// A truth value; 0 and 1 are none.
bool boolFromJSON(const PropertyDictionary& value, std::string_view name);
/// Text of at most `most` UTF-16 units: what a PTP string can hold, where nothing else is said.
std::string textFromJSON(const PropertyDictionary& value, std::string_view name,
                         std::size_t most = kMostStringUnits);
/// Text whose first two lines, as TwoLinesField has them, are no longer than that.
std::string linesFromJSON(const PropertyDictionary& value, std::string_view name,
                          std::size_t most = kMostStringUnits);
/// 32 hexadecimal digits of either case.
XTUInt128 bytesFromJSON(const PropertyDictionary& value, std::string_view name);
/// An array, whose elements are not looked at.
const PropertyDictionary& arrayFromJSON(const PropertyDictionary& value, std::string_view name);

/// A number that T can hold, whole and within the bounds of the type.
template <std::integral T>
T numberFromJSON(const PropertyDictionary& value, std::string_view name) {
  using Limits = std::numeric_limits<T>;
  if constexpr (std::unsigned_integral<T>) {
    return static_cast<T>(unsignedFromJSON(value, Limits::max(), name));
  } else {
    return static_cast<T>(signedFromJSON(value, Limits::min(), Limits::max(), name));
  }
}

/// An array of such numbers; a complaint about an element begins with the name of the array.
template <std::integral T>
std::vector<T> numbersFromJSON(const PropertyDictionary& value, std::string_view name) {
  const PropertyDictionary& array = arrayFromJSON(value, name);
  std::vector<T> numbers;
  numbers.reserve(array.size());
  for (const PropertyDictionary& element : array)
    numbers.push_back(numberFromJSON<T>(element, name));
  return numbers;
}

/// The inverse of bytesFromJSON(): 32 lower-case digits, for 16 zero bytes too.
std::string jsonFromBytes(const XTUInt128& bytes);

}  // namespace tarvo
