#include "simulator/testbed/UsbfsNode.h"

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <set>

#include "Utilities/Format.h"

namespace tarvo::simulator {
namespace {

using Data = GObjectPointer<UMockdevIoctlData>;

constexpr std::size_t kSetupSize = 8;
/// URBs larger than this are refused, as the kernel refuses what goes beyond its memory limit.
constexpr int kMaximumUrb = 16 * 1024 * 1024;

/// `size` bytes of the client's memory behind the pointer at `offset` of `parent`; null when the
/// client's pointer is null.
Data resolve(UMockdevIoctlData* parent, std::size_t offset, std::size_t size) {
  GErrorSlot error;
  return Data::adopt(umockdev_ioctl_data_resolve(parent, offset, size, error.address()));
}

std::span<std::byte> bytesOf(const Data& data, std::size_t size) {
  if (!data) return {};
  return {reinterpret_cast<std::byte*>(data->data), size};
}

template <typename T>
T load(const Data& data) {
  T value{};
  if (data) std::memcpy(&value, data->data, sizeof value);
  return value;
}

template <typename T>
void store(const Data& data, const T& value) {
  if (!data) return;
  std::array<guint8, sizeof(T)> bytes{};
  std::memcpy(bytes.data(), &value, sizeof value);
  umockdev_ioctl_data_update(data.get(), 0, bytes.data(), static_cast<gint>(bytes.size()));
}

/// The fixed part of the kernel's usbdevfs_urb, which ends in a flexible array.
struct UrbFields {
  unsigned char type;
  unsigned char endpoint;
  int status;
  unsigned int flags;
  void* buffer;
  int buffer_length;
  int actual_length;
  int start_frame;
  int number_of_packets;
  int error_count;
  unsigned int signr;
  void* usercontext;
};
static_assert(sizeof(UrbFields) == sizeof(usbdevfs_urb));
static_assert(offsetof(UrbFields, buffer) == offsetof(usbdevfs_urb, buffer));
static_assert(offsetof(UrbFields, usercontext) == offsetof(usbdevfs_urb, usercontext));

SetupPacket setupFrom(std::span<const std::byte> bytes) {
  SetupPacket setup;
  setup.requestType = static_cast<std::uint8_t>(bytes[0]);
  setup.request = static_cast<std::uint8_t>(bytes[1]);
  setup.value = static_cast<std::uint16_t>(littleEndian(bytes, 2, 2));
  setup.index = static_cast<std::uint16_t>(littleEndian(bytes, 4, 2));
  setup.length = static_cast<std::uint16_t>(littleEndian(bytes, 6, 2));
  return setup;
}

/// Keeps a node alive for as long as a client may call into it.
struct NodeReference {
  std::shared_ptr<UsbfsNode> node;
};

void dropNode(gpointer reference, GClosure*) {
  delete static_cast<NodeReference*>(reference);
}

}  // namespace

/// One URB in flight. The client's record is kept to write status and length back when it is
/// reaped; an IN buffer is filled here and reaches the client then.
struct UsbfsNode::Urb {
  Data record;
  UrbFields fields{};
  Data out;  ///< the client's buffer where it is sent, or of a control request
  std::unique_ptr<std::byte[]> in;  ///< where the device's bytes are gathered; null: none yet
  std::size_t length = 0;
  bool done = false;

  bool isControl() const { return fields.type == USBDEVFS_URB_TYPE_CONTROL; }
  bool isIn() const { return (fields.endpoint & USB_DIR_IN) != 0 && !isControl(); }
  void finish(int status) {
    fields.status = status;
    done = true;
  }
};

std::string UsbfsAddress::node() const {
  return formatted("/dev/bus/usb/%03u/%03u", bus, device);
}

std::shared_ptr<UsbfsNode> UsbfsNode::create(UsbfsAddress address,
                                             std::shared_ptr<VirtualUSBDevice> device,
                                             std::unique_ptr<NodeGate> gate,
                                             std::function<void()> vanished) {
  std::shared_ptr<UsbfsNode> node(
      new UsbfsNode(address, std::move(device), std::move(gate), std::move(vanished)));
  node->device_->onActivity([weak = std::weak_ptr<UsbfsNode>(node)] {
    const auto self = weak.lock();
    if (!self) return;
    const std::lock_guard guard(self->mutex_);
    self->pump();
  });
  if (node->gate_) node->gate_->setReady(false);
  return node;
}

UsbfsNode::UsbfsNode(UsbfsAddress address, std::shared_ptr<VirtualUSBDevice> device,
                     std::unique_ptr<NodeGate> gate, std::function<void()> vanished)
    : address_(address),
      device_(std::move(device)),
      vanished_(std::move(vanished)),
      gate_(std::move(gate)) {}

GObjectPointer<UMockdevIoctlBase> UsbfsNode::makeHandler() {
  auto handler = GObjectPointer<UMockdevIoctlBase>::adopt(umockdev_ioctl_base_new());
  auto connect = [&](const char* signal, GCallback callback) {
    g_signal_connect_data(handler.get(), signal, callback, new NodeReference{shared_from_this()},
                          dropNode, GConnectFlags(0));
  };
  connect("handle-ioctl", G_CALLBACK(onIoctl));
  connect("handle-read", G_CALLBACK(onRead));
  connect("handle-write", G_CALLBACK(onWrite));
  connect("client-connected", G_CALLBACK(onConnected));
  return handler;
}

// A regular file has the descriptors in it; of a gate nothing may be read or written.
gboolean UsbfsNode::onRead(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  const auto node = static_cast<NodeReference*>(self)->node;
  if (!node->gate_) return FALSE;
  const std::lock_guard guard(node->mutex_);
  const auto result = node->readDescriptors(client, umockdev_ioctl_client_get_arg(client));
  umockdev_ioctl_client_complete(client, result, 0);
  return TRUE;
}

gboolean UsbfsNode::onWrite(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  if (!static_cast<NodeReference*>(self)->node->gate_) return FALSE;
  umockdev_ioctl_client_complete(client, -1, EINVAL);
  return TRUE;
}

/// Seeking is not seen here: a client that has read to the end starts over.
long UsbfsNode::readDescriptors(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  auto bytes = device_->descriptors().node();
  auto& position = clients_[client].descriptorsRead;
  const auto left = std::span(bytes).subspan(std::min(position, bytes.size()));
  const auto count = std::min(left.size(), static_cast<std::size_t>(argument->data_len));
  if (count > 0) {
    umockdev_ioctl_data_update(argument, 0, reinterpret_cast<guint8*>(left.data()),
                               static_cast<gint>(count));
  }
  position = count == 0 ? 0 : position + count;
  return static_cast<long>(count);
}

void UsbfsNode::onConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  const auto& node = static_cast<NodeReference*>(self)->node;
  // A client that died says so only by letting its object go.
  g_object_weak_ref(
      G_OBJECT(client),
      [](gpointer reference, GObject* gone) {
        const std::unique_ptr<NodeReference> kept(static_cast<NodeReference*>(reference));
        kept->node->forget(reinterpret_cast<UMockdevIoctlClient*>(gone));
      },
      new NodeReference{node});
}

void UsbfsNode::forget(const UMockdevIoctlClient* client) {
  const std::lock_guard guard(mutex_);
  clients_.erase(client);
  std::erase_if(claims_, [&](const auto& entry) { return entry.second == client; });
  reaped_.notify_all();
}

gboolean UsbfsNode::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  const auto node = static_cast<NodeReference*>(self)->node;
  long result = -EIO;
  try {
    const std::lock_guard guard(node->mutex_);
    result = node->handle(client, umockdev_ioctl_client_get_request(client),
                          umockdev_ioctl_client_get_arg(client));
    node->pump();
  } catch (const std::exception& error) {
    g_warning("usbfs node %s: %s", node->address_.node().c_str(), error.what());
  }
  // Outside the lock: completing lets the client go on, and it may call again at once.
  umockdev_ioctl_client_complete(client, result < 0 ? -1 : result,
                                 static_cast<gint>(result < 0 ? -result : 0));
  node->checkVanished();
  return TRUE;
}

void UsbfsNode::checkVanished() {
  // Called without the lock, as the owner may unplug, which takes it.
  std::function<void()> tell;
  {
    const std::lock_guard guard(mutex_);
    if (!device_->isGone()) return;
    gone_ = true;
    if (gate_) gate_->setReady(true);
    std::swap(tell, vanished_);
  }
  if (tell) tell();
}

void UsbfsNode::unplug(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  gone_ = true;
  vanished_ = nullptr;
  if (gate_) gate_->setReady(true);
  reaped_.wait_for(lock, patience, [this] {
    return std::all_of(clients_.begin(), clients_.end(),
                       [](const auto& entry) { return entry.second.urbs.empty(); });
  });
}

long UsbfsNode::handle(UMockdevIoctlClient* client, unsigned long request,
                       UMockdevIoctlData* argument) {
  if (gone_) return handleGone(client, request, argument);
  switch (request) {
    case USBDEVFS_CONNECTINFO:
      return connectInfo(argument);
    case USBDEVFS_GET_CAPABILITIES:
      return capabilities(argument);
    case USBDEVFS_GET_SPEED:
      return device_->descriptors().identity().speed == UsbSpeed::kHigh ? USB_SPEED_HIGH
                                                                        : USB_SPEED_FULL;
    case USBDEVFS_CONTROL:
      return controlRequest(argument);
    case USBDEVFS_CLAIMINTERFACE:
      return claim(client, load<unsigned>(resolve(argument, 0, sizeof(unsigned))));
    case USBDEVFS_RELEASEINTERFACE:
      return release(client, load<unsigned>(resolve(argument, 0, sizeof(unsigned))));
    case USBDEVFS_DISCONNECT_CLAIM:
      return claim(client, load<usbdevfs_disconnect_claim>(
                               resolve(argument, 0, sizeof(usbdevfs_disconnect_claim)))
                               .interface);
    case USBDEVFS_GETDRIVER:
    case USBDEVFS_IOCTL:  // detaching or attaching a kernel driver: there is none
      return -ENODATA;
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_SETCONFIGURATION:
      return 0;
    case USBDEVFS_CLEAR_HALT:
      return clearHalt(argument);
    case USBDEVFS_RESET:
      device_->reset();
      return 0;
    case USBDEVFS_SUBMITURB:
      return submit(client, argument);
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY:
      return reap(client, argument);
    case USBDEVFS_DISCARDURB:
      return discard(client, argument);
    default:
      return -ENOTTY;
  }
}

long UsbfsNode::handleGone(UMockdevIoctlClient* client, unsigned long request,
                           UMockdevIoctlData* argument) {
  // Every URB must come back before ENODEV does, else libusb spins for ever on those it has left.
  if (request != USBDEVFS_REAPURB && request != USBDEVFS_REAPURBNDELAY) return -ENODEV;
  for (auto& urb : clients_[client].urbs) {
    if (!urb->done) urb->finish(-ESHUTDOWN);
  }
  const auto result = reap(client, argument);
  return result == -EAGAIN ? -ENODEV : result;
}

long UsbfsNode::connectInfo(UMockdevIoctlData* argument) {
  usbdevfs_connectinfo info{};
  info.devnum = address_.device;
  store(resolve(argument, 0, sizeof info), info);
  return 0;
}

long UsbfsNode::capabilities(UMockdevIoctlData* argument) {
  const std::uint32_t all = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                            USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
  store(resolve(argument, 0, sizeof all), all);
  return 0;
}

long UsbfsNode::controlRequest(UMockdevIoctlData* argument) {
  const auto record = resolve(argument, 0, sizeof(usbdevfs_ctrltransfer));
  const auto fields = load<usbdevfs_ctrltransfer>(record);
  const SetupPacket setup = {fields.bRequestType, fields.bRequest, fields.wValue, fields.wIndex,
                             fields.wLength};
  const auto buffer = resolve(record.get(), offsetof(usbdevfs_ctrltransfer, data), setup.length);
  const auto bytes = bytesOf(buffer, setup.length);
  const auto answer = device_->control(setup, setup.fromDevice() ? std::span<std::byte>() : bytes);
  if (!answer) return -EPIPE;
  if (!setup.fromDevice()) return setup.length;
  const auto count = std::min(answer->size(), bytes.size());
  if (count > 0) {
    umockdev_ioctl_data_update(buffer.get(), 0,
                               reinterpret_cast<guint8*>(const_cast<std::byte*>(answer->data())),
                               static_cast<gint>(count));
  }
  return static_cast<long>(count);
}

long UsbfsNode::claim(UMockdevIoctlClient* client, unsigned interface) {
  if (interface != 0) return -ENOENT;
  const auto [entry, claimed] = claims_.try_emplace(interface, client);
  return claimed || entry->second == client ? 0 : -EBUSY;
}

long UsbfsNode::release(UMockdevIoctlClient* client, unsigned interface) {
  const auto found = claims_.find(interface);
  if (found == claims_.end() || found->second != client) return -EINVAL;
  claims_.erase(found);
  return 0;
}

long UsbfsNode::clearHalt(UMockdevIoctlData* argument) {
  const auto endpoint = load<unsigned>(resolve(argument, 0, sizeof(unsigned)));
  if (device_->descriptors().endpoint(static_cast<std::uint8_t>(endpoint)) == nullptr) {
    return -ENOENT;
  }
  device_->clearHalt(static_cast<std::uint8_t>(endpoint));
  return 0;
}

long UsbfsNode::submit(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  auto urb = std::make_unique<Urb>();
  urb->record = resolve(argument, 0, sizeof(UrbFields));
  if (!urb->record) return -EFAULT;
  urb->fields = load<UrbFields>(urb->record);
  const auto length = urb->fields.buffer_length;
  if (length < 0 || length > kMaximumUrb) return -EINVAL;
  if (!urb->isControl() && device_->descriptors().endpoint(urb->fields.endpoint) == nullptr) {
    return -ENOENT;
  }
  // Without a claim of anybody's the kernel claims for the client, and only logs it.
  if (!urb->isControl()) {
    const auto holder = claims_.find(0);
    if (holder != claims_.end() && holder->second != client) return -EBUSY;
  }
  // What the client sends is read now; where it receives is touched only when there is something.
  if (!urb->isIn()) {
    urb->out =
        resolve(urb->record.get(), offsetof(UrbFields, buffer), static_cast<std::size_t>(length));
  }
  if (urb->isControl()) {
    startControl(*urb);
  } else if (!urb->isIn()) {
    startOut(*urb);
  }
  clients_[client].urbs.push_back(std::move(urb));
  return 0;
}

// usbfs has setup packet and data in one buffer.
void UsbfsNode::startControl(Urb& urb) {
  const auto size = static_cast<std::size_t>(urb.fields.buffer_length);
  if (!urb.out || size < kSetupSize) {
    urb.finish(-EINVAL);
    return;
  }
  const auto bytes = bytesOf(urb.out, size);
  const auto setup = setupFrom(bytes);
  const auto room = std::min<std::size_t>(setup.length, size - kSetupSize);
  const auto sent = setup.fromDevice() ? std::span<std::byte>() : bytes.subspan(kSetupSize, room);
  auto answer = device_->control(setup, sent);
  if (!answer) {
    urb.finish(-EPIPE);
    return;
  }
  urb.length = setup.fromDevice() ? std::min(answer->size(), room) : room;
  if (setup.fromDevice() && urb.length > 0) {
    umockdev_ioctl_data_update(urb.out.get(), kSetupSize, reinterpret_cast<guint8*>(answer->data()),
                               static_cast<gint>(urb.length));
  }
  urb.finish(0);
}

void UsbfsNode::startOut(Urb& urb) {
  const auto size = static_cast<std::size_t>(urb.fields.buffer_length);
  const auto bytes = bytesOf(urb.out, size);
  const auto* endpoint = device_->descriptors().endpoint(urb.fields.endpoint);
  // A short packet ends the transfer; an exact multiple goes on, unless the client asked usbfs for
  // a zero-length packet behind it.
  const bool exact = size > 0 && size % endpoint->packetSize == 0;
  auto result = device_->out(urb.fields.endpoint, bytes, !exact);
  if (exact && (urb.fields.flags & USBDEVFS_URB_ZERO_PACKET) != 0 &&
      result == OutResult::kAccepted) {
    result = device_->out(urb.fields.endpoint, {}, true);
  }
  urb.length = result == OutResult::kAccepted ? size : 0;
  urb.finish(result == OutResult::kAccepted  ? 0
             : result == OutResult::kStalled ? -EPIPE
                                             : -ESHUTDOWN);
}

void UsbfsNode::pump() {
  if (gone_ || !gate_) return;
  bool ready = false;
  for (auto& [handler, client] : clients_) {
    progress(client);
    for (const auto& urb : client.urbs) {
      ready = ready || urb->done;
      if (urb->done || !urb->isIn()) continue;
      if (const auto due = device_->due(urb->fields.endpoint)) wakeAt(*due);
    }
  }
  gate_->setReady(ready);
}

void UsbfsNode::wakeAt(std::chrono::steady_clock::time_point time) {
  if (wakeTime_ && *wakeTime_ <= time) return;
  wakeTime_ = time;
  wake_.notify_all();
  if (waker_.joinable()) return;
  waker_ = std::jthread([this](const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
      if (!wakeTime_) {
        wake_.wait(lock, stop, [this] { return wakeTime_.has_value(); });
      } else if (const auto until = *wakeTime_; std::chrono::steady_clock::now() < until) {
        wake_.wait_until(lock, stop, until, [&] { return wakeTime_ != until; });
      } else {
        wakeTime_.reset();
        pump();
      }
    }
  });
}

void UsbfsNode::progress(Client& client) {
  // Each endpoint serves its URBs in order: one that waits holds back those behind it.
  std::set<unsigned char> waiting;
  for (auto& urb : client.urbs) {
    if (urb->done || !urb->isIn() || waiting.contains(urb->fields.endpoint)) continue;
    progressIn(*urb);
    if (!urb->done) waiting.insert(urb->fields.endpoint);
  }
}

void UsbfsNode::progressIn(Urb& urb) {
  const auto size = static_cast<std::size_t>(urb.fields.buffer_length);
  // Not cleared: only what the device has filled goes to the client.
  if (!urb.in) urb.in = std::make_unique_for_overwrite<std::byte[]>(size);
  const auto result =
      device_->in(urb.fields.endpoint, std::span(urb.in.get(), size).subspan(urb.length));
  urb.length += result.length;
  switch (result.state) {
    case InResult::State::kWaiting:
      break;
    case InResult::State::kShort:
    case InResult::State::kFull:
      urb.finish(0);
      break;
    case InResult::State::kStalled:
      urb.finish(-EPIPE);
      break;
    case InResult::State::kOverflow:
      urb.finish(-EOVERFLOW);
      break;
    case InResult::State::kGone:
      urb.finish(-ESHUTDOWN);
      break;
  }
}

long UsbfsNode::reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  // The device acts when it is asked: nothing runs between two calls of a client.
  auto& urbs = clients_[client].urbs;
  if (!gone_) progress(clients_[client]);
  const auto found =
      std::find_if(urbs.begin(), urbs.end(), [](const auto& urb) { return urb->done; });
  if (found == urbs.end()) return -EAGAIN;
  const auto urb = std::move(*found);
  urbs.erase(found);
  urb->fields.actual_length = static_cast<int>(urb->length);
  store(urb->record, urb->fields);
  if (urb->isIn() && urb->length > 0) {
    const auto buffer = resolve(urb->record.get(), offsetof(UrbFields, buffer), urb->length);
    if (buffer) {
      umockdev_ioctl_data_update(buffer.get(), 0, reinterpret_cast<guint8*>(urb->in.get()),
                                 static_cast<gint>(urb->length));
    }
  }
  const auto pointer = resolve(argument, 0, sizeof(void*));
  if (pointer) umockdev_ioctl_data_set_ptr(pointer.get(), 0, urb->record.get());
  reaped_.notify_all();
  return 0;
}

long UsbfsNode::discard(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  // The argument is the client's address of the URB itself, not of a pointer to it.
  gulong address = 0;
  std::memcpy(&address, argument->data, sizeof address);
  for (auto& urb : clients_[client].urbs) {
    if (urb->done || urb->record->client_addr != address) continue;
    urb->finish(-ENOENT);
    return 0;
  }
  return -EINVAL;
}

}  // namespace tarvo::simulator
