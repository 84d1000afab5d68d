// What is left on this computer is told, and of that only what is ours and unused goes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include <chrono>
#include <filesystem>

#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/PartFile.h"
#include "platform/files/ScratchFolder.h"
#include "tests/tools/SharingBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;

void makeOld(const fs::path& path) {
  fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(2));
}

class Leftovers : public ::testing::Test {
 protected:
  Leftovers() {
    fs::create_directories(bench.folder.path("tmp/tarvo-photos"));
    fs::permissions(bench.folder.path("tmp/tarvo-photos"), fs::perms::owner_all);
    bench.folder.write("tmp/tarvo-photos/MINE.JPG", "people's own");
  }

  std::vector<std::string> words(const std::vector<std::string>& options,
                                 const std::vector<std::string>& names) {
    auto all = options;
    for (const auto& name : names)
      all.push_back(bench.folder.path(name));
    return all;
  }
  /// What there is, a line each: "KIND HOLDS", with " -" behind what was removed, and why what was
  /// not.
  std::vector<std::string> told(const std::vector<std::string>& options,
                                const std::vector<std::string>& names) {
    std::vector<std::string> lines;
    for (const auto& each : bench.done(words(options, names)).json())
      lines.push_back(each.value("kind", "") + " " + each.value("holds", "") +
                      (each.value("removed", false) ? " -" : "") +
                      (each.contains("kept") ? ": " + each.value("kept", "") : ""));
    return lines;
  }

  SharingBench bench{"orders-legacy"};
  ScopedEnvironment temporary{"TMPDIR", bench.folder.path("tmp")};
  const std::vector<std::string> remove = {"--json", "leftovers", "--remove", "--yes"};
};

TEST_F(Leftovers, OfDownloadsGoUnlessTheyAreOpenOrNotOurs) {
  const std::string tail = ".0123456789abcdef.part";
  bench.folder.write("p/.A.JPG" + tail, "cut");
  bench.folder.write("p/.B.JPG" + tail, "cut");
  for (const auto* name : {"p/.A.JPG.part", "p/.C.JPG.0123456789ABCDEF.part"})
    bench.folder.write(name, "people's own");
  bench.folder.write("p/A.JPG" + tail, "people's own");
  bench.folder.write("p/sub/.D.JPG" + tail, "cut");
  fs::create_symlink("A.JPG" + tail, bench.folder.path("p/.L.JPG" + tail));
  const FileDescriptor folder(::open(bench.folder.path("p").c_str(), O_RDONLY | O_DIRECTORY));
  PartFile open(folder.get(), ".B.JPG" + tail);
  ASSERT_EQ(open.open(PartFile::Opening::kContinue), 0);
  open.keep();
  EXPECT_EQ(PartFile(folder.get(), open.name()).open(PartFile::Opening::kContinue), EBUSY);

  const std::vector<std::string> left = {"part what came of A.JPG", "part what came of B.JPG"};
  EXPECT_EQ(told({"--json", "leftovers"}, {"p"}), left);
  bench.ends(words({"leftovers", "--remove"}, {"p"}), tools::kBadUsage);
  EXPECT_EQ(told({"--json", "leftovers"}, {"p"}), left);
  EXPECT_THAT(told(remove, {"p"}), ElementsAre("part what came of A.JPG -",
                                               "part what came of B.JPG: it is being fetched"));
  EXPECT_EQ(bench.files("p").size(), 6U);
  EXPECT_THAT(bench.fails(words({"leftovers", "--remove", "--yes"}, {"p/A.JPG" + tail})).err,
              HasSubstr("it is nothing that tarvoctl has left"));
}

TEST_F(Leftovers, OfBooksGoOnlyByName) {
  const ScopedEnvironment editor(
      "VISUAL", bench.folder.writeScript("editor", "sed -i s/Bert/Berta/ \"$1\"\n"));
  bench.done({"addressbook", "edit", "--yes"});
  const ScopedEnvironment broken("VISUAL", "false");
  bench.fails({"addressbook", "edit", "--yes"});
  const std::string book = "address book of TL700-00114: 3 contacts, 0 groups";
  const std::string name = ": name it to remove it: nothing else may hold the same";
  EXPECT_THAT(told({"--json", "leftovers"}, {}),
              IsSupersetOf({std::string("backup address book of TL700-00114"), "backup " + book,
                            "edit " + book}));
  EXPECT_THAT(told(remove, {"data/tarvo/edits"}), ElementsAre("edit " + book + name));
  const auto edits = bench.files("data/tarvo/edits");
  {
    const FileDescriptor edited(::open(bench.folder.path("data/tarvo/edits").c_str(), O_RDONLY));
    ASSERT_EQ(::flock(edited.get(), LOCK_SH), 0);
    EXPECT_THAT(told(remove, edits),
                ElementsAre("edit " + book + ": an address book is being edited"));
  }
  EXPECT_THAT(told(remove, edits), ElementsAre("edit " + book + " -"));
  EXPECT_TRUE(bench.files("data/tarvo/edits").empty());
  EXPECT_EQ(bench.backups().size(), 2U);
}

TEST_F(Leftovers, OfKilledProcessesGoOnceNobodyCanUseThem) {
  const ScratchFolder used;
  std::string young;
  for (const bool isOld : {false, true}) {
    ScratchFolder left;
    const auto file = bench.folder.write("tmp/" + lastPathComponent(left.path()) + "/A.JPG", "xxx");
    for (const auto& path : {file, left.path()})
      if (isOld) makeOld(path);
    if (!isOld) young = left.path();
    left.leave();
  }
  makeOld(used.path());
  EXPECT_THAT(told(remove, {"tmp"}),
              UnorderedElementsAre("scratch 0 files: the process that made it uses it",
                                   "scratch 1 file: it was written to within the last hour",
                                   "scratch 1 file -"));
  EXPECT_THAT(bench.folder.names("tmp"),
              UnorderedElementsAre("tarvo-photos", lastPathComponent(used.path()),
                                   lastPathComponent(young)));
  EXPECT_EQ(bench.folder.read("tmp/tarvo-photos/MINE.JPG"), "people's own");
}

}  // namespace
}  // namespace tarvo::test
