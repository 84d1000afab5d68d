#include "simulator/ByteReader.h"

namespace tarvo::simulator {

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

void ByteReader::skipArray(std::size_t elementSize) {
  const auto count = integer(4);
  if (has(count * elementSize)) position_ += static_cast<std::size_t>(count * elementSize);
}

}  // namespace tarvo::simulator
