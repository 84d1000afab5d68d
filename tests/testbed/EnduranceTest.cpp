// Many arrivals: what the agent holds at the end is what it held after the first few.
#include <fstream>

#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

class Endurance : public AgentTestbed {
 protected:
  /// With the lines that tell of devices that come and go.
  Endurance() { configure("Preferences", "LOG_SUBSYS_APP_DEBUG", "true"); }

  std::size_t descriptors() {
    const auto folder = "/proc/" + std::to_string(agent().pid()) + "/fd";
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
  }

  long residentKilobytes() {
    std::ifstream status("/proc/" + std::to_string(agent().pid()) + "/status");
    std::string word;
    long value = 0;
    while (status >> word) {
      if (word == "VmRSS:") status >> value;
    }
    return value;
  }

  /// Plugs a camera into each of `ports` ports, lets the agent inspect and drop all, and unplugs.
  void round(unsigned ports) {
    std::vector<std::string> ids;
    for (unsigned port = 1; port <= ports; ++port) {
      auto device = description("unsupported-model");
      // A serial number of its own: two cameras of one number count as the same one.
      device.usb.serial = device.info.serial = "TPRO-" + std::to_string(port);
      ids.push_back(plug(std::move(device), "1-" + std::to_string(port)));
    }
    inspected_ += ports;
    ASSERT_TRUE(waitForLog("ignoring invalid mass storage device.", inspected_));
    for (const auto& id : ids)
      testbed_->unplug(id);
    ASSERT_TRUE(waitForLog("went: 'Tarvo Prototype'", inspected_));
  }

 private:
  std::size_t inspected_ = 0;
};

TEST_F(Endurance, TwoHundredArrivalsLeaveDescriptorsAndMemoryFlat) {
  constexpr unsigned kPorts = 10;
  constexpr unsigned kRounds = 20;
  startAgent();
  for (unsigned i = 0; i < kRounds / 4; ++i)
    round(kPorts);
  const auto descriptorsBefore = descriptors();
  [[maybe_unused]] const auto memoryBefore = residentKilobytes();
  for (unsigned i = kRounds / 4; i < kRounds; ++i)
    round(kPorts);
  EXPECT_EQ(descriptors(), descriptorsBefore);
#ifndef __SANITIZE_ADDRESS__  // which keeps freed memory for a while
  EXPECT_LE(residentKilobytes(), memoryBefore + 256);
#endif
  plug("tarvo-camera", "1-1");
  EXPECT_THAT(relayArguments(0), ::testing::ElementsAre("PTP", std::to_string(0x01100000), ""));
}

TEST_F(Endurance, CamerasThatComeAndGoAtOnceLeaveNothingBehind) {
  startAgent();
  plug("tarvo-camera", "1-1");
  end(relayLaunch(0));
  ASSERT_TRUE(waitForLog("got RLA died notification"));
  const auto descriptorsBefore = descriptors();
  for (std::size_t i = 1; i <= 50; ++i) {
    const auto id = plug("second-camera", "1-5");
    ASSERT_TRUE(waitForLog("came: 'Tarvo Lumo Z5'", i));
    testbed_->unplug(id);
    ASSERT_TRUE(waitForLog("went: 'Tarvo Lumo Z5'", i));
  }
  EXPECT_EQ(descriptors(), descriptorsBefore);
}

}  // namespace
}  // namespace tarvo::test
