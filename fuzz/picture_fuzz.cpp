// Takes from bytes of any kind what an import takes from the files of pictures: the date, and the
// small picture that is in them or can be made of them.

#include <cstddef>
#include <cstdint>
#include <span>

#include "fuzz/Require.h"
#include "import/CaptureDate.h"
#include "import/Thumbnail.h"

namespace {

void requireSound(std::span<const std::byte> jpeg) {
  using namespace tarvo::importing;
  const auto picture = thumbnailOf(jpeg);
  if (!picture) return;
  require(picture->width > 0 && picture->width <= kMostOfThumbnail);
  require(picture->height > 0 && picture->height <= kMostOfThumbnail);
  require(picture->pixels.size() == 3UL * picture->width * picture->height);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarvo::importing;
  const auto bytes = std::as_bytes(std::span(data, size));
  if (const auto taken = captureDateOf(bytes)) require(CalendarTime::of(taken->parts()) == taken);
  const auto embedded = embeddedThumbnail(bytes);
  require(embedded.size() <= size);
  requireSound(embedded);
  requireSound(bytes);
  return 0;
}
