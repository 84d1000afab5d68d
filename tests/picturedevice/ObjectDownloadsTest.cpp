// Downloads: which transactions they take, and what they leave behind.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <system_error>

#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "tests/support/ScriptedPTPTransactions.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kChunk = 0x200000;
constexpr std::uint32_t kObject = 7;

std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

std::string textOf(const ByteBuffer& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

class Downloads : public ::testing::Test {
 protected:
  Downloads() { device_.operations = {0x101B}; }

  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
      names.push_back(entry.path().filename());
    return names;
  }
  std::vector<std::string> takeCalls() { return std::exchange(device_.calls, {}); }

  TemporaryFolder folder_;
  ScriptedPTPTransactions device_;
};

TEST_F(Downloads, GoInChunksOnlyAbove2MiBAndWhereTheDeviceGivesPieces) {
  using Calls = std::vector<std::string>;
  const std::string info = "GetObjectInfo 7";
  const std::tuple<std::uint32_t, CodeList, Calls> rows[] = {
      {0, {0x101B}, {info}},
      {kChunk, {0x101B}, {info, "GetObject 7"}},
      {kChunk + 1,
       {0x101B},
       {info, "GetPartialObject 7 0 2097152", "GetPartialObject 7 2097152 1"}},
      {kChunk + 1, {}, {info, "GetObject 7"}},
  };
  for (const auto& [size, operations, calls] : rows) {
    const std::string content = pattern(size);
    device_.operations = operations;
    device_.add(kObject, "a.jpg", content);
    const auto data = ObjectDownloads(device_).data(kObject);
    ASSERT_TRUE(data);
    EXPECT_TRUE(textOf(*data) == content) << size;
    EXPECT_EQ(takeCalls(), calls);

    folder_.write("out", "old");
    EXPECT_EQ(ObjectDownloads(device_).file(kObject, folder_.path("out")), 0);
    EXPECT_TRUE(folder_.read("out") == content) << size;
    EXPECT_THAT(files(), ElementsAre("out"));
    EXPECT_EQ(takeCalls(), calls);
  }
}

TEST_F(Downloads, IntoMemoryEndAtTheirLimit) {
  constexpr std::uint32_t kMost = 1000;
  constexpr std::uint32_t kHidden = 0xFFFFFFFF;
  const std::tuple<std::uint32_t, std::size_t, bool, std::size_t> rows[] = {
      // What the device says, what it has; whether that is asked for; what is kept.
      {kMost, kMost, true, kMost},    {kMost + 1, kMost + 1, false, 0},
      {4000000000, kMost, false, 0},  {10, 5000, true, 10},
      {kHidden, kMost, true, kMost},  {kHidden, kMost + 1, true, 0},
      {kHidden, kChunk * 5, true, 0},
  };
  for (const auto& [said, size, isAsked, kept] : rows) {
    device_.add(kObject, "a.mrk", pattern(size)).setCompressedSize(said);
    ObjectDownloads downloads(device_, kMost);
    for (const auto& data : {downloads.data(kObject), downloads.dataInPieces(kObject)})
      EXPECT_EQ(data ? data->size() : 0, kept) << said << " " << size;
    EXPECT_EQ(device_.lastOutcome(), kept == 0 ? status::kObjectTooLarge : status::kOK);
    EXPECT_EQ(takeCalls().size(), isAsked ? 4U : 2U);
  }
}

TEST_F(Downloads, LeaveNothingAfterAFailure) {
  ObjectDownloads downloads(device_);
  const auto outcomes = [&](const std::string& folder = "") {
    return std::vector<Status>{downloads.file(kObject, folder_.path(folder + "file")),
                               downloads.image(kObject, folder_.path(folder + "image"))};
  };
  device_.add(kObject, "a.jpg", pattern(kChunk + 5));
  device_.endsAfter = 100;
  folder_.write("file", "old");
  device_.failing = {{"GetObjectInfo", 0x2009}};
  EXPECT_THAT(outcomes(), ElementsAre(-19, -19));
  EXPECT_EQ(folder_.read("file"), "old");

  device_.failing = {{"GetObject", 0x2002}, {"GetPartialObject", 0x2009}};
  EXPECT_THAT(outcomes(), ElementsAre(0x2009, 0x2002));
  EXPECT_FALSE(downloads.data(kObject));
  EXPECT_THAT(files(), IsEmpty());
  device_.failing.clear();  // a device that ends early and calls it success
  EXPECT_THAT(outcomes(), ElementsAre(-36, -36));
  EXPECT_FALSE(downloads.data(kObject));
  EXPECT_THAT(files(), IsEmpty());
  device_.endsAfter.reset();
  EXPECT_THAT(outcomes("none/"), ElementsAre(-36, -36));
}

TEST_F(Downloads, OfPicturesAskForProgressAndNeverReplaceAFile) {
  auto& info = device_.add(kObject, "a.jpg", pattern(kChunk + 5));
  info.setModDataStr("20070615T120000Z");
  std::uint64_t told = 0;
  device_.progress = [&](std::uint32_t bytes) {
    told += bytes;
    return false;
  };
  const std::string path = folder_.path("a.jpg");
  EXPECT_EQ(ObjectDownloads(device_).image(kObject, path), 0);
  EXPECT_EQ(told, kChunk + 5);
  struct stat attributes {};
  ASSERT_EQ(::stat(path.c_str(), &attributes), 0);
  EXPECT_EQ(attributes.st_mtime, 1181908800);
  EXPECT_EQ(ObjectDownloads(device_).image(kObject, path), -48);
  EXPECT_THAT(takeCalls(), ElementsAre("GetObjectInfo 7", "GetObject 7"));
  device_.progress = [](std::uint32_t) { return true; };
  EXPECT_EQ(ObjectDownloads(device_).image(kObject, folder_.path("b.jpg")), -490);
  EXPECT_THAT(files(), ElementsAre("a.jpg"));
}

TEST_F(Downloads, OfUnknownSizeAreReadToTheirEndAtOnce) {
  const std::string content = pattern(std::size_t{3} * kChunk);
  device_.add(kObject, "a.jpg", content).setCompressedSize(0xFFFFFFFF);
  EXPECT_EQ(ObjectDownloads(device_).file(kObject, folder_.path("file")), 0);
  const auto result = ObjectFetch(device_).toFile(kObject, {.folder = folder_.path()});
  EXPECT_EQ(result.size, 3U * kChunk);
  EXPECT_TRUE(folder_.read("file") == content && folder_.read("a.jpg") == content);
  EXPECT_THAT(takeCalls(),
              ElementsAre("GetObjectInfo 7", "GetObject 7", "GetObjectInfo 7", "GetObject 7"));
}

TEST_F(Downloads, IntoTheTemporaryFolderAreTheUsersOwn) {
  const ScopedEnvironment temporary("TMPDIR", folder_.path());
  // What another user can lay at a name that he can guess.
  folder_.write("tarvo-" + std::to_string(::geteuid()), "his");
  const auto content = std::as_bytes(std::span(std::string_view("abc")));
  for (const char* name : {"../a.txt", "/etc/a.txt", "a.txt"}) {
    const auto path = writeTemporaryFile(name, content);
    ASSERT_TRUE(path) << name;
    EXPECT_TRUE(path->starts_with(folder_.path("tarvo-"))) << *path;
    EXPECT_TRUE(path->ends_with("/a.txt")) << *path;
    struct stat attributes {};
    ASSERT_EQ(::stat(path->c_str(), &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 0777U, 0600U);
  }
  EXPECT_FALSE(writeTemporaryFile("..", content));
  EXPECT_THAT(files(), testing::SizeIs(4)) << "each has a folder of its own";
  const ScopedEnvironment missing("TMPDIR", folder_.path("none"));
  EXPECT_THROW((void)writeTemporaryFile("a.txt", content), std::system_error);
}

class Fetching : public Downloads {
 protected:
  FetchResult fetch() {
    return ObjectFetch(device_).toFile(kObject, {.folder = folder_.path(), .device = "SN1"});
  }
};

TEST_F(Fetching, GoesOnWhereACutTransferStopped) {
  const std::string content = pattern(2 * kChunk + 9);
  auto& info = device_.add(kObject, "a.jpg", content);
  device_.failing["GetObject"] = 0x2002;
  device_.endsAfter = 1000;
  EXPECT_EQ(fetch().status, 0x2002);
  EXPECT_EQ(files().size(), 1U);
  EXPECT_FALSE(folder_.exists("a.jpg"));
  // Another object in its place starts anew.
  info.setCaptureDateStr("20070615T120000");
  EXPECT_EQ(fetch().resumed, 0U);
  info.setCaptureDateStr("");

  device_.endsAfter.reset();
  device_.failing = {{"GetPartialObject", 0x2002}};  // as when it is unplugged
  const auto cut = fetch();
  EXPECT_EQ(cut.status, 0x2002);
  EXPECT_EQ(std::filesystem::file_size(cut.part), 1000U);
  EXPECT_EQ(cut.kept, 1000U);
  device_.failing.clear();
  device_.endsAfter = 2'000'000;  // of each piece
  takeCalls();
  const auto result = fetch();
  EXPECT_EQ(result.status, 0) << result.why;
  EXPECT_EQ(result.resumed, 1000U);
  EXPECT_THAT(takeCalls(), ElementsAre("GetObjectInfo 7", "GetPartialObject 7 1000 2097152",
                                       "GetPartialObject 7 2001000 2097152",
                                       "GetPartialObject 7 4001000 193313"));
  EXPECT_TRUE(folder_.read("a.jpg") == content);
}

TEST_F(Fetching, KeepsNoPartThatCannotBeGoneOnWith) {
  const auto cutAfter1000 = [&](std::uint32_t size, CodeList operations, const char* serial) {
    device_.add(kObject, "a.jpg", pattern(size));
    device_.operations = std::move(operations);
    device_.endsAfter = 1000;
    const auto result =
        ObjectFetch(device_).toFile(kObject, {.folder = folder_.path(), .device = serial});
    EXPECT_EQ(result.why, "the device sent 1000 of " + std::to_string(size) + " bytes");
    return files().size();
  };
  EXPECT_EQ(cutAfter1000(kChunk, {0x101B}, "SN1"), 0U);
  EXPECT_EQ(cutAfter1000(kChunk + 1, {}, "SN1"), 0U);
  EXPECT_EQ(cutAfter1000(kChunk + 1, {0x101B}, ""), 0U);
  for (const Status status : {0x2007, 0x2005}) {
    EXPECT_EQ(cutAfter1000(kChunk + 1, {0x101B}, "SN1"), 1U);
    device_.endsAfter = 0;  // an empty piece ends it
    if (status == 0x2005) device_.failing["GetPartialObject"] = status;
    EXPECT_EQ(fetch().status, status);
    EXPECT_THAT(files(), IsEmpty());
  }
}

// What devices name is in HostileNameTest.cpp.
TEST_F(Fetching, StaysInsideTheFolder) {
  const std::string inside = folder_.path("inside");
  std::filesystem::create_directory(inside);
  std::filesystem::create_symlink("/etc/passwd", inside + "/link");
  const auto fetchAs = [&](const std::string& device, const std::string& wanted = "") {
    device_.add(kObject, device, "x");
    FetchRequest request{.folder = inside};
    if (!wanted.empty()) request.name = wanted;
    return ObjectFetch(device_).toFile(kObject, request).status;
  };
  EXPECT_EQ(fetchAs("link"), -48);
  for (const char* name : {"", "..", "a/.."})
    EXPECT_EQ(fetchAs(name), -43) << name;
  for (const char* name : {"../x", ".."})
    EXPECT_EQ(fetchAs("x", name), -43) << name;
  EXPECT_EQ(fetchAs("../x"), 0);
  EXPECT_EQ(folder_.read("inside/x"), "x");
  EXPECT_THAT(files(), ElementsAre("inside"));
}

TEST(FileSink, GivesTheUnusedEndOfARoomASecondTimeAndEndsWhereTheDiskIsFull) {
  const TemporaryFolder folder;
  const FileDescriptor file(::open(folder.write("file", "").c_str(), O_RDWR | O_CLOEXEC));
  FileSink sink(file.get(), 0, 10, {});
  const std::string content = "0123456789";
  std::memcpy(sink.room(0, 10).data(), content.data(), 8);
  const auto rest = sink.room(8, 10);
  ASSERT_EQ(rest.size(), 2U);
  std::memcpy(rest.data(), content.data() + 8, 2);
  EXPECT_TRUE(sink.received(0, 8) && sink.received(8, 1) && sink.received(9, 1));
  EXPECT_TRUE(sink.room(10, 1).empty());
  EXPECT_EQ(folder.read("file"), content);

  const FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  FileSink broken(full.get(), 0, 10, {});
  ASSERT_FALSE(broken.room(0, 10).empty());
  EXPECT_FALSE(broken.received(0, 10));
  EXPECT_EQ(broken.error(), ENOSPC);
}

TEST(FileNames, AreNumberedWithinTheLengthThatANameMayHave) {
  EXPECT_EQ(numberedFileName("a.tar.gz", 2), "a.tar (2).gz");
  EXPECT_EQ(numberedFileName(".hidden", 2), ".hidden (2)");
  EXPECT_EQ(numberedFileName(std::string(255, 'x'), 10), std::string(250, 'x') + " (10)");
  // No half of a character is left: 127 of two bytes, then one that does not fit.
  std::string umlauts;
  for (int i = 0; i < 128; ++i)
    umlauts += "\xC3\xA4";
  EXPECT_EQ(safeFileName(umlauts), umlauts.substr(0, 254));
  EXPECT_EQ(safeFileName("a\n\u009b\u202egpj\xE4.exe"), "a___gpj\xE4.exe") << "no controls";
}

}  // namespace
}  // namespace tarvo::test
