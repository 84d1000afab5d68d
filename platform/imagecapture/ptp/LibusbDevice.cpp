#include "platform/imagecapture/ptp/LibusbDevice.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <future>
#include <span>
#include <thread>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/foundation/ProcessSearch.h"
#include "platform/imagecapture/ptp/BulkConnection.h"
#include "platform/imagecapture/ptp/LibusbInterruptWatch.h"

namespace tarvo::ptp {

namespace {

/// How long the system may take to give cancelled transfers back. A kernel needs no time for it.
/// Long enough for a machine under load: who gives up leaves memory to the kernel for good.
constexpr std::chrono::milliseconds kCancelPatience{500};
/// What a device may take to end a halt, as for any request.
constexpr std::chrono::milliseconds kHaltPatience{500};
/// The feature that CLEAR_FEATURE ends (USB 2.0, table 9-6).
constexpr std::uint16_t kEndpointHalt = 0;
/// A hub resets a port in a tenth of a second, and then the device is set up anew.
constexpr std::chrono::milliseconds kResetPatience{450};

timeval timeUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::max(std::chrono::duration_cast<std::chrono::microseconds>(
                                 deadline - std::chrono::steady_clock::now()),
                             std::chrono::microseconds{0});
  timeval time{};
  time.tv_sec = static_cast<time_t>(left.count() / 1000000);
  time.tv_usec = static_cast<suseconds_t>(left.count() % 1000000);
  return time;
}

unsigned char* asBytes(std::span<std::byte> buffer) {
  return reinterpret_cast<unsigned char*>(buffer.data());
}

}  // namespace

/// A transfer, used again and again.
struct LibusbDevice::Slot {
  enum class State { kFree, kInFlight, kFinished };

  LibusbDevice* owner = nullptr;
  LibusbTransfer transfer;
  std::vector<unsigned char> controlBuffer;  ///< of a control request, setup packet included
  State state = State::kFree;
  std::uint64_t number = 0;  ///< of its start
  std::uint64_t ending = 0;  ///< number of its ending
  TransferCompletion completion;
};

LibusbDevice::LibusbDevice(LibusbHandle handle, const StillImageEndpoints& endpoints)
    : handle_(std::move(handle)), endpoints_(endpoints) {}

// The order matters: nothing in flight, then the interface, then the handle, and only then the
// memory.
LibusbDevice::~LibusbDevice() {
  LibusbDevice::watchInterrupts(nullptr);
  LibusbDevice::cancelAll();
  // Gives a kernel driver that was detached its interface back.
  if (handle_.device) libusb_release_interface(handle_.device.get(), endpoints_.interfaceNumber);
  // With the handle closed nobody reaps an abandoned transfer any more, so it can be freed.
  handle_.device.reset();
  slots_.clear();
  interrupts_.reset();
}

TransferCompletion LibusbDevice::control(const ControlSetup& setup, std::span<std::byte> data,
                                         std::chrono::milliseconds timeout) {
  // Not libusb_control_transfer(): that waits by itself and cannot be given up.
  Slot& slot = freeSlot();
  const bool in = (setup.requestType & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
  auto& buffer = slot.controlBuffer;
  // libusb wants setup packet and data in one piece; it is the slot's own, so that the caller's
  // memory is free whatever becomes of the transfer.
  buffer.assign(LIBUSB_CONTROL_SETUP_SIZE + data.size(), 0);
  libusb_fill_control_setup(buffer.data(), setup.requestType, setup.request, setup.value,
                            setup.index, static_cast<std::uint16_t>(data.size()));
  if (!in && !data.empty())
    std::memcpy(buffer.data() + LIBUSB_CONTROL_SETUP_SIZE, data.data(), data.size());
  slot.completion = {};
  if (slot.transfer)
    libusb_fill_control_transfer(slot.transfer.get(), handle_.device.get(), buffer.data(),
                                 transferEnded, &slot, 0);
  start(slot);

  // The time-out is kept here: one of libusb's own (0 is none) would race with it.
  const bool inTime = endOf(slot, Clock::now() + timeout);
  if (!inTime && !abandoned_) {
    libusb_cancel_transfer(slot.transfer.get());
    abandoned_ = !endOf(slot, Clock::now() + kCancelPatience);
  }
  // Given up: the slot stays in flight, and with it the memory that the kernel may still write to.
  // It is not freed before the handle is closed.
  if (slot.state != Slot::State::kFinished) return {0, TransferResult::kTimedOut, 0};
  slot.state = Slot::State::kFree;
  // It may also have ended well while it was being cancelled, which counts.
  if (!inTime && slot.completion.result == TransferResult::kCancelled)
    slot.completion.result = TransferResult::kTimedOut;
  const std::size_t length = std::min(slot.completion.length, data.size());
  if (in && length > 0) std::memcpy(data.data(), buffer.data() + LIBUSB_CONTROL_SETUP_SIZE, length);
  return slot.completion;
}

void LibusbDevice::submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) {
  Slot& slot = freeSlot();
  slot.completion = {tag, TransferResult::kError, 0};
  // Time-out 0: the pipe decides how long it waits, for it knows of progress.
  if (slot.transfer) {
    libusb_fill_bulk_transfer(slot.transfer.get(), handle_.device.get(), endpoint, asBytes(buffer),
                              static_cast<int>(buffer.size()), transferEnded, &slot, 0);
    // Bulk and interrupt transfers differ in their type alone.
    if (endpoint == endpoints_.interruptIn) slot.transfer->type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
  }
  start(slot);
}

std::optional<TransferCompletion> LibusbDevice::wait(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  Slot* slot = firstFinished();
  // Everything ends inside handleEvents(), on this thread: libusb calls back while it is let to.
  while (slot == nullptr && anyInFlight() && handleEvents(deadline))
    slot = firstFinished();
  // The last round may have brought it just as the time ran out.
  if (slot == nullptr) slot = firstFinished();
  if (slot == nullptr) return std::nullopt;
  slot->state = Slot::State::kFree;
  return slot->completion;
}

void LibusbDevice::cancelAll() {
  // Nothing may be reaped from now on: the lenders of the buffers go on as if they had them back.
  if (!abandoned_ && !cancelSlots()) abandoned_ = true;
}

TransferResult LibusbDevice::clearHalt(std::uint8_t endpoint) {
  // Not libusb_clear_halt(): the system gives a device five seconds for it.
  const TransferResult result =
      control({LIBUSB_RECIPIENT_ENDPOINT, LIBUSB_REQUEST_CLEAR_FEATURE, kEndpointHalt, endpoint},
              {}, kHaltPatience)
          .result;
  if (result != TransferResult::kCompleted) return result;
  // The host counts its packets anew, too (USB 2.0, 9.4.5).
  unsigned int address = endpoint;
  if (::ioctl(handle_.node.get(), USBDEVFS_RESETEP, &address) == 0) return result;
  return errno == ENODEV ? TransferResult::kNoDevice : TransferResult::kError;
}

TransferResult LibusbDevice::resetPort() {
  const InterruptHandler handler = interrupts_ ? interrupts_->handler() : nullptr;
  // Its read would end with an error while the port is reset, and be taken for the end of the
  // device.
  watchInterrupts(nullptr);
  cancelAll();
  if (abandoned_) return TransferResult::kError;
  // Should the thread keep the context, they would end behind it.
  slots_.clear();
  // The thread's, until it has ended; where that takes too long, for good.
  const auto lent = std::make_shared<LibusbHandle>(std::move(handle_));
  std::packaged_task<int()> reset([lent] { return libusb_reset_device(lent->device.get()); });
  auto ended = reset.get_future();
  abandoned_ = true;  // Also where there is no thread to be had.
  // The ioctl waits in the kernel for as long as the hub takes, which may be many seconds with a
  // device that does not come back.
  std::thread(std::move(reset)).detach();
  abandoned_ = ended.wait_for(kResetPatience) != std::future_status::ready;
  if (abandoned_) return TransferResult::kTimedOut;
  handle_ = std::move(*lent);
  const int error = ended.get();
  // It came back as another device, or the interface could not be claimed again.
  // The kernel compares the descriptors before and after.
  if (error == LIBUSB_ERROR_NOT_FOUND) return TransferResult::kNoDevice;
  watchInterrupts(handler);
  return resultOfError(error);
}

void LibusbDevice::watchInterrupts(InterruptHandler handler) {
  if (interrupts_ && !abandoned_) {
    interrupts_->cancel();
    const auto deadline = Clock::now() + kCancelPatience;
    while (interrupts_->isInFlight() && handleEvents(deadline)) {
    }
    abandoned_ = interrupts_->isInFlight();
  }
  // An abandoned one is kept: the kernel may still write to its buffer.
  if (abandoned_) return;
  interrupts_.reset();
  if (!handler || endpoints_.interruptIn == 0) return;
  interrupts_ = std::make_unique<LibusbInterruptWatch>(handle_, endpoints_, std::move(handler));
}

void LIBUSB_CALL LibusbDevice::transferEnded(libusb_transfer* transfer) noexcept {
  auto& slot = *static_cast<Slot*>(transfer->user_data);
  slot.owner->finish(slot, resultOf(transfer->status),
                     static_cast<std::size_t>(std::max(transfer->actual_length, 0)));
}

LibusbDevice::Slot& LibusbDevice::freeSlot() {
  // Used again, since a large object takes thousands of transfers.
  for (auto& slot : slots_)
    if (slot->state == Slot::State::kFree) return *slot;
  slots_.push_back(std::make_unique<Slot>());
  slots_.back()->owner = this;
  // Null when there is no memory; the transfer then fails like any other.
  slots_.back()->transfer.reset(libusb_alloc_transfer(0));
  return *slots_.back();
}

void LibusbDevice::start(Slot& slot) {
  slot.state = Slot::State::kInFlight;
  slot.number = starts_++;
  if (abandoned_ || !slot.transfer) return finish(slot, TransferResult::kError, 0);
  if (isHeldBack(slot)) return finish(slot, TransferResult::kNoMemory, 0);
  const int error = libusb_submit_transfer(slot.transfer.get());
  if (error != LIBUSB_SUCCESS) finish(slot, resultOfError(error), 0);
}

// Nothing may overtake a transfer that the pipe has not heard about yet: bytes would change places.
bool LibusbDevice::isHeldBack(const Slot& slot) const {
  return std::ranges::any_of(slots_, [&](const auto& other) {
    return other->state == Slot::State::kFinished &&
           other->completion.result == TransferResult::kNoMemory &&
           other->transfer->endpoint == slot.transfer->endpoint;
  });
}

void LibusbDevice::finish(Slot& slot, TransferResult result, std::size_t length) {
  slot.state = Slot::State::kFinished;
  slot.ending = endings_++;
  slot.completion.result = result;
  slot.completion.length = length;
}

LibusbDevice::Slot* LibusbDevice::firstFinished() {
  // In the order of ending and not of slots: the pipe tells from it which part of a transfer is
  // whole.
  Slot* first = nullptr;
  for (auto& slot : slots_)
    if (slot->state == Slot::State::kFinished && (first == nullptr || slot->ending < first->ending))
      first = slot.get();
  return first;
}

bool LibusbDevice::anyInFlight() const {
  return std::any_of(slots_.begin(), slots_.end(),
                     [](const auto& slot) { return slot->state == Slot::State::kInFlight; });
}

/// Waits until `slot` has ended; false when it has not by `deadline`.
bool LibusbDevice::endOf(Slot& slot, Clock::time_point deadline) {
  while (slot.state == Slot::State::kInFlight && handleEvents(deadline)) {
  }
  return slot.state != Slot::State::kInFlight;
}

/// Lets libusb finish what has ended, waiting for it until `deadline`. False when there is no more
/// use in it: the deadline has passed, or libusb cannot.
bool LibusbDevice::handleEvents(Clock::time_point deadline) {
  if (abandoned_) return false;
  timeval time = timeUntil(deadline);
  const int error = libusb_handle_events_timeout_completed(handle_.context.get(), &time, nullptr);
  // A signal is no reason to stop waiting.
  if (error != LIBUSB_SUCCESS && error != LIBUSB_ERROR_INTERRUPTED) return false;
  return Clock::now() < deadline;
}

/// False when the system has not let go of a buffer in time.
bool LibusbDevice::cancelSlots() {
  // The newest first: otherwise the kernel would start the next one in the queue when the one
  // before it ends, and the device would send it something.
  std::vector<Slot*> newestFirst;
  for (auto& slot : slots_)
    if (slot->state == Slot::State::kInFlight) newestFirst.push_back(slot.get());
  std::ranges::sort(newestFirst, std::ranges::greater(), &Slot::number);
  for (Slot* slot : newestFirst)
    libusb_cancel_transfer(slot->transfer.get());
  const auto deadline = Clock::now() + kCancelPatience;
  while (anyInFlight() && handleEvents(deadline)) {
  }
  return !anyInFlight();
}

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
  // Number 0 is the control endpoint, whatever the descriptor calls it.
  if ((endpoint.bEndpointAddress & LIBUSB_ENDPOINT_ADDRESS_MASK) == 0) return;
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
