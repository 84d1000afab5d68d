// What the agent does when devices arrive, shown on the unmodified program.
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;

class Arrival : public AgentTestbed {};

TEST_F(Arrival, ADeviceStartsTheRelayWithItsTypeLocationAndVolumeAndMayBeClaimed) {
  struct Row {
    const char* device;
    const char* port;
    const char* type;
    std::int32_t location;
    const char* volume;
  };
  const Row rows[] = {
      {"tarvo-camera", "1-1", "PTP", 0x01100000, ""},
      {"tarvo-camera", "1-4.2", "PTP", 0x01420000, ""},  // a port behind a hub
      {"tarvo-camera", "250-2", "PTP", -98566144, ""},   // beyond the signed range
      {"msc-camera", "1-3", "MSC", 0x01300000, "TARVO_LUMO"},
      {"card", "1-3", "card", 0x01300000, "TARVO_CARD"},
  };
  startAgent();
  std::size_t index = 0;
  for (const auto& row : rows) {
    const auto id = plug(row.device, row.port);
    const std::string volume =
        *row.volume == '\0' ? "" : (testbed_->volumes() / row.volume).string();
    EXPECT_EQ(relayArguments(index), commandLine(row.type, row.location, volume)) << row.port;
    if (testbed_->device(id)->camera) {
      EXPECT_THAT(camera(id).violations(), IsEmpty());
      EXPECT_EQ(relayLaunch(index)["claim"]["claimed"], true) << relayLaunch(index);
      EXPECT_EQ(relayLaunch(index)["claim"]["response"], 0x2001) << relayLaunch(index);
    }
    ASSERT_NO_FATAL_FAILURE(endRelay(index++));
    testbed_->unplug(id);
  }
}

TEST_F(Arrival, ACameraThatIsThereAtTheStartIsFoundToo) {
  plug("tarvo-camera");
  startAgent();
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
}

TEST_F(Arrival, UnsupportedAndForeignCamerasAreIgnored) {
  startAgent();
  const auto unsupported = plug("unsupported-model", "1-1");
  const auto foreign = plug("foreign-camera", "1-2");
  EXPECT_TRUE(waitForLog("ignoring invalid mass storage device."));
  EXPECT_THAT(camera(unsupported).operations(), Contains(0x1001));
  plug("tarvo-camera", "1-9");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01900000));
  EXPECT_EQ(timesLogged("newImageCaptureDeviceAdded - entered"), 2U);  // the foreign one is silent
}

TEST_F(Arrival, ASecondCameraIsIgnoredWhileTheRelayRunsAndStartsItAfterItsEnd) {
  startAgent();
  plug("tarvo-camera");
  ASSERT_FALSE(relayLaunch(0).is_null());
  const auto second = plug("second-camera");
  EXPECT_TRUE(waitForLog("RelayApp is already running. Ignoring this camera event."));
  ASSERT_NO_FATAL_FAILURE(endRelay(0));
  testbed_->unplug(second);
  plug("second-camera", "1-5");
  EXPECT_EQ(relayArguments(1), commandLine("PTP", 0x01500000));
}

TEST_F(Arrival, ACameraThatIsGoneWithinTheHalfSecondIsNotTouched) {
  configure("Preferences", "LOG_SUBSYS_CAMERA_VERBOSE", "true");
  startAgent();
  const auto first = plug("tarvo-camera");
  const auto gone = testbed_->device(first)->camera;
  ASSERT_TRUE(waitForLog("came: 'Tarvo Lumo X2'"));
  testbed_->unplug(first);
  plug("second-camera", "1-5");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01500000));
  EXPECT_THAT(gone->operations(), IsEmpty());
}

TEST_F(Arrival, AnArrivalCostsTheSameWhateverTheCameraHolds) {
  startAgent();
  const auto small = plug("tarvo-camera", "1-1");
  ASSERT_NO_FATAL_FAILURE(endRelay(0));
  const auto big = plug("big-store", "1-2");
  ASSERT_FALSE(relayLaunch(1).is_null());
  EXPECT_EQ(camera(small).counts().transactions, camera(big).counts().transactions);
}

TEST_F(Arrival, OnSystem1062CamerasArriveAndAnAVIEventStartsASearch) {
  configure("Platform", "SystemVersion", "0x1062");
  startAgent();
  plug("tarvo-camera", "1-1");
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
  EXPECT_TRUE(hasLogged("addDeviceNotificationCB - entered"));
  EXPECT_FALSE(hasLogged("starting Lost Device Timer"));
  ASSERT_NO_FATAL_FAILURE(endRelay(0));
  auto device = description("tarvo-camera");
  device.usb.name = "CLIP.AVI";
  plug(device, "1-5");
  EXPECT_TRUE(waitForLog("starting Lost Device Timer"));
  EXPECT_EQ(relayArguments(1), commandLine("PTP", 0x01500000));
}

TEST_F(Arrival, ManyArrivalsLeaveTheDescriptorsFlat) {
  configure("Preferences", "LOG_SUBSYS_APP_DEBUG", "true");
  startAgent();
  const auto files = "/proc/" + std::to_string(agent().pid()) + "/fd";
  const auto opened = [&] { return std::distance(std::filesystem::directory_iterator(files), {}); };
  std::ptrdiff_t before = 0;
  for (std::size_t number = 1; number <= 20; ++number) {
    const auto id = plug("unsupported-model", "1-1");
    ASSERT_TRUE(waitForLog("ignoring invalid mass storage device.", number));
    testbed_->unplug(id);
    ASSERT_TRUE(waitForLog("went: 'Tarvo Prototype'", number));
    if (number == 3) before = opened();
  }
  EXPECT_EQ(opened(), before);
}

}  // namespace
}  // namespace tarvo::test
