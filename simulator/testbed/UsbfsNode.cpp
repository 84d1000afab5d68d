#include "simulator/testbed/UsbfsNode.h"

#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <mqueue.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <set>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"

namespace tarvo::simulator {
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
    g_signal_connect_data(handler.get(), signal, callback,
                          new NodeReference<UsbfsNode>{shared_from_this()},
                          NodeReference<UsbfsNode>::drop, GConnectFlags(0));
  };
  connect("handle-ioctl", G_CALLBACK(onIoctl));
  connect("handle-read", G_CALLBACK(onRead));
  connect("handle-write", G_CALLBACK(onWrite));
  connect("client-connected", G_CALLBACK(onConnected));
  return handler;
}

// A regular file has the descriptors in it; of a gate nothing may be read or written.
gboolean UsbfsNode::onRead(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  const auto node = static_cast<NodeReference<UsbfsNode>*>(self)->node;
  if (!node->gate_) return FALSE;
  const std::lock_guard guard(node->mutex_);
  const auto result = node->readDescriptors(client, umockdev_ioctl_client_get_arg(client));
  umockdev_ioctl_client_complete(client, result, 0);
  return TRUE;
}

gboolean UsbfsNode::onWrite(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  if (!static_cast<NodeReference<UsbfsNode>*>(self)->node->gate_) return FALSE;
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
    update(argument, 0, left.first(count));
  }
  position = count == 0 ? 0 : position + count;
  return static_cast<long>(count);
}

void UsbfsNode::onConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  const auto& node = static_cast<NodeReference<UsbfsNode>*>(self)->node;
  // A client that died says so only by letting its object go.
  g_object_weak_ref(
      G_OBJECT(client),
      [](gpointer reference, GObject* gone) {
        const std::unique_ptr<NodeReference<UsbfsNode>> kept(
            static_cast<NodeReference<UsbfsNode>*>(reference));
        kept->node->forget(reinterpret_cast<UMockdevIoctlClient*>(gone));
      },
      new NodeReference<UsbfsNode>{node});
}

void UsbfsNode::forget(const UMockdevIoctlClient* client) {
  const std::lock_guard guard(mutex_);
  clients_.erase(client);
  std::erase_if(claims_, [&](const auto& entry) { return entry.second == client; });
  reaped_.notify_all();
}

gboolean UsbfsNode::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  const auto node = static_cast<NodeReference<UsbfsNode>*>(self)->node;
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
    case USBDEVFS_RESETEP:  // the host's own count of packets
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
    if (!urb->isDone()) urb->finish(-ESHUTDOWN);
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
  auto answer = device_->control(setup, setup.fromDevice() ? std::span<std::byte>() : bytes);
  if (!answer) return -EPIPE;
  if (!setup.fromDevice()) return setup.length;
  const auto count = std::min(answer->size(), bytes.size());
  if (count > 0) update(buffer.get(), 0, std::span(*answer).first(count));
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
  auto urb = std::make_unique<UsbfsUrb>();
  if (const auto refused = urb->take(argument, *device_); refused != 0) return refused;
  // Without a claim of anybody's the kernel claims for the client, and only logs it.
  if (!urb->isControl()) {
    const auto holder = claims_.find(0);
    if (holder != claims_.end() && holder->second != client) return -EBUSY;
  }
  urb->start(*device_);
  clients_[client].urbs.push_back(std::move(urb));
  return 0;
}

void UsbfsNode::pump() {
  if (gone_ || !gate_) return;
  bool ready = false;
  for (auto& [handler, client] : clients_) {
    progress(client);
    for (const auto& urb : client.urbs) {
      ready = ready || urb->isDone();
      if (urb->isDone() || !urb->isIn()) continue;
      if (const auto due = device_->due(urb->endpoint())) wakeAt(*due);
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
  std::set<std::uint8_t> waiting;
  for (auto& urb : client.urbs) {
    if (urb->isDone() || !urb->isIn() || waiting.contains(urb->endpoint())) continue;
    urb->progress(*device_);
    if (!urb->isDone()) waiting.insert(urb->endpoint());
  }
}

long UsbfsNode::reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  // The device acts when it is asked: nothing runs between two calls of a client.
  auto& urbs = clients_[client].urbs;
  if (!gone_) progress(clients_[client]);
  const auto found =
      std::find_if(urbs.begin(), urbs.end(), [](const auto& urb) { return urb->isDone(); });
  if (found == urbs.end()) return -EAGAIN;
  const auto urb = std::move(*found);
  urbs.erase(found);
  urb->giveBack(argument);
  reaped_.notify_all();
  return 0;
}

long UsbfsNode::discard(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  // The argument is the client's address of the URB itself, not of a pointer to it.
  gulong address = 0;
  std::memcpy(&address, argument->data, sizeof address);
  for (auto& urb : clients_[client].urbs) {
    if (urb->isDone() || urb->address() != address) continue;
    urb->finish(-ENOENT);
    return 0;
  }
  return -EINVAL;
}

namespace {

constexpr std::size_t kSetupSize = 8;
/// URBs larger than this are refused, as the kernel refuses what goes beyond its memory limit.
constexpr int kMaximumUrb = 16 * 1024 * 1024;

}  // namespace

long UsbfsUrb::take(UMockdevIoctlData* argument, const VirtualUSBDevice& device) {
  record_ = resolve(argument, 0, sizeof(Fields));
  if (!record_) return -EFAULT;
  fields_ = load<Fields>(record_);
  if (fields_.buffer_length < 0 || fields_.buffer_length > kMaximumUrb) return -EINVAL;
  if (!isControl() && device.descriptors().endpoint(fields_.endpoint) == nullptr) return -ENOENT;
  // What the program sends is read now; where it receives is touched only when there is something.
  if (!isIn()) out_ = resolve(record_.get(), offsetof(Fields, buffer), size());
  return 0;
}

void UsbfsUrb::start(VirtualUSBDevice& device) {
  if (isControl()) {
    startControl(device);
  } else if (!isIn()) {
    startOut(device);
  }
}

// usbfs has setup packet and data in one buffer.
void UsbfsUrb::startControl(VirtualUSBDevice& device) {
  if (!out_ || size() < kSetupSize) {
    finish(-EINVAL);
    return;
  }
  const auto bytes = bytesOf(out_, size());
  const auto setup = setupFrom(bytes);
  const auto room = std::min<std::size_t>(setup.length, size() - kSetupSize);
  Bytes data(bytes.begin() + kSetupSize,
             bytes.begin() + static_cast<std::ptrdiff_t>(kSetupSize + room));
  transfer_.control(device, setup, data);
  if (setup.fromDevice() && transfer_.length() > 0) {
    update(out_.get(), kSetupSize, std::span(data).first(transfer_.length()));
  }
}

void UsbfsUrb::startOut(VirtualUSBDevice& device) {
  transfer_.out(device, fields_.endpoint, bytesOf(out_, size()),
                (fields_.flags & USBDEVFS_URB_ZERO_PACKET) != 0);
}

void UsbfsUrb::progress(VirtualUSBDevice& device) {
  // Not cleared: only what the device has filled goes to the program.
  if (!in_) in_ = std::make_unique_for_overwrite<std::byte[]>(size());
  transfer_.in(device, fields_.endpoint, std::span(in_.get(), size()));
}

void UsbfsUrb::giveBack(UMockdevIoctlData* argument) {
  fields_.status = transfer_.status();
  fields_.actual_length = static_cast<int>(transfer_.length());
  store(record_, fields_);
  const auto length = transfer_.length();
  if (isIn() && length > 0) {
    const auto buffer = resolve(record_.get(), offsetof(Fields, buffer), length);
    if (buffer) update(buffer.get(), 0, std::span(in_.get(), length));
  }
  const auto pointer = resolve(argument, 0, sizeof(void*));
  if (pointer) umockdev_ioctl_data_set_ptr(pointer.get(), 0, record_.get());
}

bool NodeGate::mountQueues(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  return !error && ::mount("mqueue", folder.c_str(), "mqueue", MS_NOSUID | MS_NODEV | MS_NOEXEC,
                           nullptr) == 0;
}

std::unique_ptr<NodeGate> NodeGate::create(const std::filesystem::path& folder,
                                           const std::string& name) {
  mq_attr attributes{};
  attributes.mq_maxmsg = 1;
  attributes.mq_msgsize = 1;
  const auto queueName = "/" + name;
  FileDescriptor queue(::mq_open(
      queueName.c_str(), O_CREAT | O_EXCL | O_RDWR | O_NONBLOCK | O_CLOEXEC, 0664, &attributes));
  std::error_code ignored;
  if (!queue.isOpen() || !std::filesystem::exists(folder / name, ignored)) return nullptr;
  return std::unique_ptr<NodeGate>(new NodeGate(folder / name, queueName));
}

NodeGate::~NodeGate() {
  ::mq_unlink(name_.c_str());
}

void NodeGate::setReady(bool ready) {
  if (ready == ready_) return;
  ready_ = ready;
  const FileDescriptor queue(::mq_open(name_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  char message = 0;
  if (ready) {
    ::mq_receive(queue.get(), &message, 1, nullptr);
  } else {
    ::mq_send(queue.get(), &message, 1, 0);
  }
}

}  // namespace tarvo::simulator
