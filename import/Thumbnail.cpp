#include "import/Thumbnail.h"

#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <new>

#include "import/CaptureDate.h"

namespace tarvo::importing {
namespace {

constexpr unsigned kMostOfSide = 65'500;
constexpr std::uint64_t kMostMemory = 64ULL << 20;
constexpr std::uint64_t kPixelsOfBlock = 64;
/// A block of pixels takes a bit at the least.
constexpr std::uint64_t kMostPixelsOfByte = kPixelsOfBlock * 8;

struct Frame {
  unsigned width = 0;
  unsigned height = 0;
  unsigned components = 0;
  bool isBuffered = false;         ///< the decoder holds all of it before it gives the first row
  std::uint64_t coefficients = 0;  ///< of it

  bool isReasonable(std::size_t bytes) const {
    return width > 0 && height > 0 && width <= kMostOfSide && height <= kMostOfSide &&
           std::uint64_t{width} * height / kMostPixelsOfByte <= bytes;
  }
};

/// The segments of a JPEG file up to the first scan, as the decoder goes through them.
class SegmentReader {
 public:
  explicit SegmentReader(std::span<const std::byte> bytes) : rest_(bytes) {}

  /// None where the picture does not begin.
  std::optional<Frame> frame() {
    if (take() != 0xFF || take() != 0xD8) return std::nullopt;
    Frame frame;
    while (!rest_.empty()) {
      const unsigned marker = nextMarker();
      if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) continue;  // stand alone
      const unsigned length = take() << 8U | take();
      if (length < 2 || length - 2 > rest_.size()) break;
      const auto segment = rest_.first(length - 2);
      rest_ = rest_.subspan(length - 2);
      if (marker == 0xDA) return ofScan(frame, segment);
      if (isFrame(marker) && !readFrame(frame, segment, marker)) break;
    }
    return std::nullopt;
  }

 private:
  static bool isFrame(unsigned marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
  }

  /// 0 at the end.
  unsigned take() {
    if (rest_.empty()) return 0;
    const auto byte = std::to_integer<unsigned>(rest_.front());
    rest_ = rest_.subspan(1);
    return byte;
  }

  unsigned nextMarker() {
    while (!rest_.empty()) {
      if (take() != 0xFF) continue;
      unsigned marker = take();
      while (marker == 0xFF)
        marker = take();
      if (marker != 0) return marker;
    }
    return 0;
  }

  static bool readFrame(Frame& frame, std::span<const std::byte> segment, unsigned marker) {
    const auto at = [&](std::size_t i) { return std::to_integer<unsigned>(segment[i]); };
    if (segment.size() < 6 || segment.size() < 6 + 3 * std::size_t{at(5)}) return false;
    frame = {.width = at(3) << 8U | at(4),
             .height = at(1) << 8U | at(2),
             .components = at(5),
             .isBuffered = marker > 0xC1};
    unsigned samples = 0;
    unsigned across = 1;
    unsigned down = 1;
    for (std::size_t i = 0; i < frame.components; ++i) {
      const unsigned sampling = at(7 + 3 * i);
      samples += (sampling >> 4U) * (sampling & 15U);
      across = std::max(across, sampling >> 4U);
      down = std::max(down, sampling & 15U);
    }
    // Of whole units, which have so many blocks of 8 pixels a side.
    const auto units = [](unsigned length, unsigned blocks) {
      return (length + 8ULL * blocks - 1) / (8ULL * blocks);
    };
    frame.coefficients =
        units(frame.width, across) * units(frame.height, down) * samples * kPixelsOfBlock;
    return true;
  }

  static std::optional<Frame> ofScan(Frame frame, std::span<const std::byte> segment) {
    if (frame.components == 0 || segment.empty()) return std::nullopt;
    if (std::to_integer<unsigned>(segment.front()) < frame.components) frame.isBuffered = true;
    return frame;
  }

  std::span<const std::byte> rest_;
};

struct DecoderCloser {
  void operator()(void* decoder) const { ::tjDestroy(decoder); }
};

/// The smallest size that the decoder makes by itself and that is no smaller than what is wanted.
tjscalingfactor scalingFor(unsigned side) {
  int count = 0;
  const tjscalingfactor* all = ::tjGetScalingFactors(&count);
  tjscalingfactor best{1, 1};
  for (const tjscalingfactor& one : std::span(all, static_cast<std::size_t>(count))) {
    const bool isSmaller = one.num * best.denom < best.num * one.denom;
    if (isSmaller && TJSCALED(side, one) >= kMostOfThumbnail) best = one;
  }
  return best;
}

std::optional<Thumbnail> decoded(std::span<const std::byte> jpeg, const Frame& frame) {
  const tjscalingfactor scaling = scalingFor(std::max(frame.width, frame.height));
  Thumbnail picture{TJSCALED(frame.width, scaling), TJSCALED(frame.height, scaling)};
  const std::uint64_t size = 3ULL * picture.width * picture.height;
  if (size + (frame.isBuffered ? 2 * frame.coefficients : 0) > kMostMemory) return std::nullopt;
  const std::unique_ptr<void, DecoderCloser> decoder(::tjInitDecompress());
  if (!decoder) throw std::bad_alloc();
  const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
  int width = 0;
  int height = 0;
  int sampling = 0;
  int space = 0;
  if (::tjDecompressHeader3(decoder.get(), bytes, jpeg.size(), &width, &height, &sampling,
                            &space) != 0 ||
      static_cast<unsigned>(width) != frame.width || static_cast<unsigned>(height) != frame.height)
    return std::nullopt;
  picture.pixels.resize(size);
  const int status = ::tjDecompress2(decoder.get(), bytes, jpeg.size(),
                                     reinterpret_cast<unsigned char*>(picture.pixels.data()),
                                     static_cast<int>(picture.width), 0,
                                     static_cast<int>(picture.height), TJPF_RGB, TJFLAG_LIMITSCANS);
  if (status != 0 && ::tjGetErrorCode(decoder.get()) != TJERR_WARNING) return std::nullopt;
  return picture;
}

struct Box {
  unsigned left, right, top, bottom;
};

void appendMean(std::vector<std::byte>& pixels, const Thumbnail& picture, const Box& box) {
  std::array<std::uint64_t, 3> sums{};
  for (unsigned y = box.top; y < box.bottom; ++y) {
    for (unsigned x = box.left; x < box.right; ++x) {
      const std::size_t place = 3 * (std::size_t{y} * picture.width + x);
      for (std::size_t i = 0; i < sums.size(); ++i)
        sums[i] += std::to_integer<unsigned>(picture.pixels[place + i]);
    }
  }
  const std::uint64_t count =
      std::max<std::uint64_t>(std::uint64_t{box.right - box.left} * (box.bottom - box.top), 1);
  for (const std::uint64_t sum : sums)
    pixels.push_back(static_cast<std::byte>((sum + count / 2) / count));
}

/// Each pixel the mean of those that it stands for.
Thumbnail reduced(const Thumbnail& picture) {
  const unsigned side = std::max(picture.width, picture.height);
  if (side <= kMostOfThumbnail) return picture;
  const auto fitting = [&](unsigned length) {
    return std::max(1U, length * kMostOfThumbnail / side);
  };
  Thumbnail small{fitting(picture.width), fitting(picture.height)};
  const auto across = [&](unsigned x) { return x * picture.width / small.width; };
  const auto down = [&](unsigned y) { return y * picture.height / small.height; };
  small.pixels.reserve(3UL * small.width * small.height);
  for (unsigned y = 0; y < small.height; ++y)
    for (unsigned x = 0; x < small.width; ++x)
      appendMean(small.pixels, picture, {across(x), across(x + 1), down(y), down(y + 1)});
  return small;
}

/// `orientation` says where the first row and the first column of the picture are to be seen.
Thumbnail turned(const Thumbnail& picture, unsigned orientation) {
  const bool isOnItsSide = orientation >= 5;
  const bool fromRight = orientation == 2 || orientation == 3 || orientation >= 7;
  const bool fromBelow =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  Thumbnail result{isOnItsSide ? picture.height : picture.width,
                   isOnItsSide ? picture.width : picture.height};
  result.pixels.reserve(picture.pixels.size());
  for (unsigned y = 0; y < result.height; ++y) {
    for (unsigned x = 0; x < result.width; ++x) {
      const unsigned column = isOnItsSide ? y : x;
      const unsigned row = isOnItsSide ? x : y;
      const std::size_t place =
          std::size_t{fromBelow ? picture.height - 1 - row : row} * picture.width +
          (fromRight ? picture.width - 1 - column : column);
      const auto pixel = std::span(picture.pixels).subspan(3 * place, 3);
      result.pixels.insert(result.pixels.end(), pixel.begin(), pixel.end());
    }
  }
  return result;
}

}  // namespace

std::optional<Thumbnail> thumbnailOf(std::span<const std::byte> jpeg,
                                     std::optional<unsigned> orientation) {
  const auto frame = SegmentReader(jpeg).frame();
  if (!frame || !frame->isReasonable(jpeg.size())) return std::nullopt;
  const auto picture = decoded(jpeg, *frame);
  if (!picture) return std::nullopt;
  const unsigned turn = orientation ? *orientation : orientationOf(jpeg);
  return turn > 1 && turn <= 8 ? turned(reduced(*picture), turn) : reduced(*picture);
}

}  // namespace tarvo::importing
