#include "platform/imagecapture/ptp/LibusbHandle.h"

namespace tarvo::ptp {

TransferResult resultOf(libusb_transfer_status status) {
  switch (status) {
    case LIBUSB_TRANSFER_COMPLETED:
      return TransferResult::kCompleted;
    case LIBUSB_TRANSFER_STALL:
      return TransferResult::kStalled;
    case LIBUSB_TRANSFER_TIMED_OUT:
      return TransferResult::kTimedOut;
    case LIBUSB_TRANSFER_CANCELLED:
      return TransferResult::kCancelled;
    case LIBUSB_TRANSFER_NO_DEVICE:
      return TransferResult::kNoDevice;
    // A packet that was larger than the room left; the kernel calls it EOVERFLOW (babble).
    case LIBUSB_TRANSFER_OVERFLOW:
      return TransferResult::kOverflow;
    case LIBUSB_TRANSFER_ERROR:
      break;
  }
  return TransferResult::kError;
}

TransferResult resultOfError(int error) {
  switch (error) {
    case LIBUSB_SUCCESS:
      return TransferResult::kCompleted;
    case LIBUSB_ERROR_PIPE:
      return TransferResult::kStalled;
    case LIBUSB_ERROR_TIMEOUT:
      return TransferResult::kTimedOut;
    case LIBUSB_ERROR_NO_DEVICE:
      return TransferResult::kNoDevice;
    case LIBUSB_ERROR_OVERFLOW:
      return TransferResult::kOverflow;
    case LIBUSB_ERROR_NO_MEM:
      return TransferResult::kNoMemory;
    default:
      return TransferResult::kError;
  }
}

}  // namespace tarvo::ptp
