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

using PropertyDictionary = nlohmann::json;

/// The text under `key`, when there is one.
std::optional<std::string> textForKey(const PropertyDictionary& dictionary, std::string_view key);

/// The number under `key` narrowed to 32 bits (signed), when there is one: 0xFA200000 gives
/// -98566144.
std::optional<std::int32_t> int32ForKey(const PropertyDictionary& dictionary, std::string_view key);

/// "a/b/c.app" gives "c.app"; trailing slashes are ignored; empty text gives empty text.
std::string lastPathComponent(std::string_view path);

}  // namespace tarvo
