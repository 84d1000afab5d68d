#include "platform/imagecapture/ptp/StillImageInterface.h"

#include <gmock/gmock.h>

#include <vector>

namespace tarvo::ptp {
namespace {

struct Endpoint {
  std::uint8_t address;
  std::uint8_t attributes;
  std::uint16_t packetSize;
};
constexpr std::uint8_t kBulk = 2;
constexpr std::uint8_t kInterrupt = 3;

std::optional<StillImageEndpoints> endpointsOf(const std::vector<Endpoint>& given, std::string* why,
                                               std::uint8_t subclass = 1) {
  std::vector<libusb_endpoint_descriptor> endpoints(given.size());
  for (std::size_t i = 0; i < given.size(); ++i) {
    endpoints[i].bEndpointAddress = given[i].address;
    endpoints[i].bmAttributes = given[i].attributes;
    endpoints[i].wMaxPacketSize = given[i].packetSize;
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

TEST(StillImageInterface, FindsItsEndpointsInAnyOrder) {
  std::string why;
  const auto full =
      endpointsOf({{0x83, kInterrupt, 16}, {0x02, kBulk, 64}, {0x81, kBulk, 512}}, &why);
  ASSERT_TRUE(full) << why;
  EXPECT_EQ(full->interfaceNumber, 3);
  EXPECT_EQ(full->bulkIn, 0x81);
  EXPECT_EQ(full->bulkInPacketSize, 512);
  EXPECT_EQ(full->bulkOut, 0x02);
  EXPECT_EQ(full->bulkOutPacketSize, 64);
  EXPECT_EQ(full->interruptIn, 0x83);
  EXPECT_EQ(full->interruptPacketSize, 16);

  const auto small = endpointsOf({{0x81, kBulk, 1024}, {0x02, kBulk, 8}}, &why);
  ASSERT_TRUE(small) << why;
  EXPECT_EQ(small->interruptIn, 0);
}

TEST(StillImageInterface, SaysWhyItRefusesADescriptor) {
  const struct {
    std::vector<Endpoint> endpoints;
    std::uint8_t subclass;
    const char* why;
  } rows[] = {
      {{}, 1, "interface 3 lacks a bulk endpoint"},
      {{{0x81, kBulk, 512}}, 1, "interface 3 lacks a bulk endpoint"},
      {{{0x81, kBulk, 512}, {0x82, kBulk, 512}}, 1, "interface 3 lacks a bulk endpoint"},
      {{{0x81, kBulk, 512}, {0x02, kInterrupt, 512}}, 1, "interface 3 lacks a bulk endpoint"},
      {{{0x81, kBulk, 0}, {0x02, kBulk, 512}},
       1,
       "interface 3 has bulk packets of 0 and 512 bytes"},
      {{{0x81, kBulk, 512}, {0x02, kBulk, 4}},
       1,
       "interface 3 has bulk packets of 512 and 4 bytes"},
      {{{0x81, kBulk, 100}, {0x02, kBulk, 64}},
       1,
       "interface 3 has bulk packets of 100 and 64 bytes"},
      {{{0x81, kBulk, 0x0800}, {0x02, kBulk, 64}},
       1,
       "interface 3 has bulk packets of 0 and 64 bytes"},
      {{{0x81, kBulk, 512}, {0x02, kBulk, 512}},
       2,
       "interface 3 is of class 6/2, no still-image interface"},
  };
  for (const auto& row : rows) {
    std::string why;
    EXPECT_FALSE(endpointsOf(row.endpoints, &why, row.subclass));
    EXPECT_EQ(why, row.why);
  }
}

}  // namespace
}  // namespace tarvo::ptp
