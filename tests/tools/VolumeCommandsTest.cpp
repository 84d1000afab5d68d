// volume ls, get and rm on a mounted card.
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

class VolumeTool : public ::testing::Test {
 protected:
  VolumeTool() {
    // The volumes folder of the bench is fixed; its mounts lie in the test's own.
    bench.sim.mounts.moveTo(bench.folder.path("volumes"));
    mount("CARD", "sdb1", "SNCARD");
    write("DCIM/100TARVO/A.JPG", std::string(2500, 'a'));
    write("DCIM/100TARVO/B.MOV", "film");
    write("MISC/NOTES.TXT", "text");
    write(".hidden.jpg", "");
    fs::permissions(bench.folder.path("volumes/CARD/MISC/NOTES.TXT"), fs::perms::owner_all);
  }
  void mount(const std::string& name, const std::string& disk, const std::string& serial) {
    const auto unit = bench.sim.registry.plug({{"IOClass", "usb_device"},
                                               {"USB Product Name", "Dock"},
                                               {"USB Serial Number", serial},
                                               {"idVendor", 0xF055},
                                               {"idProduct", 0x0501},
                                               {"locationID", ++location_}});
    bench.sim.registry.plug({{"IOClass", "block"}, {"BSD Name", disk}}, unit);
    fs::create_directories(bench.folder.path("volumes/" + name));
    bench.sim.mounts.mount("/dev/" + disk, bench.folder.path("volumes/" + name));
  }
  void write(const std::string& name, const std::string& content) {
    bench.folder.write("volumes/CARD/" + name, content);
  }
  ToolRun run(std::vector<std::string> words) {
    words.insert(words.begin(), "volume");
    return bench.run(words);
  }
  ToolRun json(std::vector<std::string> words) {
    words.emplace_back("--json");
    return run(std::move(words));
  }
  ToolRun get(std::vector<std::string> words) {
    words.insert(words.begin(), "get");
    words.insert(words.end(), {"--output", bench.folder.path("pictures/")});
    return json(std::move(words));
  }
  std::vector<std::string> fetched() const { return bench.folder.names("pictures"); }
  std::vector<std::string> listed(std::vector<std::string> words = {"ls", "--all"}) {
    std::vector<std::string> paths;
    for (const auto& each : json(std::move(words)).json())
      paths.push_back(each.value("path", ""));
    return paths;
  }

  CameraBench bench;

 private:
  std::uint32_t location_ = 0x02000000;
};

TEST_F(VolumeTool, ListsPicturesAndEverything) {
  EXPECT_THAT(listed({"ls"}), UnorderedElementsAre("DCIM/100TARVO/A.JPG", "DCIM/100TARVO/B.MOV"));
  EXPECT_THAT(listed(),
              UnorderedElementsAre("DCIM", "DCIM/100TARVO", "DCIM/100TARVO/A.JPG",
                                   "DCIM/100TARVO/B.MOV", "MISC", "MISC/NOTES.TXT", ".hidden.jpg"));
  const auto objects = json({"ls", "--long"}).json();
  ASSERT_THAT(objects, SizeIs(2));
  for (const auto& object : objects)
    EXPECT_EQ(object["compressedSize"], object["name"] == "A.JPG" ? 2500 : 4) << object;
  EXPECT_THAT(run({"ls", "--long", "--all"}).out,
              AllOf(HasSubstr("JPEG image"), HasSubstr("2.5 kB"), HasSubstr("MISC/\n")));
}

TEST_F(VolumeTool, ShowsNamesThatCannotSteerATerminalAndAreValidJSON) {
  write("new\nline\x1B[2J.jpg", "");
  write("bytes\xFF.jpg", "");
  for (const auto& line : run({"ls"}).lines())
    EXPECT_THAT(line, AllOf(Not(HasSubstr("\x1B")), Not(HasSubstr("\xFF"))));
  EXPECT_THAT(json({"ls"}).json(), SizeIs(4));
  EXPECT_THAT(json({"ls"}).out, HasSubstr("bytes\xEF\xBF\xBD.jpg"));
  EXPECT_EQ(get({"[bn]*.jpg"}).exitCode, 0) << "one pattern, two files";
  EXPECT_THAT(fetched(), UnorderedElementsAre("new_line_[2J.jpg", "bytes\xFF.jpg"));
}

TEST_F(VolumeTool, GetTakesNamesPathsAndPatterns) {
  const auto run = get({"NOTES.TXT", "DCIM/*/A.*", "none", "DCIM"});
  EXPECT_EQ(run.exitCode, tools::kFailed);
  EXPECT_THAT(fetched(), UnorderedElementsAre("NOTES.TXT", "A.JPG"));
  std::map<std::string, int> failed;
  for (const auto& each : run.json())
    if (each.contains("error")) failed[each["name"]] = each["error"]["status"].get<int>();
  EXPECT_EQ(failed, (std::map<std::string, int>{{"none", status::kFileNotFound},
                                                {"DCIM", status::kNotAFile}}));
}

TEST_F(VolumeTool, GetNewTakesThePicturesAndFilmsOfTodaysCamerasAndSaysWhatElseThereIs) {
  for (const char* name : {"C.MP4", "D.MTS", "E.HEIC", "F.AVIF", "G.webp", "H.DNG", "I.CR3"})
    write(name, name);
  const auto run = this->run({"get", "--new", "--output", bench.folder.path("pictures/")});
  EXPECT_THAT(fetched(), SizeIs(9));
  EXPECT_THAT(run.err, HasSubstr("2 files passed over: no pictures or films, or hidden. --all"));
}

TEST_F(VolumeTool, GetNewPassesOverWhatIsThereAndReplacesNothingUnasked) {
  // Of the same name, size and date.
  write("DCIM/101TARVO/A.JPG", std::string(2500, 'b'));
  for (const char* path : {"100TARVO/A.JPG", "101TARVO/A.JPG"})
    fs::last_write_time(bench.folder.path(std::string("volumes/CARD/DCIM/") + path), {});
  EXPECT_EQ(get({"--new"}).exitCode, 0);
  EXPECT_THAT(fetched(), UnorderedElementsAre("A.JPG", "A (2).JPG", "B.MOV"));
  EXPECT_THAT(get({"--new"}).json(), IsEmpty());
  for (const char* lost : {"A.JPG", "A (2).JPG"}) {
    fs::remove(bench.folder.path(std::string("pictures/") + lost));
    EXPECT_EQ(get({"--new"}).exitCode, 0);
    std::set<char> contents;
    for (const auto& name : fetched())
      contents.insert(bench.folder.read("pictures/" + name).front());
    EXPECT_THAT(contents, IsSupersetOf({'a', 'b'})) << "the file that was there may be either";
  }
  fs::remove_all(bench.folder.path("pictures"));
  fs::remove_all(bench.folder.path("volumes/CARD/DCIM/101TARVO"));
  bench.folder.write("pictures/A.JPG", "mine");
  EXPECT_EQ(get({"A.JPG"}).json()[0]["error"]["status"], status::kDuplicateFile);
  EXPECT_EQ(bench.folder.read("pictures/A.JPG"), "mine");
  EXPECT_EQ(get({"A.JPG", "--keep-both"}).exitCode, 0);
  EXPECT_EQ(get({"--all", "--overwrite"}).exitCode, 0);
  EXPECT_THAT(fetched(),
              UnorderedElementsAre("A.JPG", "A (2).JPG", "B.MOV", "NOTES.TXT", "_hidden.jpg"));
  EXPECT_EQ(fs::status(bench.folder.path("pictures/NOTES.TXT")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write)
      << "it is no program";
  const auto onto = run({"get", "--all", "--output", bench.folder.path("volumes/CARD/DCIM")});
  EXPECT_THAT(onto.err, HasSubstr("lies on the volume itself"));
}

TEST_F(VolumeTool, NeverFollowsALinkOfTheVolume) {
  bench.folder.write("secret.jpg", "secret");
  fs::create_symlink(bench.folder.path("secret.jpg"), bench.folder.path("volumes/CARD/link.jpg"));
  fs::create_directory_symlink(bench.folder.path(), bench.folder.path("volumes/CARD/out"));
  EXPECT_THAT(listed({"ls"}), Each(HasSubstr("DCIM/")));
  EXPECT_THAT(get({"link.jpg", "out/secret.jpg", "--all"}).out, HasSubstr("it is a link"));
  EXPECT_THAT(fetched(), UnorderedElementsAre("A.JPG", "B.MOV", "NOTES.TXT", "_hidden.jpg"));
  EXPECT_EQ(run({"rm", "link.jpg", "--yes"}).exitCode, 0);
  EXPECT_TRUE(bench.folder.exists("secret.jpg"));
}

TEST_F(VolumeTool, RemoveAsksHowMuchAndTakesFilesAndLeavesFolders) {
  const Terminal no("no\n");
  bench.terminal = no.path();
  EXPECT_EQ(json({"rm", "*.JPG", "NOTES.TXT"}).json()["error"]["status"], status::kCancelled);
  EXPECT_THAT(no.shown(), HasSubstr("Delete 2 files, 2.5 kB, from CARD? [y/N] "));
  EXPECT_THAT(listed(), SizeIs(7));
  EXPECT_THAT(run({"rm", "*.JPG", "MISC/NOTES.TXT", "DCIM", "none", "--yes"}).err,
              HasSubstr("2 files deleted, 2 failed"));
  EXPECT_THAT(listed(), UnorderedElementsAre("DCIM", "DCIM/100TARVO", "DCIM/100TARVO/B.MOV", "MISC",
                                             ".hidden.jpg"));
}

TEST_F(VolumeTool, IsReachedByEveryCommandForObjects) {
  const auto all = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"--device", "card"});
    return bench.done(words);
  };
  EXPECT_THAT(all({"ls"}).lines(), SizeIs(4)) << "the top, without what lies in folders";
  EXPECT_THAT(all({"ls", "dcim/100tarvo"}).out, HasSubstr("\nDCIM/100TARVO/A.JPG\n"));
  EXPECT_THAT(all({"get", "--films", "--tree", "-o", bench.folder.path("tree/")}).lines(),
              SizeIs(1));
  EXPECT_EQ(bench.folder.read("tree/DCIM/100TARVO/B.MOV"), "film");
  all({"rm", "B.MOV", "-y"});
  EXPECT_THAT(listed(), SizeIs(6));
}

TEST_F(VolumeTool, IsEjected) {
  EXPECT_THAT(bench.run({"--device", "CARD", "eject"}).err, HasSubstr("is still mounted"));
  bench.disks.onRun = [&] { bench.sim.mounts.unmount(bench.folder.path("volumes/CARD")); };
  EXPECT_THAT(bench.done({"eject"}).out, HasSubstr("can be taken away"));
  EXPECT_THAT(bench.disks.take(), Contains("unmount sdb1"));
  EXPECT_THAT(bench.done({"eject"}).out, HasSubstr("can simply be unplugged"));
}

TEST_F(VolumeTool, IsForTheOneVolumeOrTheOneThatIsNamed) {
  mount("SECOND", "sdc1", "SN2");
  EXPECT_EQ(run({"ls"}).exitCode, tools::kBadUsage);
  for (const char* device : {"SNCARD", "CARD", "0x02000001"})
    EXPECT_THAT(bench.run({"--device", device, "volume", "ls"}).lines(), SizeIs(3)) << device;
  EXPECT_EQ(bench.run({"--device", "TLX2-000417", "volume", "ls"}).exitCode, tools::kNoDevice);
  for (const char* name : {"CARD", "SECOND"})
    bench.sim.mounts.unmount(bench.folder.path(std::string("volumes/") + name));
  EXPECT_EQ(run({"ls"}).exitCode, tools::kNoDevice);
}

TEST_F(VolumeTool, WhatTheUserEndsLeavesNothingBehind) {
  const StopSignals interrupt;
  bench.interrupt = &interrupt;
  ::raise(SIGINT);
  EXPECT_EQ(get({"--all"}).exitCode, tools::kInterrupted);
  EXPECT_THAT(fetched(), IsEmpty());
}

}  // namespace
}  // namespace tarvo::test
