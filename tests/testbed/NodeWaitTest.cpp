// How a host waits at an emulated node: without being told over and over that it may reap.
#include <fcntl.h>
#include <poll.h>

#include "Utilities/FileDescriptor.h"
#include "tests/support/ViolationCheck.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;

class NodeWait : public AgentTestbed {
 protected:
  void TearDown() override { expectNoViolations(*testbed_); }

  std::unique_ptr<TestbedProgram> probe(const std::string& id, std::vector<std::string> commands) {
    commands.insert(commands.begin(), {PROBE_PROGRAM, testbed_->device(id)->address.node()});
    return std::make_unique<TestbedProgram>(
        *testbed_, commands, std::map<std::string, std::string>(), folder_.path("probe"));
  }
  /// Whether the file behind the node says that something can be reaped.
  bool isReady(const std::string& id) {
    const auto path = testbed_->root().string() + testbed_->device(id)->address.node();
    const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    pollfd state{file.get(), POLLOUT, 0};
    EXPECT_TRUE(file.isOpen()) << path;
    return ::poll(&state, 1, 0) == 1;
  }
};

TEST_F(NodeWait, AnEventEndsTheWaitOfTheHost) {
  const auto id = plug("tarvo-camera");
  const auto waiting = probe(id, {"claim", "event"});
  ASSERT_TRUE(waitUntil([&] { return waiting->output().find("waiting") != std::string::npos; }));
  EXPECT_FALSE(isReady(id));
  camera(id).sendEvent(0x4002, {7});
  EXPECT_EQ(waiting->waitForEnd(), 0);
  EXPECT_THAT(waiting->output(), HasSubstr("event LIBUSB_SUCCESS"));
  EXPECT_THAT(waiting->output(), HasSubstr("16 bytes code 0x4002"));
}

TEST_F(NodeWait, ALateAnswerComesByItself) {
  const auto id = plug("tarvo-camera");
  ASSERT_EQ(camera(id).setFault("delay", "100,0x1006"), "");
  const auto host = probe(id, {"claim", "session", "num"});
  EXPECT_EQ(host->waitForEnd(), 0);
  EXPECT_THAT(host->output(), HasSubstr("num LIBUSB_SUCCESS / LIBUSB_TRANSFER_COMPLETED response "
                                        "0x2001"));
}

TEST_F(NodeWait, AHostThatWaitsIsToldThatTheDeviceHasGone) {
  const auto id = plug("tarvo-camera");
  const auto waiting = probe(id, {"claim", "event"});
  ASSERT_TRUE(waitUntil([&] { return waiting->output().find("waiting") != std::string::npos; }));
  testbed_->unplug(id);
  EXPECT_EQ(waiting->waitForEnd(), 0);
  EXPECT_THAT(waiting->output(), HasSubstr("event LIBUSB_ERROR_NO_DEVICE"));
}

}  // namespace
}  // namespace tarvo::test
