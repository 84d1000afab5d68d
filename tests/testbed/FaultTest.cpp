// Cameras that misbehave: whatever one does, the agent lives and serves the next one.
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::IsEmpty;

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

class HeldDevice : public AgentTestbed {};

TEST_F(HeldDevice, IsReportedWithItsHolderAndTakenWhenItIsFree) {
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
