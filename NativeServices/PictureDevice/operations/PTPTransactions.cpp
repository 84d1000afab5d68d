#include "NativeServices/PictureDevice/operations/PTPTransactions.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"

namespace tarvo {

bool wasShort(const PTPTransactions& device, const XTPTPDataSet& dataSet, std::uint32_t handle) {
  // The room is larger than the data set and cleared, so reading beyond what came raises nothing;
  // only the two positions tell.
  const bool isShort = dataSet.position() > device.lastReceived();
  if (isShort) {
    TraceLog::trace("data set 0x%08X: read up to byte %u, the device sent up to %u", handle,
                    dataSet.position(), device.lastReceived());
  }
  return isShort;
}

Status listObjects(PTPTransactions& device, std::uint16_t format, ObjectHandles& handles,
                   std::uint32_t store) {
  auto listed = device.objectHandlesOnStore(store, format);
  handles = std::move(listed).value_or(ObjectHandles());
  // Empty may be "there are none" as well as "they cannot be counted", and any list cut short.
  const Status outcome = device.lastOutcome();
  // A device that does not know a format has no objects of it.
  if (outcome == status::kOK || outcome == status::kPTPInvalidObjectFormatCode) return status::kOK;
  TraceLog::trace("objects of format %04X cannot be listed: 0x%x", format,
                  static_cast<unsigned>(outcome));
  return outcome;
}

namespace {

constexpr std::int32_t kUnknownCount = -1;

/// A number that a device claims may be any; what it comes to is judged where memory is made.
template <typename T>
T atMost(std::uint64_t number) {
  return static_cast<T>(std::min<std::uint64_t>(number, std::numeric_limits<T>::max()));
}

}  // namespace

std::uint32_t arrayLength(std::int64_t count) {
  // Room of no bytes makes the transaction fail in words, where a guess could cut the answer.
  if (count <= kUnknownCount) return 0;
  // A PTP array is a UINT32 count and four bytes for each handle.
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
