// Feeds the search for a still-image interface what a hostile device could have as its descriptors.
//
// The first byte of an input is the number of the interface that is looked for, the rest is the
// configuration as the device sends it: descriptors with length and type in front, made into the
// structures of libusb as libusb makes them (alternate settings below the interface before them,
// as many endpoints as an interface announces, zeros for those that do not come). A second reading
// must find the same endpoints, and no transfer may be reckoned in packets of a size that is none.

#include <libusb.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Require.h"
#include "platform/imagecapture/ptp/LibusbDevice.h"

namespace {

using tarvo::ptp::StillImageEndpoints;
using Bytes = std::span<const std::uint8_t>;

/// One setting of an interface, with exactly as many endpoints as it announces.
struct Setting {
  libusb_interface_descriptor descriptor{};
  std::vector<libusb_endpoint_descriptor> endpoints{};
  std::size_t filled = 0;
};

/// The byte at `index`, zero behind the end.
std::uint8_t at(Bytes descriptor, std::size_t index) {
  return index < descriptor.size() ? descriptor[index] : std::uint8_t{0};
}

Setting settingOf(Bytes descriptor) {
  constexpr std::uint8_t kMostEndpoints = 32;  // as libusb has it (USB_MAXENDPOINTS)
  Setting setting;
  setting.descriptor.bInterfaceNumber = at(descriptor, 2);
  setting.descriptor.bAlternateSetting = at(descriptor, 3);
  setting.descriptor.bNumEndpoints = std::min(at(descriptor, 4), kMostEndpoints);
  setting.descriptor.bInterfaceClass = at(descriptor, 5);
  setting.descriptor.bInterfaceSubClass = at(descriptor, 6);
  setting.descriptor.bInterfaceProtocol = at(descriptor, 7);
  setting.endpoints.resize(setting.descriptor.bNumEndpoints);
  return setting;
}

void addEndpoint(Setting& setting, Bytes descriptor) {
  if (setting.filled == setting.endpoints.size()) return;
  auto& endpoint = setting.endpoints[setting.filled++];
  endpoint.bEndpointAddress = at(descriptor, 2);
  endpoint.bmAttributes = at(descriptor, 3);
  endpoint.wMaxPacketSize = static_cast<std::uint16_t>(at(descriptor, 4) | at(descriptor, 5) << 8);
}

/// Interfaces in their order, each with its settings.
std::vector<std::vector<Setting>> interfacesOf(Bytes rest) {
  std::vector<std::vector<Setting>> interfaces;
  while (rest.size() >= 2 && rest[0] >= 2) {
    const Bytes descriptor = rest.first(std::min<std::size_t>(rest[0], rest.size()));
    rest = rest.subspan(descriptor.size());
    if (descriptor[1] == LIBUSB_DT_INTERFACE) {
      auto setting = settingOf(descriptor);
      const bool isNext = interfaces.empty() || interfaces.back()[0].descriptor.bInterfaceNumber !=
                                                    setting.descriptor.bInterfaceNumber;
      if (isNext) interfaces.emplace_back();
      interfaces.back().push_back(std::move(setting));
    } else if (descriptor[1] == LIBUSB_DT_ENDPOINT && !interfaces.empty()) {
      addEndpoint(interfaces.back().back(), descriptor);
    }
  }
  return interfaces;
}

/// The first endpoint of a transfer type and a direction that can be used at all.
std::optional<std::pair<std::uint8_t, unsigned>> naiveEndpoint(const Setting& setting,
                                                               unsigned type, bool isIn) {
  for (const auto& endpoint : setting.endpoints) {
    const unsigned size = endpoint.wMaxPacketSize % 2048U;
    const bool isMeant =
        endpoint.bmAttributes % 4U == type && (endpoint.bEndpointAddress >= 128) == isIn;
    if (isMeant && endpoint.bEndpointAddress % 16U != 0 && (size > 0 || type == 2))
      return std::pair(endpoint.bEndpointAddress, size);
  }
  return std::nullopt;
}

bool isPacketSize(unsigned size) {
  for (const unsigned each : {8U, 16U, 32U, 64U, 128U, 256U, 512U, 1024U})
    if (size == each) return true;
  return false;
}

std::optional<StillImageEndpoints> naive(const std::vector<std::vector<Setting>>& interfaces,
                                         std::uint8_t number) {
  for (const auto& settings : interfaces) {
    const Setting& first = settings[0];
    if (first.descriptor.bInterfaceNumber != number) continue;
    if (first.descriptor.bInterfaceClass != 6 || first.descriptor.bInterfaceSubClass != 1) break;
    const auto in = naiveEndpoint(first, 2, true);
    const auto out = naiveEndpoint(first, 2, false);
    if (!in || !out || !isPacketSize(in->second) || !isPacketSize(out->second)) break;
    const auto events = naiveEndpoint(first, 3, true).value_or(std::pair(std::uint8_t{0}, 0U));
    StillImageEndpoints expected;
    expected.interfaceNumber = number;
    expected.bulkIn = in->first;
    expected.bulkInPacketSize = static_cast<std::uint16_t>(in->second);
    expected.bulkOut = out->first;
    expected.bulkOutPacketSize = static_cast<std::uint16_t>(out->second);
    expected.interruptIn = events.first;
    expected.interruptPacketSize = static_cast<std::uint16_t>(events.second);
    return expected;
  }
  return std::nullopt;
}

bool areSame(const StillImageEndpoints& a, const StillImageEndpoints& b) {
  return a.interfaceNumber == b.interfaceNumber && a.bulkIn == b.bulkIn && a.bulkOut == b.bulkOut &&
         a.interruptIn == b.interruptIn && a.bulkInPacketSize == b.bulkInPacketSize &&
         a.bulkOutPacketSize == b.bulkOutPacketSize &&
         a.interruptPacketSize == b.interruptPacketSize;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto interfaces = interfacesOf({data + 1, size - 1});
  std::deque<std::vector<libusb_interface_descriptor>> settings;
  std::vector<libusb_interface> holders;
  for (const auto& each : interfaces) {
    auto& descriptors = settings.emplace_back();
    for (const Setting& setting : each) {
      descriptors.push_back(setting.descriptor);
      descriptors.back().endpoint = setting.endpoints.data();
    }
    holders.push_back({descriptors.data(), static_cast<int>(descriptors.size())});
  }
  // As many as libusb takes (USB_MAXINTERFACES).
  holders.resize(std::min<std::size_t>(holders.size(), 32));
  libusb_config_descriptor configuration{};
  configuration.bNumInterfaces = static_cast<std::uint8_t>(holders.size());
  configuration.interface = holders.data();
  std::string why;
  const auto found = tarvo::ptp::stillImageEndpoints(configuration, data[0], &why);
  const auto expected = naive({interfaces.begin(), interfaces.begin() + holders.size()}, data[0]);
  require(found.has_value() == expected.has_value() && found.has_value() == why.empty());
  require(!found || areSame(*found, *expected));
  return 0;
}
