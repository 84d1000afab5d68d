// The test program is the testbed itself: it enters namespaces of its own before anything else.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "simulator/testbed/TestbedProcess.h"

namespace {
constexpr int kSkipped = 77;  // known to CTest
}

int main(int argc, char** argv) {
  try {
    tarvo::simulator::TestbedProcess::enter(argv);
  } catch (const std::system_error& error) {
    std::printf("skipped: no testbed here: %s\n", error.what());
    return kSkipped;
  }
  // Without a journal the agent's lines go to its standard error, which the tests read.
  if (std::filesystem::exists("/run/systemd/journal")) {
    ::mount("none", "/run/systemd", "tmpfs", 0, nullptr);
  }
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
