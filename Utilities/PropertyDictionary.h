// Open-ended dictionaries (Image Capture and registry properties, user information): a JSON object.
//
// The accessors treat a key that is absent and a key of another type alike: no value. A dictionary
// is filled from what devices say, so its readers must not assume.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

/// A value that owns all it holds; copying it copies the tree. Text in it is UTF-8, and dump()
/// raises on text that is not, so what a device says is converted before it is put in.
///
///   PropertyDictionary device = {{"vendorID", 0xF055}, {"serial", "KCXTL00001234"}};
///   const auto serial = textForKey(device, "serial");
using PropertyDictionary = nlohmann::json;

/// The value under `key`; null where there is none, also where `dictionary` is no object. Never
/// raises.
inline const PropertyDictionary* valueForKey(const PropertyDictionary& dictionary,
                                             std::string_view key) {
  // find() on anything but an object is a mistake in the library's eyes; here it is an answer.
  if (!dictionary.is_object()) return nullptr;
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &*found;
}

/// The text under `key`, when there is one: none where the key is absent, where its value is no
/// text, and where `dictionary` is no object. Never raises.
inline std::optional<std::string> textForKey(const PropertyDictionary& dictionary,
                                             std::string_view key) {
  const PropertyDictionary* value = valueForKey(dictionary, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

/// The number under `key` narrowed to 32 bits (signed), when there is one: 0xFA200000 gives
/// -98566144. Registry ids are unsigned where they are published and signed where they are
/// compared, hence the wrap. A fraction, a truth value and a text are no number. Never raises.
inline std::optional<std::int32_t> int32ForKey(const PropertyDictionary& dictionary,
                                               std::string_view key) {
  const PropertyDictionary* value = valueForKey(dictionary, key);
  if (value == nullptr || !value->is_number_integer()) return std::nullopt;
  // By way of unsigned numbers, where narrowing is defined for every value.
  const auto bits = value->is_number_unsigned()
                        ? value->get<std::uint64_t>()
                        : static_cast<std::uint64_t>(value->get<std::int64_t>());
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
}

/// The array under `key`, which is part of `dictionary`; null when there is none, as above. Never
/// raises.
inline const PropertyDictionary* arrayForKey(const PropertyDictionary& dictionary,
                                             std::string_view key) {
  const PropertyDictionary* value = valueForKey(dictionary, key);
  return value != nullptr && value->is_array() ? value : nullptr;
}

/// "a/b/c.app" gives "c.app"; trailing slashes are ignored; empty text, and slashes alone, give
/// empty text. Looks at the text alone, never at the file system.
inline std::string lastPathComponent(std::string_view path) {
  const auto end = path.find_last_not_of('/');
  if (end == std::string_view::npos) return {};
  path = path.substr(0, end + 1);
  const auto slash = path.find_last_of('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace tarvo
