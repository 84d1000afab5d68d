#include "NativeServices/PictureDevice/PTPTransactions.h"

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

}  // namespace tarvo
