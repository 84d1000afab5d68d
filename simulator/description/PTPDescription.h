// The PTP part of a device's JSON description.
#pragma once

#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

/// Reads all but `usb` and `kind`, which must have been read; raises DescriptionError.
void readPTPDescription(const JsonNode& root, DeviceDescription& device);

}  // namespace tarvo::simulator
