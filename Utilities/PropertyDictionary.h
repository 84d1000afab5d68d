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

/// The text under `key`, when there is one: none where the key is absent, where its value is no
/// text, and where `dictionary` is no object. Never raises.
std::optional<std::string> textForKey(const PropertyDictionary& dictionary, std::string_view key);

/// The number under `key` narrowed to 32 bits (signed), when there is one: 0xFA200000 gives
/// -98566144. Registry ids are unsigned where they are published and signed where they are
/// compared, hence the wrap. A fraction, a truth value and a text are no number. Never raises.
std::optional<std::int32_t> int32ForKey(const PropertyDictionary& dictionary, std::string_view key);

/// The array under `key`, which is part of `dictionary`; null when there is none, as above. Never
/// raises.
const PropertyDictionary* arrayForKey(const PropertyDictionary& dictionary, std::string_view key);

/// "a/b/c.app" gives "c.app"; trailing slashes are ignored; empty text, and slashes alone, give
/// empty text. Looks at the text alone, never at the file system.
std::string lastPathComponent(std::string_view path);

}  // namespace tarvo
