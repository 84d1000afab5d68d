#include "NativeServices/PictureDevice/operations/DataSetSizes.h"

#include <algorithm>
#include <limits>

namespace tarvo {

namespace {

constexpr std::int32_t kUnknownCount = -1;

/// A number that a device claims may be any; what it comes to is judged where memory is made.
template <typename T>
T atMost(std::uint64_t number) {
  return static_cast<T>(std::min<std::uint64_t>(number, std::numeric_limits<T>::max()));
}

}  // namespace

std::uint32_t arrayLength(std::int64_t count) {
  if (count <= kUnknownCount) return 0;
  return atMost<std::uint32_t>(4 * static_cast<std::uint64_t>(count) + 4);
}

std::uint32_t arrayLength(std::int32_t& kept, const std::function<std::int32_t()>& count) {
  if (kept == kUnknownCount) kept = std::max(count(), kUnknownCount);
  return arrayLength(kept);
}

std::int32_t sumOfCounts(std::initializer_list<std::uint16_t> formats,
                         const std::function<std::int32_t(std::uint16_t format)>& count) {
  std::uint64_t sum = 0;
  for (const std::uint16_t format : formats) {
    const std::int32_t number = count(format);
    // A sum of which a part is not known is not known.
    if (number < 0) return kUnknownCount;
    sum += static_cast<std::uint64_t>(number);
  }
  return atMost<std::int32_t>(sum);
}

std::uint32_t roomForDataSet(std::uint64_t arrays, std::uint32_t rest) {
  return atMost<std::uint32_t>(arrays + rest);
}

}  // namespace tarvo
