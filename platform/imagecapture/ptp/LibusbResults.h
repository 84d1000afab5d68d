// What libusb says about a transfer, in the words of the seam.
#pragma once

#include <libusb.h>

#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// Of a transfer that has ended.
TransferResult resultOf(libusb_transfer_status status);

/// Of a call that gives 0 or one of libusb's errors.
TransferResult resultOfError(int error);

}  // namespace tarvo::ptp
