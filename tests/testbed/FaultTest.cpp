// Cameras that misbehave: whatever one does, the agent lives and serves the next one.
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

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

/// With a plain libusb program at it.
class ProbedDevice : public AgentTestbed {
 protected:
  std::unique_ptr<TestbedProgram> probe(const std::string& id, std::vector<std::string> commands) {
    commands.insert(commands.begin(), {PROBE_PROGRAM, testbed_->device(id)->address.node()});
    return std::make_unique<TestbedProgram>(
        *testbed_, commands, std::map<std::string, std::string>(), folder_.path("probe"));
  }
};

TEST_F(ProbedDevice, IsReportedWithItsHolderAndTakenWhenItIsFree) {
  const auto id = plug("tarvo-camera", "1-1");
  auto holder = probe(id, {"claim", "hold"});
  ASSERT_TRUE(waitUntil([&] { return !holder->output().empty(); }));
  EXPECT_THAT(holder->output(), HasSubstr("claim LIBUSB_SUCCESS"));
  startAgent();
  EXPECT_TRUE(waitForLog("is waited for: "));
  EXPECT_TRUE(hasLogged("ptp_probe"));
  EXPECT_TRUE(hasLogged(std::to_string(holder->pid())));
  EXPECT_THAT(launches(kRelay), IsEmpty());
  holder.reset();
  EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
}

TEST_F(ProbedDevice, EndsWhatIsInFlightWhenTheDeviceIsUnplugged) {
  const auto id = plug("tarvo-camera");
  ASSERT_EQ(camera(id).setFault("silent", ""), "");
  const auto device = testbed_->device(id)->camera;
  const auto waiting = probe(id, {"claim", "info", "info"});
  ASSERT_TRUE(waitUntil([&] { return device->counts().transactions == 1; }));
  testbed_->unplug(id);
  EXPECT_EQ(waiting->waitForEnd(), 0);
  EXPECT_THAT(waiting->output(), HasSubstr("info LIBUSB_ERROR_NO_DEVICE"));
  EXPECT_THAT(waiting->output(), Not(HasSubstr("TIMEOUT")));
}

}  // namespace
}  // namespace tarvo::test
