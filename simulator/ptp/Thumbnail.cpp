#include "simulator/ptp/Thumbnail.h"

#include <initializer_list>

namespace tarvo::simulator {
namespace {

/// A marker segment: 0xFF, the marker, the length with itself, the bytes.
void segment(ByteWriter& writer, std::uint8_t marker, std::initializer_list<std::uint8_t> bytes) {
  writer.u8(0xFF);
  writer.u8(marker);
  writer.u8(0);
  writer.u8(static_cast<std::uint8_t>(bytes.size() + 2));
  for (const auto byte : bytes)
    writer.u8(byte);
}

void quantisationTable(ByteWriter& writer) {
  writer.u8(0xFF);
  writer.u8(0xDB);
  writer.u8(0);
  writer.u8(67);
  writer.u8(0);
  for (int i = 0; i < 64; ++i)
    writer.u8(8);
}

/// Bits, the first in the highest place.
class BitWriter {
 public:
  explicit BitWriter(ByteWriter& writer) : writer_(writer) {}
  void put(unsigned bits, unsigned count) {
    for (unsigned i = count; i-- > 0;) {
      byte_ = static_cast<std::uint8_t>((byte_ << 1) | ((bits >> i) & 1));
      if (++filled_ == 8) flush();
    }
  }
  /// What is left of the last byte is filled with ones.
  void end() {
    while (filled_ != 0)
      put(1, 1);
  }

 private:
  void flush() {
    writer_.u8(byte_);
    filled_ = 0;
  }
  ByteWriter& writer_;
  std::uint8_t byte_ = 0;
  unsigned filled_ = 0;
};

}  // namespace

// Two DC codes: "0" is no difference to the block before, "10" a difference of seven bits. One AC
// code: "0" ends the block. So the first block sets the brightness and the others repeat it. No
// byte of it can become 0xFF, which would need stuffing.
Bytes thumbnailJPEG(std::uint32_t handle) {
  constexpr unsigned kBlocks = kThumbnailWidth / 8 * (kThumbnailHeight / 8);
  ByteWriter writer;
  writer.u8(0xFF);
  writer.u8(0xD8);
  segment(writer, 0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
  quantisationTable(writer);
  segment(writer, 0xC0, {8, 0, kThumbnailHeight, 0, kThumbnailWidth, 1, 1, 0x11, 0});
  segment(writer, 0xC4, {0x00, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
  segment(writer, 0xC4, {0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  segment(writer, 0xDA, {1, 1, 0x00, 0, 63, 0});
  BitWriter bits(writer);
  bits.put(0b10, 2);
  bits.put(64 + handle % 64, 7);
  bits.put(0, 1);
  for (unsigned block = 1; block < kBlocks; ++block)
    bits.put(0, 2);
  bits.end();
  writer.u8(0xFF);
  writer.u8(0xD9);
  return writer.take();
}

}  // namespace tarvo::simulator
