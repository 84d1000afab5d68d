#include "simulator/ptp/PropertyCodec.h"

#include <string>

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kText = 0xFFFF;
constexpr std::uint16_t kArray = 0x4000;

/// Bytes of one number: INT8 and UINT8 are codes 1 and 2, each further pair doubles the size.
std::size_t sizeOf(std::uint16_t scalar) {
  return std::size_t{1} << ((scalar - 1) / 2);
}

/// The two's complement of a negative number, of which the writer takes the low bytes.
std::uint64_t integer(const nlohmann::json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (value.is_number_integer()) return static_cast<std::uint64_t>(value.get<std::int64_t>());
  return 0;
}

nlohmann::json number(std::span<const std::byte> bytes, std::size_t offset, std::uint16_t scalar) {
  const auto size = sizeOf(scalar);
  const auto value = littleEndian(bytes, offset, size);
  // Even codes are unsigned. The shift carries the sign bit to the top and back.
  if (scalar % 2 == 0) return value;
  const unsigned shift = 64 - 8 * static_cast<unsigned>(size);
  return static_cast<std::int64_t>(value << shift) >> shift;
}

/// Whether exactly `size` bytes are there, or one more, which is padding: a host keeps its data
/// containers off multiples of 64 bytes with it.
bool holds(std::span<const std::byte> bytes, std::uint64_t size) {
  return bytes.size() == size || bytes.size() == size + 1;
}

nlohmann::json readText(std::span<const std::byte> bytes) {
  if (bytes.empty()) return nullptr;
  const auto count = std::to_integer<std::size_t>(bytes[0]);
  if (!holds(bytes, 1 + 2 * count)) return nullptr;
  std::u16string units;
  for (std::size_t i = 0; i + 1 < count; ++i) {
    units.push_back(static_cast<char16_t>(littleEndian(bytes, 1 + 2 * i, 2)));
  }
  return utf8(units);
}

nlohmann::json readArray(std::span<const std::byte> bytes, std::uint16_t scalar) {
  // The count is believed only where that many elements are there.
  const auto count = littleEndian(bytes, 0, 4);
  if (!holds(bytes, 4 + count * sizeOf(scalar))) return nullptr;
  auto list = nlohmann::json::array();
  for (std::uint64_t i = 0; i < count; ++i) {
    list.push_back(number(bytes, 4 + i * sizeOf(scalar), scalar));
  }
  return list;
}

}  // namespace

void writePropertyValue(ByteWriter& writer, std::uint16_t datatype, const nlohmann::json& value) {
  if (datatype == kText) {
    writer.text(value.is_string() ? value.get_ref<const std::string&>() : std::string());
  } else if (datatype >= kArray) {
    writer.u32(static_cast<std::uint32_t>(value.size()));
    for (const auto& item : value)
      writer.integer(integer(item), sizeOf(datatype - kArray));
  } else {
    writer.integer(integer(value), sizeOf(datatype));
  }
}

void writePropertyDescription(ByteWriter& writer, const PropertyDescription& property) {
  writer.u16(property.code);
  writer.u16(property.datatype);
  writer.u8(property.writable ? 1 : 0);
  writePropertyValue(writer, property.datatype, property.defaultValue);
  writePropertyValue(writer, property.datatype, property.value);
  const bool ranged = !property.range.empty();
  writer.u8(ranged ? 1 : property.choices.empty() ? 0 : 2);
  if (!ranged && !property.choices.empty()) {
    writer.u16(static_cast<std::uint16_t>(property.choices.size()));
  }
  for (const auto& value : ranged ? property.range : property.choices) {
    writePropertyValue(writer, property.datatype, value);
  }
}

nlohmann::json readPropertyValue(std::span<const std::byte> bytes, std::uint16_t datatype) {
  if (datatype == kText) return readText(bytes);
  if (datatype >= kArray) return readArray(bytes, datatype - kArray);
  if (!holds(bytes, sizeOf(datatype))) return nullptr;
  return number(bytes, 0, datatype);
}

}  // namespace tarvo::simulator
