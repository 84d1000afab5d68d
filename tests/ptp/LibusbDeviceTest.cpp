#include "platform/imagecapture/ptp/LibusbDevice.h"

#include <gmock/gmock.h>

#include "platform/imagecapture/ptp/LibusbDeviceOpener.h"
#include "tests/ptp/LoopbackNode.h"

namespace tarvo::ptp {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::LoopbackBehaviour;

class LibusbDeviceTest : public testing::Test {
 protected:
  std::unique_ptr<USBDevice> open() {
    why.clear();
    return LibusbDeviceOpener().open({test::LoopbackNode::kNode, 0}, &failure, &why);
  }
  /// An OUT transfer, whose completion is taken.
  void send(USBDevice& device, std::size_t size) {
    std::vector<std::byte> bytes(size, std::byte{0x5A});
    device.submit(0x02, bytes, 99);
    const auto ended = device.wait(seconds(5));
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->tag, 99U);
    EXPECT_EQ(ended->result, TransferResult::kCompleted);
    EXPECT_EQ(ended->length, size);
  }

  test::LoopbackNode node;
  Status failure = 0;
  std::string why;
};

TEST_F(LibusbDeviceTest, OpensAndFindsTheEndpoints) {
  auto device = open();
  ASSERT_NE(device, nullptr) << why;
  EXPECT_EQ(device->endpoints().bulkIn, 0x81);
  EXPECT_EQ(device->endpoints().bulkOut, 0x02);
  EXPECT_EQ(device->endpoints().interruptIn, 0x83);
  EXPECT_EQ(device->endpoints().bulkInPacketSize, 512);
}

TEST_F(LibusbDeviceTest, LeavesTransfersInFlightAndEndsThemInOrder) {
  auto device = open();
  ASSERT_NE(device, nullptr) << why;
  std::vector<std::byte> buffers[3];
  for (std::uint64_t i = 0; i < 3; ++i) {
    buffers[i].resize(1U << 20);
    device->submit(0x81, buffers[i], i);
  }
  EXPECT_FALSE(device->wait(milliseconds(1)));
  std::vector<std::byte> large(1U << 20, std::byte{0x5A});
  std::vector<std::byte> small(100, std::byte{0x5A});
  device->submit(0x02, large, 10);
  device->submit(0x02, small, 11);
  device->submit(0x02, {}, 12);
  std::vector<std::pair<std::uint64_t, std::size_t>> in;
  for (int i = 0; i < 6; ++i) {
    const auto ended = device->wait(seconds(5));
    ASSERT_TRUE(ended) << i;
    EXPECT_EQ(ended->result, TransferResult::kCompleted);
    if (ended->tag < 10) in.emplace_back(ended->tag, ended->length);
  }
  EXPECT_THAT(in, testing::ElementsAre(testing::Pair(0, 1U << 20), testing::Pair(1, 100),
                                       testing::Pair(2, 0)));
  EXPECT_TRUE(buffers[0] == large);
  EXPECT_EQ(buffers[1][99], std::byte{0x5A});
  EXPECT_FALSE(device->wait(seconds(5)));  // Nothing in flight: at once.
}

TEST_F(LibusbDeviceTest, CancelsAndGoesOn) {
  auto device = open();
  ASSERT_NE(device, nullptr) << why;
  std::vector<std::byte> buffer(512);
  device->submit(0x81, buffer, 1);
  device->submit(0x83, buffer, 2);
  device->cancelAll();
  EXPECT_FALSE(device->wait(milliseconds(1)));
  send(*device, 7);
  device->submit(0x81, buffer, 3);
  const auto ended = device->wait(seconds(5));
  ASSERT_TRUE(ended);
  EXPECT_EQ(ended->tag, 3U);
  EXPECT_EQ(ended->length, 7U);
}

TEST_F(LibusbDeviceTest, ReportsStallsAndEndsHalts) {
  auto device = open();
  ASSERT_NE(device, nullptr) << why;
  node.behave([](LoopbackBehaviour& behaviour) { behaviour.stalls = true; });
  std::vector<std::byte> buffer(512);
  device->submit(0x81, buffer, 1);
  EXPECT_EQ(device->wait(seconds(5))->result, TransferResult::kStalled);
  EXPECT_EQ(device->clearHalt(0x81), TransferResult::kCompleted);
  node.behave([](LoopbackBehaviour& behaviour) {
    behaviour.stalls = false;
    EXPECT_EQ(behaviour.haltsCleared, 1);
  });
  send(*device, 1);
}

TEST_F(LibusbDeviceTest, RunsControlRequestsWhileBulkTransfersWait) {
  auto device = open();
  ASSERT_NE(device, nullptr) << why;
  std::vector<std::byte> buffer(512);
  device->submit(0x81, buffer, 1);

  std::vector<std::byte> data(3);
  auto ended = device->control({0xA1, 0x67, 0x0102, 0x0304}, data, seconds(5));
  EXPECT_EQ(ended.result, TransferResult::kCompleted);
  EXPECT_EQ(ended.length, 3U);
  EXPECT_THAT(data, testing::ElementsAre(std::byte{1}, std::byte{2}, std::byte{3}));
  ended = device->control({0x21, 0x64, 0x0102, 0x0304}, data, seconds(5));
  EXPECT_EQ(ended.result, TransferResult::kCompleted);
  node.behave([](LoopbackBehaviour& behaviour) {
    EXPECT_THAT(behaviour.lastSetup, testing::ElementsAre(0x21, 0x64, 2, 1, 4, 3, 3, 0, 1, 2, 3));
  });
  EXPECT_EQ(device->control({0x21, 0xEE, 0, 0}, {}, seconds(5)).result, TransferResult::kStalled);
  EXPECT_EQ(device->control({0x21, 0xDD, 0, 0}, {}, milliseconds(1)).result,
            TransferResult::kTimedOut);

  std::vector<std::byte> byte(1);
  device->submit(0x02, byte, 2);
  EXPECT_TRUE(device->wait(seconds(5)));
  EXPECT_TRUE(device->wait(seconds(5)));
}

TEST_F(LibusbDeviceTest, EndsEverythingWhenTheDeviceGoes) {
  auto device = open();
  ASSERT_NE(device, nullptr) << why;
  std::vector<std::byte> buffer(512);
  device->submit(0x81, buffer, 1);
  node.behave([](LoopbackBehaviour& behaviour) { behaviour.unplugged = true; });
  const auto ended = device->wait(seconds(5));
  ASSERT_TRUE(ended);
  EXPECT_EQ(ended->result, TransferResult::kNoDevice);
  device->submit(0x81, buffer, 2);
  EXPECT_EQ(device->wait(seconds(5))->result, TransferResult::kNoDevice);
  EXPECT_EQ(device->control({0xA1, 0x67, 0, 0}, buffer, seconds(5)).result,
            TransferResult::kNoDevice);
}

TEST_F(LibusbDeviceTest, NeverWritesToABufferThatTheSystemDidNotGiveBack) {
  auto device = open();
  ASSERT_NE(device, nullptr) << why;
  node.behave([](LoopbackBehaviour& behaviour) { behaviour.keepsUrbs = true; });
  std::vector<std::byte> buffer(512);
  device->submit(0x81, buffer, 1);
  device->cancelAll();
  // Given up: nothing is started or reaped any more.
  device->submit(0x81, buffer, 2);
  EXPECT_EQ(device->wait(seconds(5))->result, TransferResult::kError);
  EXPECT_EQ(device->control({0xA1, 0x67, 0, 0}, buffer, seconds(5)).result, TransferResult::kError);
  EXPECT_EQ(device->clearHalt(0x81), TransferResult::kError);
}

TEST_F(LibusbDeviceTest, RefusesAClaimedInterfaceInWords) {
  node.behave([](LoopbackBehaviour& behaviour) { behaviour.claimed = true; });
  EXPECT_EQ(open(), nullptr);
  EXPECT_EQ(failure, status::kICADeviceBusy);
  EXPECT_EQ(why, "/dev/bus/usb/001/004 is in use by another process");
}

TEST_F(LibusbDeviceTest, OpensAgainAndAgainWithoutLosingDescriptors) {
  const auto descriptors = [] {
    int count = 0;
    GDir* folder = g_dir_open("/proc/self/fd", 0, nullptr);
    while (g_dir_read_name(folder) != nullptr)
      ++count;
    g_dir_close(folder);
    return count;
  };
  ASSERT_NE(open(), nullptr) << why;
  const int before = descriptors();
  for (int i = 0; i < 20; ++i)
    ASSERT_NE(open(), nullptr) << why;
  // The testbed's own end of each descriptor closes a little later.
  const auto deadline = std::chrono::steady_clock::now() + seconds(5);
  while (descriptors() > before && std::chrono::steady_clock::now() < deadline)
    g_usleep(1000);
  EXPECT_LE(descriptors(), before);
}

}  // namespace
}  // namespace tarvo::ptp
