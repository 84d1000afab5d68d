#include "tests/testbed/ToolTestbed.h"

#include <cstdlib>
#include <filesystem>

namespace tarvo::test {

ToolTestbed::ToolTestbed() {
  std::filesystem::create_directories(folder_.path("work"));
  setEnvironment("PATH", std::string(TOOL_FOLDER) + ":" + std::getenv("PATH"));
  setEnvironment("XDG_DATA_HOME", folder_.path("data"));
}

simulator::DeviceDescription ToolTestbed::camera(const std::string& name) {
  auto described = description(name);
  if (!described.stores.empty()) described.stores.front().free = 1'000'000'000;
  described.vendor.queryRows = std::vector<std::string>{"1|TARV0001.JPG\n"};
  return described;
}

std::unique_ptr<TestbedProgram> ToolTestbed::program(const std::string& line,
                                                     const std::string& out) {
  // What an earlier program said must not pass for what this one says.
  for (const std::string& file : {out, out + ".err"})
    std::filesystem::remove(folder_.path(file));
  // The shell becomes the program, so that a signal reaches it.
  return makeProgram(out, {"/bin/bash", "-c",
                           "cd '" + folder_.path("work") + "' && exec 2>'" + folder_.path(out) +
                               ".err' </dev/null && " + line});
}

ToolTestbed::Run ToolTestbed::finish() {
  const auto exitCode = running_->waitForEnd();
  running_.reset();
  return {exitCode, out(), err()};
}

ToolTestbed::Run ToolTestbed::tool(const std::string& words) {
  start(words);
  return finish();
}

ToolTestbed::Run ToolTestbed::shell(const std::string& line) {
  running_ = program(line, "out");
  return finish();
}

}  // namespace tarvo::test
