// Sinks and sources of data phases, driven as a transport drives them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;

class FileOnDisk {
 public:
  explicit FileOnDisk(const std::string& content = "")
      : descriptor(::open(folder.write("file", content).c_str(), O_RDWR | O_CLOEXEC)) {}
  std::string content() const { return folder.read("file"); }

  TemporaryFolder folder;
  FileDescriptor descriptor;
};

void put(std::span<std::byte> room, const std::string& content, std::uint64_t offset) {
  std::memcpy(room.data(), content.data() + offset, room.size());
}

TEST(FileSink, GivesTheUnusedEndOfARoomASecondTime) {
  FileOnDisk file;
  FileSink sink(file.descriptor.get(), 0, 10, {});
  const std::string content = "0123456789";
  put(sink.room(0, 10).first(8), content, 0);
  const auto rest = sink.room(8, 10);
  ASSERT_EQ(rest.size(), 2U);
  put(rest, content, 8);
  EXPECT_TRUE(sink.received(0, 8));
  EXPECT_TRUE(sink.received(8, 1));
  EXPECT_TRUE(sink.received(9, 1));
  EXPECT_TRUE(sink.room(10, 1).empty());
  EXPECT_EQ(file.content(), content);
}

TEST(FileSink, EndsTheTransferWhenItCannotWriteAndWhenItIsCancelled) {
  const FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  FileSink broken(full.get(), 0, 10, {});
  ASSERT_FALSE(broken.room(0, 10).empty());
  EXPECT_FALSE(broken.received(0, 10));
  EXPECT_EQ(broken.error(), ENOSPC);
  EXPECT_FALSE(broken.wasCancelled());

  FileOnDisk file;
  FileSink cancelled(file.descriptor.get(), 0, 10, [](std::uint32_t) { return true; });
  ASSERT_FALSE(cancelled.room(0, 10).empty());
  EXPECT_FALSE(cancelled.received(0, 10));
  EXPECT_EQ(cancelled.error(), 0);
  EXPECT_TRUE(cancelled.wasCancelled());
}

TEST(FileSource, TellsOfEachByteOnceAndEndsTheTransferWhenItIsCancelled) {
  FileOnDisk file("short");
  std::vector<std::uint32_t> told;
  FileSource cancelled(file.descriptor.get(), 0, 5, [&](std::uint32_t bytes) {
    told.push_back(bytes);
    return told.size() == 2;
  });
  EXPECT_EQ(cancelled.bytes(0, 3).size(), 3U);
  EXPECT_EQ(cancelled.bytes(2, 1).size(), 1U);  // asked for again, told once
  EXPECT_TRUE(cancelled.bytes(3, 2).empty());
  EXPECT_TRUE(cancelled.wasCancelled());
  EXPECT_FALSE(cancelled.endedEarly());
  EXPECT_THAT(told, ElementsAre(3, 2));
}

}  // namespace
}  // namespace tarvo::test
