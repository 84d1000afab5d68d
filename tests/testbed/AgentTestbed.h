// The unmodified agent in a testbed: private buses, its own configuration, stand-ins for the
// maker's applications, and virtual devices.
//
//   class Arrival : public AgentTestbed {};
//   TEST_F(Arrival, StartsTheRelay) {
//     startAgent();
//     plug("tarvo-camera");
//     EXPECT_EQ(relayArguments(0), commandLine("PTP", 0x01100000));
//   }
#pragma once

#include <gmock/gmock.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/ptp/PTPCamera.h"
#include "simulator/testbed/Bundle.h"
#include "simulator/testbed/Testbed.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {

/// A program in the testbed, with what it writes in a file. Ended at the latest with its owner.
class TestbedProgram {
 public:
  /// Started with `environment` beside this process's own.
  TestbedProgram(simulator::Testbed& testbed, const std::vector<std::string>& command,
                 const std::map<std::string, std::string>& environment, std::string output);
  TestbedProgram(const TestbedProgram&) = delete;
  TestbedProgram& operator=(const TestbedProgram&) = delete;
  ~TestbedProgram();

  pid_t pid() const { return pid_; }
  std::string output() const;
  bool isRunning();
  void signal(int number) const;
  /// Exit code after it has ended; 128 and more for a signal; none when it has not within 20 s.
  std::optional<int> waitForEnd();

 private:
  std::string output_;
  GObjectPtr<GSubprocess> process_;
  pid_t pid_ = 0;
};

class AgentTestbed : public ::testing::Test {
 public:
  ~AgentTestbed() override;  // NOLINT(bugprone-exception-escape)

 protected:
  AgentTestbed();

  // Before the agent starts.
  void setEnvironment(const std::string& name, const std::string& value) {
    environment_[name] = value;
  }
  void configure(const std::string& group, const std::string& key, const std::string& value);

  /// Starts the agent and waits until it says that it is ready.
  void startAgent();
  /// One more program in the same environment, not waited for.
  std::unique_ptr<TestbedProgram> makeProgram(const std::string& logName,
                                              const std::vector<std::string>& command = {
                                                  AGENT_PROGRAM});
  TestbedProgram& agent() { return *agent_; }

  /// Whether the agent has logged `text`, or does within the deadline; `count` times in all.
  bool waitForLog(const std::string& text, std::size_t count = 1);
  bool hasLogged(const std::string& text) const { return timesLogged(text) > 0; }
  std::size_t timesLogged(const std::string& text) const;

  std::string plug(const std::string& name, const std::optional<std::string>& port = std::nullopt);
  /// A shipped description, to be changed before it is plugged.
  static simulator::DeviceDescription description(const std::string& name);
  std::string plug(simulator::DeviceDescription description,
                   const std::optional<std::string>& port = std::nullopt);
  simulator::PTPCamera& camera(const std::string& id) { return *testbed_->device(id)->camera; }

  /// What the stand-ins of a name have reported, in order.
  std::vector<nlohmann::json> launches(const std::string& program) const;
  /// The launch at `index` of the Relay, waited for; null when it does not come.
  nlohmann::json relayLaunch(std::size_t index);
  std::vector<std::string> relayArguments(std::size_t index);
  /// What the Relay is to be started with.
  static std::vector<std::string> commandLine(const char* type, std::int32_t location,
                                              const std::string& volume = {});
  /// Ends the Relay of the launch at `index`, and waits until the agent has noticed.
  void endRelay(std::size_t index);
  /// Tells the application of a launch to end.
  static void end(const nlohmann::json& launch);

  static constexpr const char* kRelay = "Tarvo Relay";

  TemporaryFolder folder_;
  PrivateBus sessionBus_;
  PrivateBus systemBus_;
  std::unique_ptr<simulator::Testbed> testbed_;
  simulator::BundlePaths bundle_;

 private:
  void writeConfiguration() const;
  std::string log() const;

  std::map<std::string, std::string> environment_;
  std::map<std::string, std::map<std::string, std::string>> configuration_;
  std::unique_ptr<TestbedProgram> agent_;
};

}  // namespace tarvo::test
