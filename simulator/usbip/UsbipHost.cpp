#include "simulator/usbip/UsbipHost.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <glib-unix.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/usbip/UsbipConnection.h"

namespace tarvo::simulator {
namespace {

using usbip::OperationStatus;

constexpr std::chrono::seconds kDetachPatience{5};

void limitWaiting(const FileDescriptor& socket, int seconds) {
  const timeval limit{seconds, 0};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool receiveAll(const FileDescriptor& socket, std::span<std::byte> bytes) {
  return ::recv(socket.get(), bytes.data(), bytes.size(), MSG_WAITALL) ==
         static_cast<ssize_t>(bytes.size());
}

bool sendAll(const FileDescriptor& socket, std::span<const std::byte> bytes) {
  return ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

UsbipHost::UsbipHost(const UsbipOptions& options) {
  if (options.attaches) kernel_.emplace();
  if (options.listenPort) listen(*options.listenPort);
}

UsbipHost::~UsbipHost() {
  if (source_ != 0) g_source_remove(source_);
  unplugAll();
}

void UsbipHost::listen(std::uint16_t port) {
  listener_ = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  // USB/IP knows no passwords: never for another machine.
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_.get(), 8) != 0) {
    fail("cannot listen at port " + std::to_string(port));
  }
  source_ = g_unix_fd_add(
      listener_.get(), G_IO_IN,
      [](gint, GIOCondition, gpointer self) -> gboolean {
        static_cast<UsbipHost*>(self)->acceptOne();
        return G_SOURCE_CONTINUE;
      },
      this);
}

std::uint16_t UsbipHost::listenPort() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.sin_port);
}

std::unique_ptr<HostedDevice> UsbipHost::makeEntry() {
  return std::make_unique<ExportedDevice>();
}

void UsbipHost::show(HostedDevice& device) {
  if (kernel_) attach(static_cast<ExportedDevice&>(device));
}

void UsbipHost::attach(ExportedDevice& device) {
  const auto number = parseNumber(device.port.path, 15);
  if (!number)
    throw std::runtime_error("port " + device.id + ": the kernel's hub has no hub in it");
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) fail("socketpair");
  FileDescriptor ours(ends[0]);
  const FileDescriptor theirs(ends[1]);
  device.port.bus = kernel_->bus();
  const auto port = static_cast<unsigned>(*number - 1);
  // The kernel asks as soon as it has its end.
  device.connection =
      std::make_unique<UsbipConnection>(std::move(ours), device.device, vanishing(device));
  kernel_->attach(port, theirs.get(), usbip::deviceNumber(device),
                  usbip::speedNumber(device.description.usb.speed));
  device.kernelPort = port;
}

void UsbipHost::hide(HostedDevice& device) {
  auto& exported = static_cast<ExportedDevice&>(device);
  exported.connection.reset();
  if (exported.kernelPort) kernel_->detach(*exported.kernelPort, kDetachPatience);
}

void UsbipHost::acceptOne() {
  FileDescriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket.isOpen()) return;
  limitWaiting(socket, 2);
  std::array<std::byte, usbip::kOperationSize> header{};
  if (!receiveAll(socket, header)) return;
  const auto operation = usbip::Operation::read(header);
  if (operation.version != usbip::kVersion) {
    sendAll(socket, usbip::answerTo(operation.code, OperationStatus::kRefused));
  } else if (operation.code == usbip::kDeviceListRequest) {
    sendAll(socket, usbip::deviceList(devices()));
  } else if (operation.code == usbip::kImportRequest) {
    import(std::move(socket));
  }
}

void UsbipHost::import(FileDescriptor socket) {
  std::array<char, usbip::kBusIdSize + 1> id{};
  if (!receiveAll(socket, std::as_writable_bytes(std::span(id).first(usbip::kBusIdSize)))) return;
  auto* found = static_cast<ExportedDevice*>(device(id.data()));
  auto status = OperationStatus::kOK;
  if (found == nullptr) {
    status = OperationStatus::kNoDevice;
  } else if (found->connection && !found->connection->hasEnded()) {
    status = OperationStatus::kBusy;
  }
  auto answer = usbip::answerTo(usbip::kImportRequest, status);
  if (status != OperationStatus::kOK) {
    sendAll(socket, answer);
    return;
  }
  const auto device = usbip::importedDevice(*found);
  answer.insert(answer.end(), device.begin(), device.end());
  if (!sendAll(socket, answer)) return;
  limitWaiting(socket, 0);
  const int on = 1;
  ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  try {
    found->connection.reset();  // the last importer's
    found->connection =
        std::make_unique<UsbipConnection>(std::move(socket), found->device, vanishing(*found));
  } catch (const std::exception& error) {
    g_warning("USB/IP: %s cannot be imported: %s", found->id.c_str(), error.what());
  }
}

namespace {

namespace fs = std::filesystem;

/// VDEV_ST_NULL of include/linux/usbip.h's usbip_device_status: nothing is at the port.
constexpr int kFree = 4;
/// Between two looks at a port that is being given back; the kernel does not tell.
constexpr std::chrono::milliseconds kInterval{20};

unsigned numberIn(const fs::path& path) {
  unsigned number = 0;
  std::ifstream(path) >> number;
  return number;
}

/// The root hub of the controller that is not of USB 3; 0 where there is none.
unsigned highSpeedBus(const fs::path& controller) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(controller, error)) {
    if (numberIn(entry.path() / "speed") == 480) return numberIn(entry.path() / "busnum");
  }
  return 0;
}

}  // namespace

VhciController::VhciController() : folder_("/sys/devices/platform/vhci_hcd.0") {
  bus_ = highSpeedBus(folder_);
  if (bus_ == 0) {
    throw std::runtime_error("the kernel has no vhci_hcd (modprobe vhci-hcd, as root)");
  }
}

void VhciController::attach(unsigned port, int socket, std::uint32_t deviceNumber,
                            unsigned speed) const {
  write("attach", formatted("%u %d %u %u", port, socket, deviceNumber, speed));
}

void VhciController::detach(unsigned port, std::chrono::milliseconds patience) const {
  const auto end = std::chrono::steady_clock::now() + patience;
  try {
    if (hasConnection(port)) write("detach", std::to_string(port));
  } catch (const std::system_error&) {
    // The kernel is about to do so itself, as the connection has ended.
  }
  while (isInUse(port) && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(kInterval);
}

bool VhciController::isInUse(unsigned port) const {
  // A device that is attached before the hub has noticed that the last one went takes its place,
  // and its drivers go on with the new one.
  const auto device = formatted("/sys/bus/usb/devices/%u-%u", bus_, port + 1);
  return fs::exists(device) || hasConnection(port);
}

// Lines of the file: hub, port, state, speed, device number, descriptor, bus id.
bool VhciController::hasConnection(unsigned port) const {
  std::ifstream file(folder_ / "status");
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string hub;
    unsigned number = 0;
    int state = 0;
    if (fields >> hub >> number >> state && hub == "hs" && number == port) return state != kFree;
  }
  return false;
}

void VhciController::write(const char* file, const std::string& text) const {
  const auto path = folder_ / file;
  const FileDescriptor descriptor(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (::write(descriptor.get(), text.data(), text.size()) < 0) {
    throw std::system_error(errno, std::generic_category(), "writing to " + path.string());
  }
}

}  // namespace tarvo::simulator
