#include "relay/Thumbnails.h"

#include <algorithm>
#include <string>
#include <utility>

#include "relay/ImportModel.h"

namespace tarvo::relay {
namespace {

constexpr std::size_t kSamples = 3;

struct Size {
  std::size_t width;
  std::size_t height;
};

/// The largest of these proportions that is drawn; never larger than the picture is.
Size fitting(Size size) {
  constexpr std::size_t kWidth = Thumbnails::kWidth, kHeight = Thumbnails::kHeight;
  if (size.width <= kWidth && size.height <= kHeight) return size;
  if (size.width * kHeight > size.height * kWidth)
    return {kWidth, std::max<std::size_t>(size.height * kWidth / size.width, 1)};
  return {std::max<std::size_t>(size.width * kHeight / size.height, 1), kHeight};
}

/// One row of the smaller picture: each sample is the mean of those that it stands for.
void shrinkRow(const guchar* from, Size size, Size to, std::size_t y, guchar* out) {
  const std::size_t top = y * size.height / to.height;
  const std::size_t bottom = std::max((y + 1) * size.height / to.height, top + 1);
  for (std::size_t x = 0; x < to.width * kSamples; ++x) {
    const std::size_t sample = x % kSamples;
    const std::size_t left = x / kSamples * size.width / to.width;
    const std::size_t right = std::max((x / kSamples + 1) * size.width / to.width, left + 1);
    std::size_t sum = 0;
    for (std::size_t row = top; row < bottom; ++row)
      for (std::size_t column = left; column < right; ++column)
        sum += from[(row * size.width + column) * kSamples + sample];
    out[x] = static_cast<guchar>(sum / ((bottom - top) * (right - left)));
  }
}

Thumbnail thumbnailOf(guchar* pixels, Size size) {
  const Size to = fitting(size);
  guchar* bytes = pixels;
  if (to.width != size.width || to.height != size.height) {
    bytes = static_cast<guchar*>(g_malloc(to.width * to.height * kSamples));
    for (std::size_t y = 0; y < to.height; ++y)
      shrinkRow(pixels, size, to, y, bytes + y * to.width * kSamples);
    g_free(pixels);
  }
  GBytes* const owner = g_bytes_new_take(bytes, to.width * to.height * kSamples);
  return {static_cast<int>(to.width), static_cast<int>(to.height), GBytesPtr(owner, g_bytes_unref)};
}

}  // namespace

std::optional<Thumbnail> thumbnailFrom(const PropertyDictionary& json) {
  const Size size = {numberIn(json, "width"), numberIn(json, "height")};
  const auto* const text = valueForKey(json, "pixels");
  if (size.width == 0 || size.height == 0 || size.width > Thumbnails::kLargest ||
      size.height > Thumbnails::kLargest || text == nullptr || !text->is_string())
    return std::nullopt;
  const auto& base64 = text->get_ref<const std::string&>();
  const std::size_t bytes = size.width * size.height * kSamples;
  if (base64.size() != (bytes + 2) / 3 * 4) return std::nullopt;
  gsize length = 0;
  guchar* const pixels = g_base64_decode(base64.c_str(), &length);
  if (length == bytes) return thumbnailOf(pixels, size);
  g_free(pixels);
  return std::nullopt;
}

void Thumbnails::clear() {
  *this = {};
}

void Thumbnails::expectNone() {
  underWay_.clear();
  askedUpTo_ = 0;
}

void Thumbnails::wish(std::vector<std::uint64_t> ids) {
  wished_ = std::move(ids);
  askedUpTo_ = 0;
}

std::vector<std::uint64_t> Thumbnails::next() {
  std::vector<std::uint64_t> ids;
  for (; askedUpTo_ < wished_.size() && underWay_.size() < kUnderWay; ++askedUpTo_) {
    const std::uint64_t id = wished_[askedUpTo_];
    if (places_.contains(id) || without_.contains(id) || !underWay_.insert(id).second) continue;
    ids.push_back(id);
  }
  return ids;
}

std::optional<std::uint64_t> Thumbnails::take(const PropertyDictionary& json) {
  const auto* const number = valueForKey(json, "id");
  if (number == nullptr || !number->is_number_unsigned()) return std::nullopt;
  const auto id = number->get<std::uint64_t>();
  if (underWay_.erase(id) == 0) return std::nullopt;
  auto thumbnail = thumbnailFrom(json);
  if (!thumbnail) {
    without_.insert(id);
    return std::nullopt;
  }
  kept_.push_front({id, std::move(*thumbnail)});
  places_[id] = kept_.begin();
  if (kept_.size() > kKept) {
    places_.erase(kept_.back().id);
    kept_.pop_back();
  }
  return id;
}

const Thumbnail* Thumbnails::find(std::uint64_t id) {
  const auto found = places_.find(id);
  if (found == places_.end()) return nullptr;
  kept_.splice(kept_.begin(), kept_, found->second);
  return &found->second->thumbnail;
}

}  // namespace tarvo::relay
