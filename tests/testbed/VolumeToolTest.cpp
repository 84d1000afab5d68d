// The unmodified tarvoctl where mounts are real: some below a card, and a destination without room.
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>

#include "Utilities/PTPCodes.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// A file system in memory, mounted for the test alone.
class SmallMount {
 public:
  SmallMount(std::string path, const char* options) : path_(std::move(path)) {
    fs::create_directories(path_);
    EXPECT_EQ(::mount("tmpfs", path_.c_str(), "tmpfs", 0, options), 0);
  }
  SmallMount(const SmallMount&) = delete;
  SmallMount& operator=(const SmallMount&) = delete;
  ~SmallMount() { ::umount2(path_.c_str(), MNT_DETACH); }

 private:
  std::string path_;
};

class VolumeTool : public ToolTestbed {
 protected:
  std::string card(const std::string& name) const {
    return folder_.path("volumes/TARVO_CARD/" + name);
  }
};

TEST_F(VolumeTool, DoesNotEnterAMountBelowTheCard) {
  plug(camera("card"));
  const SmallMount below(card("BELOW"), "size=1m");
  folder_.write("volumes/TARVO_CARD/BELOW/other.jpg", "of another file system");
  // The same file system at a second place is another mount, too, and would be a loop.
  fs::create_directories(card("LOOP"));
  ASSERT_EQ(::mount(card("").c_str(), card("LOOP").c_str(), nullptr, MS_BIND, nullptr), 0);
  std::vector<std::string> paths;
  for (const auto& each : tool("--json volume ls --all").json())
    paths.push_back(each.value("path", ""));
  EXPECT_THAT(paths,
              UnorderedElementsAre("BELOW", "LOOP", "MISC", "MISC/IREVIEW.DB", "TARV0001.JPG"));
  EXPECT_EQ(tool("volume rm LOOP/TARV0001.JPG BELOW/other.jpg --yes").exitCode, 1);
  EXPECT_EQ(tool("volume get LOOP/TARV0001.JPG").exitCode, 1);
  ::umount2(card("LOOP").c_str(), MNT_DETACH);
}

TEST_F(VolumeTool, WhatADiskHasNoRoomForIsToldBeforehandAndNotBegun) {
  plug(camera("card"));
  const SmallMount small(folder_.path("work/small"), "size=1m");
  const auto run = tool("volume get --all --output small/");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("no room for all that is to be fetched (2 files, 1.3 MB): 1.0 MB "
                                 "are free in 'small', 262.2 kB are missing.\n"));
  EXPECT_THAT(run.err, ContainsRegex("1 file fetched, .*, 1 without room, 1.3 MB\n$"));
  EXPECT_THAT(folder_.names("work/small"), UnorderedElementsAre("IREVIEW.DB"));
}

TEST_F(VolumeTool, AFullDiskEndsTheTransfers) {
  auto description = camera();
  auto& content = description.stores.front().content;
  content.clear();
  for (const char16_t* name : {u"A.MOV", u"B.MOV", u"C.MOV"}) {
    simulator::ContentNode film;
    film.name = name;
    film.size = 2'000'000;
    film.traits.hidesSize = true;
    content.push_back(film);
  }
  const auto id = plug(std::move(description));
  const SmallMount small(folder_.path("work/small"), "size=1m");
  const auto run = tool("get --all --output small/");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("A.MOV (0x00000001): "));
  EXPECT_THAT(run.err, HasSubstr("No space left on device"));
  EXPECT_THAT(run.err, HasSubstr("0 files fetched, 3 without room"));
  EXPECT_EQ(std::ranges::count(pluggedCamera(id).operations(), ptp::kGetObject), 1);
  EXPECT_THAT(folder_.names("work/small"), IsEmpty());
}

}  // namespace
}  // namespace tarvo::test
