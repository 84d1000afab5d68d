// The unmodified tarvoctl in a testbed: virtual devices, a folder to work in, and both outputs.
//
//   class Fetching : public ToolTestbed {};
//   TEST_F(Fetching, Works) {
//     plug(camera());
//     const auto run = tool("get --all --output pictures/");
//     EXPECT_EQ(run.exitCode, 0) << run.err;
#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "simulator/testbed/Testbed.h"
#include "tests/testbed/AgentTestbed.h"

namespace tarvo::test {

class ToolTestbed : public AgentTestbed {
 protected:
  struct Run {
    std::optional<int> exitCode;
    std::string out;
    std::string err;
    nlohmann::json json() const { return nlohmann::json::parse(out, nullptr, false); }
  };

  ToolTestbed();

  /// A shipped description, with room on the card and rows to query.
  static simulator::DeviceDescription camera(const std::string& name = "tarvo-camera");
  simulator::PTPCamera& pluggedCamera(const std::string& id) { return AgentTestbed::camera(id); }

  /// Runs "tarvoctl WORDS" by the shell, in the folder; the words may redirect.
  Run tool(const std::string& words);
  /// The same for a whole shell line, in which tarvoctl is found.
  Run shell(const std::string& line);
  /// Starts it and goes on; `out()` and `err()` tell what it has said.
  void start(const std::string& words) { running_ = startBeside(words, "out"); }
  std::string out() const { return folder_.read("out"); }
  std::string err() const { return folder_.read("out.err"); }
  TestbedProgram& running() { return *running_; }
  Run finish();
  /// Starts a second one beside it, with its outputs in the files `out` and `out`.err.
  std::unique_ptr<TestbedProgram> startBeside(const std::string& words, const std::string& out) {
    return program("exec tarvoctl " + words, out);
  }

 private:
  std::unique_ptr<TestbedProgram> program(const std::string& line, const std::string& out);

  std::unique_ptr<TestbedProgram> running_;
};

}  // namespace tarvo::test
