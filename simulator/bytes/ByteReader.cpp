#include "simulator/bytes/ByteReader.h"

namespace tarvo::simulator {
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
