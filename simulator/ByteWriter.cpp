#include "simulator/ByteWriter.h"

#include <glib.h>

#include <algorithm>
#include <memory>

namespace tarvo::simulator {

void ByteWriter::integer(std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    bytes_.push_back(static_cast<std::byte>(value >> (8 * i)));
  }
}

void ByteWriter::raw(std::span<const std::byte> bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void ByteWriter::text(std::string_view utf8) {
  auto units = utf16(utf8);
  units.resize(std::min<std::size_t>(units.size(), 254));
  if (units.empty()) {
    u8(0);
    return;
  }
  u8(static_cast<std::uint8_t>(units.size() + 1));
  for (auto unit : units)
    u16(unit);
  u16(0);
}

void ByteWriter::u16Array(std::span<const std::uint16_t> values) {
  u32(static_cast<std::uint32_t>(values.size()));
  for (auto value : values)
    u16(value);
}

void ByteWriter::u32Array(std::span<const std::uint32_t> values) {
  bytes_.reserve(bytes_.size() + 4 + 4 * values.size());
  u32(static_cast<std::uint32_t>(values.size()));
  for (auto value : values)
    u32(value);
}

std::vector<std::uint16_t> utf16(std::string_view utf8) {
  glong count = 0;
  const std::unique_ptr<gunichar2, decltype(&g_free)> units(
      g_utf8_to_utf16(utf8.data(), static_cast<glong>(utf8.size()), nullptr, &count, nullptr),
      &g_free);
  if (!units) return {};
  return {units.get(), units.get() + count};
}

std::uint64_t littleEndian(std::span<const std::byte> bytes, std::size_t offset, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size && offset + i < bytes.size(); ++i) {
    value |= std::to_integer<std::uint64_t>(bytes[offset + i]) << (8 * i);
  }
  return value;
}

}  // namespace tarvo::simulator
