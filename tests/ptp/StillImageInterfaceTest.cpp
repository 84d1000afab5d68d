#include "platform/imagecapture/ptp/LibusbDevice.h"

#include <gtest/gtest.h>

#include <vector>

namespace tarvo::ptp {
namespace {

/// Address, attributes (2: bulk, 3: interrupt) and packet size.
using Endpoints = std::vector<std::array<std::uint16_t, 3>>;

std::optional<StillImageEndpoints> endpointsOf(const Endpoints& given, std::string* why,
                                               std::uint8_t subclass = 1) {
  std::vector<libusb_endpoint_descriptor> endpoints(given.size());
  for (std::size_t i = 0; i < given.size(); ++i) {
    endpoints[i].bEndpointAddress = static_cast<std::uint8_t>(given[i][0]);
    endpoints[i].bmAttributes = static_cast<std::uint8_t>(given[i][1]);
    endpoints[i].wMaxPacketSize = given[i][2];
  }
  libusb_interface_descriptor interface {};
  interface.bInterfaceNumber = 3;
  interface.bInterfaceClass = 6;
  interface.bInterfaceSubClass = subclass;
  interface.bNumEndpoints = static_cast<std::uint8_t>(endpoints.size());
  interface.endpoint = endpoints.data();
  libusb_interface holder{&interface, 1};
  libusb_config_descriptor configuration{};
  configuration.bNumInterfaces = 1;
  configuration.interface = &holder;
  EXPECT_FALSE(stillImageEndpoints(configuration, 0, why));
  EXPECT_EQ(*why, "the device has no interface 0");
  return stillImageEndpoints(configuration, 3, why);
}

TEST(StillImageInterface, SaysWhyItRefusesADescriptor) {
  const struct {
    Endpoints endpoints;
    const char* why;
  } rows[] = {
      {{}, "lacks a bulk endpoint"},
      {{{0x81, 2, 512}, {0x02, 3, 512}}, "lacks a bulk endpoint"},
      {{{0x80, 2, 512}, {0x02, 2, 512}}, "lacks a bulk endpoint"},
      {{{0x81, 2, 512}, {0x02, 2, 4}}, "has bulk packets of 512 and 4 bytes"},
      {{{0x81, 2, 100}, {0x02, 2, 64}}, "has bulk packets of 100 and 64 bytes"},
      {{{0x81, 2, 0x0800}, {0x02, 2, 64}}, "has bulk packets of 0 and 64 bytes"},
  };
  std::string why;
  for (const auto& row : rows) {
    EXPECT_FALSE(endpointsOf(row.endpoints, &why));
    EXPECT_EQ(why, std::string("interface 3 ") + row.why);
  }
  EXPECT_TRUE(endpointsOf({{0x83, 3, 16}, {0x02, 2, 64}, {0x81, 2, 512}}, &why)) << why;
  EXPECT_FALSE(endpointsOf({{0x81, 2, 512}, {0x02, 2, 512}}, &why, 2));
  EXPECT_EQ(why, "interface 3 is of class 6/2, no still-image interface");
}

}  // namespace
}  // namespace tarvo::ptp
