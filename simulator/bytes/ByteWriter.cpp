#include "simulator/bytes/ByteWriter.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <memory>

namespace tarvo::simulator {
namespace {

/// Units of a PTP string, whose count byte counts the terminator too.
constexpr std::size_t kLongestText = 254;

}  // namespace

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
  units.resize(std::min(units.size(), kLongestText));
  text(units);
}

void ByteWriter::text(const std::u16string& units) {
  if (units.empty()) {
    u8(0);
    return;
  }
  const auto count = std::min(units.size(), kLongestText + 1);
  u8(static_cast<std::uint8_t>(std::min(count + 1, kLongestText + 1)));
  for (std::size_t i = 0; i < count; ++i)
    u16(units[i]);
  if (count <= kLongestText) u16(0);
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

std::u16string utf16(std::string_view utf8) {
  glong count = 0;
  const std::unique_ptr<gunichar2, decltype(&g_free)> units(
      g_utf8_to_utf16(utf8.data(), static_cast<glong>(utf8.size()), nullptr, &count, nullptr),
      &g_free);
  if (!units) return {};
  return {units.get(), units.get() + count};
}

std::string utf8(const std::u16string& units) {
  std::string text;
  const auto append = [&](gunichar point) {
    std::array<char, 6> bytes{};
    const auto count = g_unichar_to_utf8(point, bytes.data());
    text.append(bytes.data(), static_cast<std::size_t>(count));
  };
  for (std::size_t i = 0; i < units.size(); ++i) {
    const gunichar unit = units[i];
    const bool high = unit >= 0xD800 && unit < 0xDC00;
    if (high && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000) {
      append(0x10000 + ((unit - 0xD800) << 10) + (units[++i] - 0xDC00U));
    } else {
      append(unit >= 0xD800 && unit < 0xE000 ? 0xFFFD : unit);
    }
  }
  return text;
}

std::uint64_t littleEndian(std::span<const std::byte> bytes, std::size_t offset, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size && offset + i < bytes.size(); ++i) {
    value |= std::to_integer<std::uint64_t>(bytes[offset + i]) << (8 * i);
  }
  return value;
}

namespace {

constexpr std::size_t kContainerHeader = 12;
constexpr std::size_t kAvoidedMultiple = 64;

}  // namespace

bool isPadding(std::span<const std::byte> rest, std::size_t size) {
  if (rest.empty()) return true;
  return rest.size() == 1 && rest[0] == std::byte{} &&
         (size + kContainerHeader) % kAvoidedMultiple == 0;
}

bool ByteReader::has(std::uint64_t size) {
  if (size <= bytes_.size() - position_) return true;
  failed_ = true;
  position_ = bytes_.size();
  return false;
}

std::uint64_t ByteReader::integer(std::size_t size) {
  if (!has(size)) return 0;
  const auto value = littleEndian(bytes_, position_, size);
  position_ += size;
  return value;
}

std::u16string ByteReader::text() {
  std::u16string units;
  const auto count = static_cast<std::size_t>(integer(1));
  if (count == 0 || !has(2 * count)) return units;
  for (std::size_t i = 0; i < count; ++i)
    units.push_back(static_cast<char16_t>(u16()));
  if (units.back() != 0) failed_ = true;
  units.pop_back();
  return units;
}

Bytes ByteReader::bytes(std::size_t size) {
  if (!has(size)) return {};
  const auto found = bytes_.subspan(position_, size);
  position_ += size;
  return {found.begin(), found.end()};
}

std::vector<std::uint32_t> ByteReader::u32Array() {
  std::vector<std::uint32_t> values;
  const auto count = integer(4);
  if (!has(count * 4)) return values;
  for (std::uint64_t i = 0; i < count; ++i)
    values.push_back(u32());
  return values;
}

void ByteReader::skipArray(std::size_t elementSize) {
  const auto count = integer(4);
  if (has(count * elementSize)) position_ += static_cast<std::size_t>(count * elementSize);
}

}  // namespace tarvo::simulator
