// The USB/IP side as an importer sees it, over a socket pair: the kernel's own is in tests/vm.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>

#include "Utilities/PTPCodes.h"
#include "simulator/usbip/UsbipConnection.h"

namespace tarvo::simulator {
namespace {

using ::testing::IsEmpty;

constexpr int kPatience = 10'000;  // milliseconds

struct Answer {
  std::uint32_t command = 0;
  std::uint32_t sequence = 0;
  int status = 0;
  Bytes data;
};

class Usbip : public ::testing::Test {
 protected:
  Usbip() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    ours_ = FileDescriptor(ends[0]);
    connection_ = std::make_unique<UsbipConnection>(FileDescriptor(ends[1]), camera_,
                                                    [this] { vanished_ = true; });
  }

  /// A header: command, sequence number, device, direction, endpoint, five more words, setup.
  void send(std::uint32_t command, std::uint32_t sequence, bool isIn, std::uint32_t endpoint,
            std::array<std::uint32_t, 5> rest, const Bytes& behind = {}, Bytes setup = {}) {
    Bytes bytes;
    const auto word = [&](std::uint32_t value) {
      for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::byte>(value >> shift));
    };
    for (const auto value : {command, sequence, 0x10002U, isIn ? 1U : 0U, endpoint})
      word(value);
    for (const auto value : rest)
      word(value);
    setup.resize(8);
    bytes.insert(bytes.end(), setup.begin(), setup.end());
    bytes.insert(bytes.end(), behind.begin(), behind.end());
    ASSERT_EQ(::send(ours_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  void submitIn(std::uint32_t sequence, std::uint32_t endpoint, std::uint32_t length) {
    send(usbip::kSubmit, sequence, true, endpoint, {0, length, 0, 0, 0});
  }
  void submitOut(std::uint32_t sequence, const Bytes& data) {
    const auto length = static_cast<std::uint32_t>(data.size());
    send(usbip::kSubmit, sequence, false, 2, {0, length, 0, 0xFFFFFFFF, 0}, data);
  }
  void submitControl(std::uint32_t sequence, const Bytes& setup, std::uint32_t length) {
    send(usbip::kSubmit, sequence, true, 0, {0, length, 0, 0, 0}, {}, setup);
  }

  /// False at the end of the connection.
  bool receive(std::span<std::byte> bytes) {
    while (!bytes.empty()) {
      pollfd file = {ours_.get(), POLLIN, 0};
      if (::poll(&file, 1, kPatience) != 1) return ADD_FAILURE() << "no answer came", false;
      const auto count = ::recv(ours_.get(), bytes.data(), bytes.size(), 0);
      if (count <= 0) return false;
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
  }
  std::optional<Answer> answer() {
    std::array<std::byte, usbip::kHeaderSize> header{};
    if (!receive(header)) return std::nullopt;
    const auto word = [&](std::size_t index) {
      std::uint32_t value = 0;
      for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<std::uint32_t>(header[4 * index + i]);
      return value;
    };
    Answer answer{word(0), word(1), static_cast<int>(word(5)), {}};
    // Only what is sent to the host follows.
    if (answer.command == 3 && isIn_) answer.data.resize(word(6));
    if (!receive(answer.data)) return std::nullopt;
    return answer;
  }
  int statusOf(std::uint32_t sequence, bool isIn) {
    isIn_ = isIn;
    const auto got = answer();
    EXPECT_TRUE(got && got->sequence == sequence);
    return got ? got->status : 1;
  }
  bool hasEnded() {
    std::byte byte{};
    return !receive({&byte, 1});
  }

  static Bytes command(std::uint16_t code, std::uint32_t id, std::vector<std::uint32_t> with = {}) {
    return parameterContainer(ptp::kCommandBlock, code, id, with);
  }

  std::shared_ptr<PTPCamera> camera_ = std::make_shared<PTPCamera>(DeviceDescription());
  FileDescriptor ours_;
  std::atomic<bool> vanished_ = false;
  bool isIn_ = true;
  std::unique_ptr<UsbipConnection> connection_;
};

const Bytes kGetDeviceDescriptor = {std::byte{0x80}, std::byte{6}, std::byte{0},  std::byte{1},
                                    std::byte{0},    std::byte{0}, std::byte{18}, std::byte{0}};
const Bytes kGetMissingText = {std::byte{0x80}, std::byte{6}, std::byte{99},  std::byte{3},
                               std::byte{0},    std::byte{0}, std::byte{255}, std::byte{0}};

TEST_F(Usbip, RequestsAreAnsweredAsAControllerWould) {
  submitControl(1, kGetDeviceDescriptor, 18);
  EXPECT_EQ(answer()->data, camera_->descriptors().device());
  submitControl(2, kGetMissingText, 255);
  EXPECT_EQ(statusOf(2, true), -EPIPE);
  submitIn(3, 9, 64);
  EXPECT_EQ(statusOf(3, true), -ENOENT);
  // Asked for before there is anything: it waits, and those behind it wait too.
  submitIn(4, 1, 512);
  submitIn(5, 1, 512);
  submitOut(6, command(ptp::kOpenSession, 0, {1}));
  EXPECT_EQ(statusOf(6, false), 0);
  isIn_ = true;
  const auto response = answer();
  EXPECT_EQ(response->sequence, 4U);
  EXPECT_EQ(littleEndian(response->data, 6, 2), 0x2001U);
  submitOut(7, command(ptp::kCloseSession, 1));
  EXPECT_EQ(statusOf(7, false), 0);
  EXPECT_EQ(statusOf(5, true), 0);
  EXPECT_THAT(camera_->violations(), IsEmpty());
}

TEST_F(Usbip, AWaitingEventIsTakenBackOrComes) {
  submitIn(1, 3, 64);
  send(usbip::kUnlink, 2, false, 0, {1, 0, 0, 0, 0});
  EXPECT_EQ(statusOf(2, true), -ECONNRESET);
  // What has been answered, or never was, cannot be taken back.
  send(usbip::kUnlink, 3, false, 0, {1, 0, 0, 0, 0});
  EXPECT_EQ(statusOf(3, true), 0);
  submitIn(4, 3, 64);
  camera_->sendEvent(0x4004, {7});
  EXPECT_EQ(littleEndian(answer()->data, 6, 2), 0x4004U);
}

TEST_F(Usbip, WhatIsLateComesByItself) {
  camera_->setFault("delay", "20");
  submitOut(1, command(ptp::kOpenSession, 0, {1}));
  EXPECT_EQ(statusOf(1, false), 0);
  submitIn(2, 1, 512);
  EXPECT_EQ(statusOf(2, true), 0);
}

TEST_F(Usbip, ADeviceThatVanishesEndsTheConnection) {
  submitIn(1, 3, 64);
  camera_->setFault("vanish", "");
  submitOut(2, command(ptp::kOpenSession, 0, {1}));
  EXPECT_EQ(statusOf(2, false), -ESHUTDOWN);
  EXPECT_EQ(statusOf(1, true), -ESHUTDOWN);
  EXPECT_TRUE(hasEnded());
  connection_.reset();
  EXPECT_TRUE(vanished_);
}

TEST_F(Usbip, AnImporterThatBreaksTheProtocolIsLetGo) {
  using Rest = std::array<std::uint32_t, 5>;
  const std::pair<std::uint32_t, Rest> rows[] = {
      {7, {}},                                     // no command
      {usbip::kSubmit, {0, 0x7FFFFFFF, 0, 0, 0}},  // more than any transfer has
      {usbip::kSubmit, {0, 64, 0, 3, 0}},          // isochronous
  };
  for (const auto& [code, rest] : rows) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    ours_ = FileDescriptor(ends[0]);
    UsbipConnection connection(FileDescriptor(ends[1]), camera_, [] {});
    send(code, 1, true, 1, rest);
    EXPECT_TRUE(hasEnded());
  }
}

}  // namespace
}  // namespace tarvo::simulator
