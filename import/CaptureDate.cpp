#include "import/CaptureDate.h"

#include <libexif/exif-data.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>

namespace tarvo::importing {
namespace {

struct BlockCloser {
  void operator()(ExifData* block) const { exif_data_unref(block); }
};
using Block = std::unique_ptr<ExifData, BlockCloser>;

/// What the library takes for the beginning of a block that is in no JPEG file.
constexpr std::string_view kBlockMark("Exif\0\0", 6);

bool startsWith(std::span<const std::byte> bytes, std::string_view mark) {
  return bytes.size() >= mark.size() &&
         std::ranges::equal(bytes.first(mark.size()), mark, {},
                            [](std::byte byte) { return static_cast<char>(byte); });
}

bool isTIFF(std::span<const std::byte> bytes) {
  return startsWith(bytes, std::string_view("II*\0", 4)) ||
         startsWith(bytes, std::string_view("MM\0*", 4));
}

void load(ExifData* block, std::span<const std::byte> bytes) {
  exif_data_load_data(block, reinterpret_cast<const unsigned char*>(bytes.data()),
                      static_cast<unsigned>(bytes.size()));
}

Block blockOf(std::span<const std::byte> beginning) {
  beginning = beginning.first(std::min(beginning.size(), kMostOfHeader));
  Block block(exif_data_new());
  if (!block) throw std::bad_alloc();
  // It would put in what a file ought to have, dates of today among them.
  exif_data_unset_option(block.get(), EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);
  if (isTIFF(beginning)) {
    std::vector<std::byte> marked(kBlockMark.size() + beginning.size());
    std::ranges::transform(kBlockMark, marked.begin(),
                           [](char letter) { return static_cast<std::byte>(letter); });
    std::ranges::copy(beginning, marked.begin() + kBlockMark.size());
    load(block.get(), marked);
  } else if (startsWith(beginning, "\xFF\xD8")) {
    load(block.get(), beginning);
  }
  return block;
}

/// Of a block's part, with that format and at least so many bytes; null where there is none.
const ExifEntry* entryOf(const Block& block, ExifIfd part, ExifTag tag, ExifFormat format,
                         unsigned size) {
  const ExifEntry* entry = exif_content_get_entry(block->ifd[part], tag);
  const bool fits =
      entry != nullptr && entry->format == format && entry->data != nullptr && entry->size >= size;
  return fits ? entry : nullptr;
}

}  // namespace

std::optional<CalendarTime> captureDateOf(std::span<const std::byte> beginning) {
  constexpr unsigned kLengthOfDate = 19;
  const Block block = blockOf(beginning);
  for (const ExifTag tag : {EXIF_TAG_DATE_TIME_ORIGINAL, EXIF_TAG_DATE_TIME_DIGITIZED}) {
    const auto* entry = entryOf(block, EXIF_IFD_EXIF, tag, EXIF_FORMAT_ASCII, kLengthOfDate);
    if (entry == nullptr) continue;
    const std::string_view text(reinterpret_cast<const char*>(entry->data), kLengthOfDate);
    if (const auto date = CalendarTime::ofEXIFDate(text)) return date;
  }
  return std::nullopt;
}

std::vector<std::byte> embeddedThumbnail(std::span<const std::byte> beginning) {
  const Block block = blockOf(beginning);
  if (block->data == nullptr) return {};
  const auto bytes = std::as_bytes(std::span(block->data, block->size));
  return startsWith(bytes, "\xFF\xD8") ? std::vector(bytes.begin(), bytes.end())
                                       : std::vector<std::byte>();
}

unsigned orientationOf(std::span<const std::byte> beginning) {
  const Block block = blockOf(beginning);
  const auto* entry = entryOf(block, EXIF_IFD_0, EXIF_TAG_ORIENTATION, EXIF_FORMAT_SHORT, 2);
  if (entry == nullptr) return 1;
  const unsigned value = exif_get_short(entry->data, exif_data_get_byte_order(block.get()));
  return value >= 1 && value <= 8 ? value : 1;
}

}  // namespace tarvo::importing
