// JSON from outside: what a user, another program or a file gives is read here and nowhere else.
//
//   const PropertyDictionary book = jsonFromText(text);
//
// A few bytes of JSON may become a value of many, so a document is counted before it is kept: what
// is refused costs no more than its text, and what is read leaves the process below 64 MB.
#pragma once

#include <cstddef>
#include <string_view>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

inline constexpr std::size_t kMostJSONBytes = 8U << 20;
inline constexpr std::size_t kMostJSONDepth = 16;
inline constexpr std::size_t kMostJSONValues = 500'000;
/// Bytes of memory that the values take, names of members and room for growth among them: 500,000
/// values of arrays, or some 200,000 members of objects.
inline constexpr std::size_t kMostJSONMemory = 32U << 20;

/// Bytes from one value, or name, to the end of the next: a parser has many copies of a text in
/// which it fails.
inline constexpr std::size_t kLongestJSONText = 4U << 20;

/// The value of one document. Raises NSInvalidArgumentException for a text that is none, and for
/// one beyond these limits; the reason, a clause, says which and is short, whatever the text is.
PropertyDictionary jsonFromText(std::string_view text);

}  // namespace tarvo
