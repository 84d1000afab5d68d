// An ObjectInfo data set that a host sends (ISO 15740, 5.5.2), with the maker's extension behind it
// where there is one.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {

/// What a device takes from it; the rest is the device's own affair.
struct ReceivedObjectInfo {
  std::uint16_t format = 0;
  std::uint16_t protection = 0;
  std::uint32_t size = 0;  ///< bytes
  std::u16string name;
  std::u16string captured;
  std::u16string modified;
  std::u16string keywords;
  Bytes extension;  ///< as it came; empty: the data set ends after the standard's fields

  /// None when the bytes are no such data set. One zero byte may follow it: a host keeps its data
  /// containers off multiples of 64 bytes with it.
  static std::optional<ReceivedObjectInfo> parse(std::span<const std::byte> bytes);
};

}  // namespace tarvo::simulator
