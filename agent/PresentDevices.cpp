#include "agent/PresentDevices.h"

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "identify/DeviceInfoSupport.h"

namespace tarvo {

// Asked anew each time: what a device is may show later than its arrival (a volume that is
// mounted), and nothing has to be kept in step.
std::vector<AgentStatus::Device> presentDevices() {
  const SupportedModels* models = SupportedModels::current();
  std::vector<AgentStatus::Device> shown;
  for (const auto& device : XTPictureDevice::deviceList()) {
    AgentStatus::Device& row = shown.emplace_back();
    row.serialNumber = device->serialNumber();
    // Without the list of models each look at a camera would try, and log, its reading once more.
    if (device->isPTPDevice() && (!models || !models->pidList())) continue;
    DeviceInfoSupport::getInfoForDevice(device, &row.type, &row.location, &row.path);
  }
  return shown;
}

}  // namespace tarvo
