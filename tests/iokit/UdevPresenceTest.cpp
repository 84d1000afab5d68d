#include "platform/iokit/UdevRegistry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace tarvo {
namespace {

TEST(UdevPresence, IsDeniedInOneLineThatNamesWhatIsMissing) {
  const std::string root = testing::TempDir() + "udev." + std::to_string(::getpid());
  std::filesystem::create_directories(root);
  EXPECT_EQ(missingPartOfUdev(root), "no " + root + "/sys: devices cannot be found");
  std::filesystem::create_directories(root + "/sys/bus");
  EXPECT_EQ(missingPartOfUdev(root),
            "udev does not run (no " + root + "/run/udev/control): devices may not be noticed");
  std::filesystem::create_directories(root + "/run/udev");
  std::ofstream(root + "/run/udev/control") << "";
  EXPECT_EQ(missingPartOfUdev(root), "");
  std::filesystem::remove_all(root);
}

}  // namespace
}  // namespace tarvo
