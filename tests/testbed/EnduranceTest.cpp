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

  /// Plugs in as many cameras at once, lets the agent inspect and drop all, and unplugs them. They
  /// share the half second that each waits for its inspection.
  void round(unsigned cameras) {
    std::vector<std::string> ids;
    for (unsigned i = 0; i < cameras; ++i) {
      auto device = description("unsupported-model");
      // A serial number of its own: two cameras of one number count as the same one.
      device.usb.serial = device.info.serial = "TPRO-" + std::to_string(i);
      ids.push_back(
          plug(std::move(device), std::to_string(1 + i / 10) + "-" + std::to_string(1 + i % 10)));
    }
    inspected_ += cameras;
    ASSERT_TRUE(waitForLog("ignoring invalid mass storage device.", inspected_));
    for (const auto& id : ids)
      testbed_->unplug(id);
    ASSERT_TRUE(waitForLog("went: 'Tarvo Prototype'", inspected_));
  }

  std::size_t inspected_ = 0;
};

TEST_F(Endurance, TwoHundredArrivalsLeaveDescriptorsAndMemoryFlat) {
  constexpr unsigned kCameras = 20;
  startAgent();
  for (unsigned i = 0; i < 3; ++i)
    round(kCameras);
  const auto descriptorsBefore = descriptors();
  [[maybe_unused]] const auto memoryBefore = residentKilobytes();
  while (inspected_ < 200 + 3 * kCameras)
    round(kCameras);
  EXPECT_EQ(descriptors(), descriptorsBefore);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep what was freed
  EXPECT_LE(residentKilobytes(), memoryBefore + 256);
#endif
  plug("tarvo-camera", "1-1");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
}

}  // namespace
}  // namespace tarvo::test
