// What the agent does when devices arrive, shown on the unmodified program; whatever a camera does,
// the agent lives and serves the next one.
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;

class Arrival : public AgentTestbed {};

TEST_F(Arrival, ADeviceStartsTheRelayWithItsTypeLocationAndVolumeAndMayBeClaimed) {
  const std::tuple<const char*, const char*, const char*, std::int32_t, std::string> rows[] = {
      {"tarvo-camera", "1-1", "PTP", 0x01100000, ""},
      {"tarvo-camera", "1-4.2", "PTP", 0x01420000, ""},  // a port behind a hub
      {"tarvo-camera", "250-2", "PTP", -98566144, ""},   // beyond the signed range
      {"msc-camera", "1-3", "MSC", 0x01300000, "TARVO_LUMO"},
      {"card", "1-3", "card", 0x01300000, "TARVO_CARD"},
  };
  startAgent();
  std::size_t index = 0;
  for (const auto& [device, port, type, location, name] : rows) {
    const auto id = plug(device, port);
    const auto volume = name.empty() ? "" : (testbed_->volumes() / name).string();
    EXPECT_EQ(relayArguments(index), commandLine(type, location, volume)) << port;
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

struct FaultCase {
  const char* name;
  const char* fault;
  const char* value;
  bool launched;  ///< whether the faulty camera is good enough to be launched for
};

class Fault : public AgentTestbed, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(Fault, LeavesTheAgentReadyForTheNextCamera) {
  const auto& row = GetParam();
  startAgent();
  auto faulty = description("tarvo-camera");
  ASSERT_EQ(faulty.faults.set(row.fault, row.value), "");
  const auto id = plug(faulty, "1-1");
  const auto device = testbed_->device(id)->camera;
  ASSERT_TRUE(waitUntil([&] { return device->counts().transactions > 0; }));
  if (row.launched) {
    EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
    ASSERT_NO_FATAL_FAILURE(endRelay(0));
  }
  plug("second-camera", "1-5");
  EXPECT_EQ(relayArguments(row.launched ? 1 : 0), commandLine("PTP", 0x01500000));
  EXPECT_THAT(device->violations(), IsEmpty());
  agent().signal(SIGINT);
  EXPECT_EQ(agent().waitForEnd(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, Fault,
    ::testing::Values(FaultCase{"Stalls", "stall", "0x1001", false},
                      FaultCase{"StallsInTheVendorQuery", "stall", "0x920A", false},
                      FaultCase{"StaysSilent", "silent", "", false},
                      FaultCase{"AnswersAnotherTransaction", "wrong-id", "", false},
                      FaultCase{"SendsGarbage", "garbage", "", false},
                      FaultCase{"SendsHardlyAnyDeviceInfo", "truncate", "2", false},
                      // What is missing reads as zeros; the vendor's id is there.
                      FaultCase{"CutsItsDeviceInfo", "truncate", "40", true},
                      FaultCase{"ClaimsTooFewBytes", "lie-short", "0x1001", false},
                      FaultCase{"ClaimsTooManyBytes", "lie-long", "0x1001", false},
                      FaultCase{"RefusesTheVendorQueries", "raise", "", false},
                      FaultCase{"VanishesInTheData", "vanish", "0x1001", false},
                      FaultCase{"VanishesInTheVendorQuery", "vanish", "0x920A", false},
                      FaultCase{"IsSlow", "delay", "100", true},
                      FaultCase{"SplitsHeaderAndData", "split-header", "", true},
                      FaultCase{"OmitsZeroLengthPackets", "no-zlp", "", true}),
    [](const auto& row) { return std::string(row.param.name); });

struct SlowCase {
  const char* name;
  std::vector<std::pair<const char*, const char*>> faults;
  const char* words = "cancelled";  ///< of what became of the inspection
};

class SlowDevice : public AgentTestbed, public ::testing::WithParamInterface<SlowCase> {};

TEST_P(SlowDevice, DoesNotKeepTheAgentThatIsToEnd) {
  startAgent();
  auto slow = description("tarvo-camera");
  slow.habits.noClassRequests = true;
  slow.info.bytesBehind = 20000;
  for (const auto& [fault, value] : GetParam().faults)
    ASSERT_EQ(slow.faults.set(fault, value), "");
  const auto device = testbed_->device(plug(slow))->camera;
  ASSERT_TRUE(waitUntil([&] { return device->counts().transactions > 0; }));
  agent().signal(SIGTERM);
  EXPECT_EQ(agent().waitForEnd(), 0);
  EXPECT_TRUE(hasLogged(std::string("is not used: ") + GetParam().words));
}

INSTANTIATE_TEST_SUITE_P(Cameras, SlowDevice,
                         ::testing::Values(SlowCase{"Silent", {{"silent", ""}}},
                                           SlowCase{"SilentBehindTheHeader", {{"stop", "12"}}},
                                           SlowCase{"Trickling", {{"trickle", "400"}}},
                                           SlowCase{"Deaf", {{"silent", ""}, {"deaf", ""}}},
                                           // Where the signal comes while the device is got back in
                                           // step it is no longer the signal that counts.
                                           SlowCase{"Endless", {{"endless", ""}}, ""}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(Arrival, OfADeviceThatIsHeldIsReportedWithItsHolderAndTakenWhenItIsFree) {
  plug("tarvo-camera", "1-1");
  auto holder = makeProgram("holder", {TOOL_FOLDER "/tarvoctl", "events"});
  ASSERT_TRUE(waitUntil([&] { return holder->output().find("Watching") != std::string::npos; }));
  startAgent();
  EXPECT_TRUE(waitForLog("is waited for: "));
  EXPECT_TRUE(hasLogged("tarvoctl"));
  EXPECT_TRUE(hasLogged(std::to_string(holder->pid())));
  EXPECT_THAT(launches(kRelay), IsEmpty());
  holder.reset();
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
}

}  // namespace
}  // namespace tarvo::test
