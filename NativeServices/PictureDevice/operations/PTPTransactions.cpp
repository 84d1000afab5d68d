#include "NativeServices/PictureDevice/operations/PTPTransactions.h"

#include <utility>

#include "NativeServices/Logging.h"

namespace tarvo {

bool wasShort(const PTPTransactions& device, const XTPTPDataSet& dataSet, std::uint32_t handle) {
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
  if (outcome == status::kOK || outcome == status::kPTPInvalidObjectFormatCode) return status::kOK;
  TraceLog::trace("objects of format %04X cannot be listed: 0x%x", format,
                  static_cast<unsigned>(outcome));
  return outcome;
}

}  // namespace tarvo
