#include "platform/imagecapture/ptp/LibusbDeviceOpener.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "Utilities/Format.h"
#include "platform/imagecapture/ptp/InterfaceHolder.h"
#include "platform/imagecapture/ptp/LibusbDevice.h"
#include "platform/imagecapture/ptp/StillImageInterface.h"

namespace tarvo::ptp {
namespace {

struct Failure {
  Status status = status::kOK;
  std::string why;
};

Failure failureOfErrno(int error, const std::string& node) {
  switch (error) {
    // Without the udev rule the node belongs to root alone.
    case EACCES:
    case EPERM:
      return {status::kICAAccessDenied,
              formatted("no permission to use %s: install the udev rules and plug the device in "
                        "again",
                        node.c_str())};
    case ENOENT:
    case ENODEV:
    case ENXIO:
      return {status::kICADeviceGone, formatted("%s is gone", node.c_str())};
    case EBUSY:
      return {status::kICADeviceBusy, formatted("%s is in use", node.c_str())};
    default:
      return {status::kIOError, formatted("cannot open %s: %s", node.c_str(), strerror(error))};
  }
}

Failure failureOfLibusb(int error, const char* doing, const std::string& node) {
  switch (error) {
    case LIBUSB_ERROR_ACCESS:
      return failureOfErrno(EACCES, node);
    case LIBUSB_ERROR_NO_DEVICE:
    case LIBUSB_ERROR_NOT_FOUND:
      return failureOfErrno(ENODEV, node);
    default:
      return {status::kIOError,
              formatted("cannot %s %s: %s", doing, node.c_str(), libusb_error_name(error))};
  }
}

/// One attempt at opening; the steps fill in `handle` and `endpoints`.
class Opening {
 public:
  explicit Opening(const USBInterfaceAddress& address) : address_(address) {}

  Failure run() {
    Failure failure = openNode();
    if (failure.status == status::kOK) failure = wrapNode();
    if (failure.status == status::kOK) failure = findEndpoints();
    if (failure.status == status::kOK) failure = claim();
    return failure;
  }
  std::unique_ptr<USBDevice> result() {
    return std::make_unique<LibusbDevice>(std::move(handle_), endpoints_);
  }

 private:
  Failure openNode() {
    // Opened by ourselves rather than by libusb: the address names the node, and errno says why
    // not.
    handle_.node = FileDescriptor(::open(address_.deviceNode.c_str(), O_RDWR | O_CLOEXEC));
    return handle_.node.isOpen() ? Failure{} : failureOfErrno(errno, address_.deviceNode);
  }

  Failure wrapNode() {
    // Holds for contexts made from now on: ours, which need no list of devices.
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    libusb_context* context = nullptr;
    int error = libusb_init(&context);
    if (error != LIBUSB_SUCCESS) return failureOfLibusb(error, "use libusb for", node());
    // Owned at once, so that the steps below may simply return.
    handle_.context.reset(context);
    libusb_device_handle* device = nullptr;
    error = libusb_wrap_sys_device(context, handle_.node.get(), &device);
    if (error != LIBUSB_SUCCESS) return failureOfLibusb(error, "open", node());
    handle_.device.reset(device);
    return {};
  }

  Failure findEndpoints() {
    libusb_config_descriptor* configuration = nullptr;
    // From what the kernel has read already; a configuration of 0 is a device that nobody
    // configured.
    const int error = libusb_get_active_config_descriptor(libusb_get_device(handle_.device.get()),
                                                          &configuration);
    if (error == LIBUSB_ERROR_NOT_FOUND)
      return {status::kICAProtocolError, formatted("%s is not configured", node().c_str())};
    if (error != LIBUSB_SUCCESS) return failureOfLibusb(error, "read the descriptors of", node());
    std::string why;
    const auto found = stillImageEndpoints(*configuration, address_.interfaceNumber, &why);
    // Nothing of the descriptor is kept; `endpoints_` is a copy of what matters.
    libusb_free_config_descriptor(configuration);
    if (!found)
      return {status::kICAProtocolError, formatted("%s: %s", node().c_str(), why.c_str())};
    endpoints_ = *found;
    return {};
  }

  Failure claim() {
    libusb_device_handle* device = handle_.device.get();
    // Only where a driver has it: libusb would otherwise try to give the interface to one at the
    // end.
    if (libusb_kernel_driver_active(device, address_.interfaceNumber) == 1)
      libusb_set_auto_detach_kernel_driver(device, 1);
    const int error = libusb_claim_interface(device, address_.interfaceNumber);
    if (error == LIBUSB_SUCCESS) return {};
    // Another usbfs claimant, which cannot be detached; the user has to be told who.
    if (error != LIBUSB_ERROR_BUSY) return failureOfLibusb(error, "claim", node());
    const std::string holder = processHolding(handle_.node.get());
    return {status::kICADeviceBusy, formatted("%s is in use by %s", node().c_str(),
                                              holder.empty() ? "another process" : holder.c_str())};
  }

  const std::string& node() const { return address_.deviceNode; }

  const USBInterfaceAddress& address_;
  LibusbHandle handle_;
  StillImageEndpoints endpoints_;
};

}  // namespace

std::unique_ptr<USBDevice> LibusbDeviceOpener::open(const USBInterfaceAddress& address,
                                                    Status* failure, std::string* why) {
  Opening opening(address);
  Failure ended = opening.run();
  if (failure != nullptr) *failure = ended.status;
  if (why != nullptr) *why = std::move(ended.why);
  return ended.status == status::kOK ? opening.result() : nullptr;
}

}  // namespace tarvo::ptp
