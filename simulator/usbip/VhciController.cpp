#include "simulator/usbip/VhciController.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"

namespace tarvo::simulator {
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
