#include "tests/testbed/ToolTestbed.h"

#include <cstdlib>
#include <filesystem>

namespace tarvo::test {

ToolTestbed::ToolTestbed()
    : testbed_(std::make_unique<simulator::Testbed>(folder_.path("volumes"))) {
  std::filesystem::create_directories(testbed_->volumes());
  std::filesystem::create_directories(folder_.path("work"));
  folder_.write("config/tarvo/agent.conf",
                "[Platform]\nVolumesFolder=" + testbed_->volumes().string() + "\n");
}

simulator::DeviceDescription ToolTestbed::camera(const std::string& name) {
  auto description =
      simulator::DeviceDescription::fromFile(std::string(DEVICES_FOLDER) + "/" + name + ".json");
  if (!description.stores.empty()) description.stores.front().free = 1'000'000'000;
  description.vendor.queryRows = std::vector<std::string>{"1|TARV0001.JPG\n"};
  return description;
}

std::string ToolTestbed::plug(simulator::DeviceDescription description) {
  return testbed_->plug(std::move(description), "device");
}

std::unique_ptr<TestbedProgram> ToolTestbed::program(const std::string& line,
                                                     const std::string& out,
                                                     const std::string& err) {
  // What an earlier program said must not pass for what this one says.
  std::filesystem::remove(folder_.path(out));
  std::filesystem::remove(folder_.path(err));
  // The shell becomes the program, so that a signal reaches it.
  const std::string script = "cd '" + folder_.path("work") + "' && exec 2>'" + folder_.path(err) +
                             "' </dev/null && " + line;
  const std::string path = std::string(TOOL_FOLDER) + ":" + std::getenv("PATH");
  return std::make_unique<TestbedProgram>(
      *testbed_, std::vector<std::string>{"/bin/bash", "-c", script},
      std::map<std::string, std::string>{{"PATH", path},
                                         {"TARVO_AGENT_BUNDLE", BUNDLE_FOLDER},
                                         {"XDG_CONFIG_HOME", folder_.path("config")},
                                         {"XDG_CONFIG_DIRS", folder_.path("none")},
                                         {"XDG_DATA_HOME", folder_.path("data")}},
      folder_.path(out));
}

void ToolTestbed::start(const std::string& words) {
  running_ = program("exec tarvoctl " + words, "out", "err");
}

std::unique_ptr<TestbedProgram> ToolTestbed::startAnother(const std::string& words) {
  return program("exec tarvoctl " + words, "other", "other.err");
}

ToolTestbed::Run ToolTestbed::finish() {
  Run run;
  run.exitCode = running_->waitForEnd();
  running_.reset();
  run.out = out();
  run.err = err();
  return run;
}

ToolTestbed::Run ToolTestbed::tool(const std::string& words) {
  start(words);
  return finish();
}

ToolTestbed::Run ToolTestbed::shell(const std::string& line) {
  running_ = program(line, "out", "err");
  return finish();
}

}  // namespace tarvo::test
