#include "simulator/standins/Claim.h"

#include <fcntl.h>
#include <libusb.h>

#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr unsigned kTimeout = 2000;
constexpr unsigned char kBulkIn = 0x81;
constexpr unsigned char kBulkOut = 0x02;

std::string nodeOf(std::uint32_t location) {
  std::string name = std::to_string(location >> 24) + "-";
  std::string ports;
  for (int shift = 20; shift >= 0 && ((location >> shift) & 0xF) != 0; shift -= 4) {
    ports += (ports.empty() ? "" : ".") + std::to_string((location >> shift) & 0xF);
  }
  const std::string folder = "/sys/bus/usb/devices/" + name + ports;
  unsigned bus = 0;
  unsigned device = 0;
  std::ifstream(folder + "/busnum") >> bus;
  std::ifstream(folder + "/devnum") >> device;
  return formatted("/dev/bus/usb/%03u/%03u", bus, device);
}

/// Code of the response to a GetDeviceInfo outside a session; 0 when none came.
unsigned askDeviceInfo(libusb_device_handle* handle) {
  std::array<unsigned char, ptp::kContainerHeaderSize> command = {12, 0, 0, 0, 1, 0, 0x01, 0x10};
  int moved = 0;
  if (libusb_bulk_transfer(handle, kBulkOut, command.data(), static_cast<int>(command.size()),
                           &moved, kTimeout) != 0) {
    return 0;
  }
  std::array<unsigned char, 16384> answer{};
  // Data, then response; either may be split, but not with a buffer that holds both whole.
  for (int containers = 0; containers < 2; ++containers) {
    if (libusb_bulk_transfer(handle, kBulkIn, answer.data(), static_cast<int>(answer.size()),
                             &moved, kTimeout) != 0 ||
        moved < static_cast<int>(ptp::kContainerHeaderSize)) {
      return 0;
    }
    if (answer[4] == ptp::kResponseBlock) return answer[6] | (answer[7] << 8);
  }
  return 0;
}

nlohmann::json failure(const std::string& node, const std::string& error) {
  return {{"node", node}, {"claimed", false}, {"error", error}};
}

}  // namespace

nlohmann::json tryClaim(std::uint32_t location) {
  const auto node = nodeOf(location);
  // The node is known; a scan of all devices would open others.
  libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
  libusb_context* context = nullptr;
  if (const int result = libusb_init(&context); result != 0) {
    return failure(node, libusb_error_name(result));
  }
  const std::unique_ptr<libusb_context, decltype(&libusb_exit)> contextOwner(context, libusb_exit);
  const int descriptor = ::open(node.c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor < 0) return failure(node, std::strerror(errno));
  libusb_device_handle* handle = nullptr;
  if (const int result = libusb_wrap_sys_device(context, descriptor, &handle); result != 0) {
    return failure(node, libusb_error_name(result));
  }
  const std::unique_ptr<libusb_device_handle, decltype(&libusb_close)> handleOwner(handle,
                                                                                   libusb_close);
  if (const int result = libusb_claim_interface(handle, 0); result != 0) {
    return failure(node, libusb_error_name(result));
  }
  return {{"node", node}, {"claimed", true}, {"response", askDeviceInfo(handle)}};
}

}  // namespace tarvo::simulator
