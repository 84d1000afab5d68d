// What a device node is on libusb, a context of its own and the handle of the device in it, and
// what libusb's results mean.
#pragma once

#include <libusb.h>

#include <memory>

#include "Utilities/FileDescriptor.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// A context, and the handle of one device in it, over a node that is open. Whatever is null has
/// not been opened yet.
/// libusb wants the device closed before the context, and the node after both; the order of the
/// members sees to that.
struct LibusbHandle {
  struct ExitContext {
    void operator()(libusb_context* opened) const { libusb_exit(opened); }
  };
  struct CloseDevice {
    void operator()(libusb_device_handle* opened) const { libusb_close(opened); }
  };

  FileDescriptor node;  ///< libusb leaves its closing to us
  std::unique_ptr<libusb_context, ExitContext> context;
  std::unique_ptr<libusb_device_handle, CloseDevice> device;
};

struct FreeTransfer {
  void operator()(libusb_transfer* ended) const { libusb_free_transfer(ended); }
};
/// Ends before its context, where libusb looks for its log then.
using LibusbTransfer = std::unique_ptr<libusb_transfer, FreeTransfer>;

// What libusb says about a transfer, in the words of the seam.

/// Of a transfer that has ended.
TransferResult resultOf(libusb_transfer_status status);

/// Of a call that gives 0 or one of libusb's errors.
TransferResult resultOfError(int error);

}  // namespace tarvo::ptp
