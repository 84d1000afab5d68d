#include "platform/foundation/UnixMountTable.h"

#include <gtest/gtest.h>

#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using Mounts = std::vector<Mount>;

TEST(MountInfoTest, ALineGivesItsSourceAndMountPointUnescaped) {
  const std::pair<const char*, Mounts> rows[] = {
      {"36 35 98:0 / /media/u/CARD rw,noatime shared:1 - ext3 /dev/sdb1 rw\n",
       {{"/dev/sdb1", "/media/u/CARD"}}},
      {R"(36 35 98:0 / /media/My\040Card\134\011\012 rw - vfat /dev/s\040d rw)",
       {{"/dev/s d", "/media/My Card\\\t\n"}}},
      {R"(36 35 98:0 / /media/a\04\9\ rw - vfat /dev/sdb1 rw)",
       {{"/dev/sdb1", R"(/media/a\04\9\)"}}},
      {"1 1 1:1 / /a rw - t /dev/a rw\n\nnonsense\n2 1 1:2 / /b rw - t /dev/b rw\n",
       {{"/dev/a", "/a"}, {"/dev/b", "/b"}}},
      {"36 35 98:0 / /a rw - ext3", {}},
      {"36 35 98:0 / /a rw shared:1 ext3 /dev/sdb1 rw", {}},
  };
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(mountsOfMountInfo(text), expected) << text;
}

class UnixMountTableTest : public testing::Test {
 protected:
  TemporaryFolder folder_;
  RecordingSystemLog log_;
  FakeUserDefaults defaults_;
};

TEST_F(UnixMountTableTest, TheDeviceAtAPathIsTheOneMountedThereLast) {
  const UnixMountTable table(defaults_, log_.sink(),
                             folder_.write("mountinfo",
                                           "1 1 1:1 / / rw - t /dev/root rw\n"
                                           "2 1 1:2 / /m/A rw - t /dev/sdb1 rw\n"
                                           "3 1 1:3 / /m/A rw - t /dev/sdc1 rw\n"));
  EXPECT_EQ(table.deviceMountedAt("/m/A"), "/dev/sdc1");
  EXPECT_EQ(table.deviceMountedAt("/m/A/"), "/dev/sdc1");
  EXPECT_EQ(table.deviceMountedAt("/"), "/dev/root");
  for (const char* path : {"/m", "/m/AB", "/m/A/b", "m/A", ""})
    EXPECT_EQ(table.deviceMountedAt(path), std::nullopt) << path;
}

TEST_F(UnixMountTableTest, TheVolumesFolderIsConfiguredOrTheUsers) {
  defaults_.setText("Platform", "VolumesFolder", "/srv/volumes/");
  EXPECT_EQ(UnixMountTable(defaults_, log_.sink()).volumesFolder(), "/srv/volumes");
  EXPECT_TRUE(log_.lines().empty());
  defaults_.setText("Platform", "VolumesFolder", "volumes");
  const std::string user = g_get_user_name();
  const std::string folder = UnixMountTable(defaults_, log_.sink()).volumesFolder();
  EXPECT_TRUE(folder == "/media/" + user || folder == "/run/media/" + user) << folder;
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{"[Platform] VolumesFolder is ignored: "
                                                    "'volumes' is no absolute path"}));
}

}  // namespace
}  // namespace tarvo::test
