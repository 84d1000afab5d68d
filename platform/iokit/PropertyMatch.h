// Whether the properties of a registry entry satisfy a matching dictionary.
#pragma once

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// Key under which a matching dictionary may hold a second dictionary, whose keys count like its
/// own: {"IOPropertyMatch": {"device-type": "DVD"}} equals {"device-type": "DVD"}.
inline constexpr const char* kPropertyMatchKey = "IOPropertyMatch";

/// True when `properties` hold every key of `match` with an equal value. Anything but a dictionary
/// matches nothing. Any thread.
/// Numbers are equal by value, whatever their type; texts byte for byte, with their case; a key
/// with the value null matches no entry, since no property is ever null. The nesting of `match`
/// comes from this program alone, so its depth needs no bound.
inline bool propertiesMatch(const PropertyDictionary& properties, const PropertyDictionary& match) {
  if (!properties.is_object() || !match.is_object()) return false;
  auto key = match.begin();
  for (; key != match.end(); ++key) {
    const auto found = properties.find(key.key());
    const bool fits = key.key() == kPropertyMatchKey
                          ? propertiesMatch(properties, key.value())
                          : found != properties.end() && *found == key.value();
    if (!fits) break;
  }
  return key == match.end();
}

}  // namespace tarvo
