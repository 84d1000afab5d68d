// An importer that breaks the protocol of USB/IP; what a good one sees is in tests/vm.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>

#include "simulator/ptp/PTPCamera.h"
#include "simulator/usbip/UsbipConnection.h"

namespace tarvo::simulator {
namespace {

TEST(Usbip, AnImporterThatBreaksTheProtocolIsLetGo) {
  constexpr int kPatience = 10'000;  // milliseconds
  const auto camera = std::make_shared<PTPCamera>(DeviceDescription());
  // Command, sequence number, device, direction, endpoint; flags, length, frame, packets, interval.
  const std::array<std::uint32_t, 10> rows[] = {
      {7, 1, 0x10002, 1, 1},                                    // no command
      {usbip::kSubmit, 1, 0x10002, 1, 1, 0, 0x7FFFFFFF, 0, 0},  // more than any transfer has
      {usbip::kSubmit, 1, 0x10002, 1, 1, 0, 64, 0, 3},          // isochronous
  };
  for (const auto& words : rows) {
    Bytes header;
    for (const auto word : words) {
      for (int shift = 24; shift >= 0; shift -= 8)
        header.push_back(static_cast<std::byte>(word >> shift));
    }
    header.resize(usbip::kHeaderSize);
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const FileDescriptor ours(ends[0]);
    const UsbipConnection connection(FileDescriptor(ends[1]), camera, [] {});
    ASSERT_EQ(::send(ours.get(), header.data(), header.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(header.size()));
    pollfd file = {ours.get(), POLLIN, 0};
    ASSERT_EQ(::poll(&file, 1, kPatience), 1) << words[6];
    EXPECT_LE(::recv(ours.get(), header.data(), header.size(), 0), 0) << "it was answered";
  }
}

}  // namespace
}  // namespace tarvo::simulator
