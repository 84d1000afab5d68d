#include "platform/imagecapture/ptp/LibusbConnector.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/foundation/ProcessSearch.h"
#include "platform/imagecapture/ptp/BulkConnection.h"
#include "platform/imagecapture/ptp/LibusbDevice.h"

namespace tarvo::ptp {

LibusbConnector::LibusbConnector(std::unique_ptr<USBDeviceOpener> opener, const Timeouts& timeouts,
                                 LogSink log)
    : opener_(std::move(opener)), timeouts_(timeouts), log_(std::move(log)) {}

std::unique_ptr<PTPConnection> LibusbConnector::connect(const USBInterfaceAddress& address,
                                                        Status* failure, std::string* why) {
  Status status = status::kOK;
  std::string words;
  auto device = opener_->open(address, &status, &words);
  // The opener always gets both, for the log line below.
  if (failure != nullptr) *failure = status;
  if (why != nullptr) *why = words;
  std::string name =
      formatted("%s interface %u", address.deviceNode.c_str(), address.interfaceNumber);
  if (!device) {
    logTo(log_, LogLevel::kDebug, formatted("PTP: no connection: %s", words.c_str()));
    return nullptr;
  }
  logTo(log_, LogLevel::kDebug, formatted("PTP: connected to %s", name.c_str()));
  return std::make_unique<BulkConnection>(std::move(device), timeouts_, log_, std::move(name));
}

namespace {

/// The same file, or the same device under two nodes.
bool isSame(const struct stat& a, const struct stat& b) {
  // A container may have a node of its own for the same device.
  if (a.st_dev == b.st_dev && a.st_ino == b.st_ino) return true;
  return S_ISCHR(a.st_mode) && S_ISCHR(b.st_mode) && a.st_rdev == b.st_rdev;
}

// fstatat() follows the links of /proc/PID/fd, which works for files that have no name any more,
// too.
bool hasOpen(const std::string& process, const struct stat& node) {
  return anyDescriptor(process, [&](int list, const char* name) {
    struct stat file {};
    return ::fstatat(list, name, &file, 0) == 0 && isSame(file, node);
  });
}

}  // namespace

std::string processHolding(int node) {
  constexpr std::size_t kMost = 8;
  struct stat ours {};
  // No holder is named rather than a wrong one.
  if (::fstat(node, &ours) != 0) return {};
  const std::string self = "/proc/" + std::to_string(::getpid());
  std::string holders;
  for (const FoundProcess& holder : processesWhere(kMost, [&](const std::string& process) {
         return process != self && hasOpen(process, ours);
       })) {
    if (!holders.empty()) holders += " or ";
    holders += formatted("process %s (pid %d)", holder.name.c_str(), holder.pid);
  }
  return holders;
}

namespace {

constexpr unsigned kPacketSizeBits = 0x07FF;  // Above them: transactions per microframe.
constexpr std::uint16_t kSmallestBulkPacket = 8;
constexpr std::uint16_t kLargestBulkPacket = 1024;

bool isIn(const libusb_endpoint_descriptor& endpoint) {
  return (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
}

std::uint8_t transferType(const libusb_endpoint_descriptor& endpoint) {
  return endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
}

std::uint16_t packetSize(const libusb_endpoint_descriptor& endpoint) {
  return static_cast<std::uint16_t>(endpoint.wMaxPacketSize & kPacketSizeBits);
}

bool isBulkPacketSize(std::uint16_t size) {
  return size >= kSmallestBulkPacket && size <= kLargestBulkPacket && std::has_single_bit(size);
}

/// Takes each kind's first endpoint.
/// A composite device may list more than one of a kind; the class has one of each, and the others
/// are somebody else's.
void take(StillImageEndpoints& endpoints, const libusb_endpoint_descriptor& endpoint) {
  const bool bulk = transferType(endpoint) == LIBUSB_TRANSFER_TYPE_BULK;
  const bool interrupt = transferType(endpoint) == LIBUSB_TRANSFER_TYPE_INTERRUPT;
  if (bulk && isIn(endpoint) && endpoints.bulkIn == 0) {
    endpoints.bulkIn = endpoint.bEndpointAddress;
    endpoints.bulkInPacketSize = packetSize(endpoint);
  } else if (bulk && !isIn(endpoint) && endpoints.bulkOut == 0) {
    endpoints.bulkOut = endpoint.bEndpointAddress;
    endpoints.bulkOutPacketSize = packetSize(endpoint);
  } else if (interrupt && isIn(endpoint) && endpoints.interruptIn == 0 &&
             packetSize(endpoint) > 0) {
    endpoints.interruptIn = endpoint.bEndpointAddress;
    endpoints.interruptPacketSize = packetSize(endpoint);
  }
}

}  // namespace

std::optional<StillImageEndpoints> stillImageEndpoints(const libusb_interface_descriptor& interface,
                                                       std::string* why) {
  if (interface.bInterfaceClass != kStillImageClass ||
      interface.bInterfaceSubClass != kStillImageSubclass) {
    // The address came from the registry, and the device may have come back as another one.
    *why = formatted("interface %u is of class %u/%u, no still-image interface",
                     interface.bInterfaceNumber, interface.bInterfaceClass,
                     interface.bInterfaceSubClass);
    return std::nullopt;
  }
  StillImageEndpoints endpoints;
  endpoints.interfaceNumber = interface.bInterfaceNumber;
  for (const auto& endpoint : std::span(interface.endpoint, interface.bNumEndpoints))
    take(endpoints, endpoint);
  // A device without an interrupt endpoint has no events; without bulk there is nothing to say.
  if (endpoints.bulkIn == 0 || endpoints.bulkOut == 0) {
    *why = formatted("interface %u lacks a bulk endpoint", interface.bInterfaceNumber);
    return std::nullopt;
  }
  // Sizes of transfers are reckoned in packets: 0 would divide by zero, and odd ones overflow.
  if (!isBulkPacketSize(endpoints.bulkInPacketSize) ||
      !isBulkPacketSize(endpoints.bulkOutPacketSize)) {
    *why = formatted("interface %u has bulk packets of %u and %u bytes", interface.bInterfaceNumber,
                     endpoints.bulkInPacketSize, endpoints.bulkOutPacketSize);
    return std::nullopt;
  }
  return endpoints;
}

std::optional<StillImageEndpoints> stillImageEndpoints(
    const libusb_config_descriptor& configuration, std::uint8_t number, std::string* why) {
  for (const auto& interface : std::span(configuration.interface, configuration.bNumInterfaces)) {
    // The kernel has selected setting 0, and no still-image interface has another.
    if (interface.num_altsetting > 0 && interface.altsetting[0].bInterfaceNumber == number)
      return stillImageEndpoints(interface.altsetting[0], why);
  }
  *why = formatted("the device has no interface %u", number);
  return std::nullopt;
}

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
    // O_RDWR: every ioctl of usbfs that moves something needs it.
    return handle_.node.isOpen() ? Failure{} : failureOfErrno(errno, address_.deviceNode);
  }

  Failure wrapNode() {
    // Holds for contexts made from now on: ours, which need no list of devices.
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    // A context of its own for each connection: nothing that libusb keeps outlives the
    // conversation.
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
    // Configuration 0: there are no interfaces to be claimed until somebody chooses one.
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
    // The claim is the lock: while we have it no other process can speak to the interface.
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
