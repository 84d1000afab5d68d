// The test program is the testbed itself: it enters namespaces of its own before anything else.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "simulator/testbed/TestbedProcess.h"

namespace {

constexpr int kSkipped = 77;  // known to CTest

/// Temporary files in memory. A testbed makes and removes some 50 files a device, which a disk
/// that is busy with others' builds makes slow.
class MemoryFolder {
 public:
  MemoryFolder() : path_(std::filesystem::temp_directory_path() / "tarvo-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) return;
    if (::mount("tarvo-tests", path_.c_str(), "tmpfs", 0, nullptr) != 0) return;
    ::setenv("TMPDIR", path_.c_str(), 1);
  }
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;
  ~MemoryFolder() {
    ::umount2(path_.c_str(), MNT_DETACH);
    ::rmdir(path_.c_str());
  }

 private:
  std::string path_;
};

}  // namespace

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
  const MemoryFolder folder;
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
