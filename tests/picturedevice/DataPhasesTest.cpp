// Sinks and sources of data phases, driven as a transport drives them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;

constexpr std::size_t kMiB = std::size_t{1} << 20;

/// Bytes of which no two neighbouring stretches look the same.
std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

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

TEST(BufferSink, AppendsWhatArrivesAndNoMoreThanItsLimit) {
  ByteBuffer buffer(2, std::byte{0x11});
  {
    BufferSink sink(buffer, 5);
    const auto room = sink.room(0, 4);
    ASSERT_EQ(room.size(), 4U);
    std::memset(room.data(), 0x22, room.size());
    EXPECT_TRUE(sink.received(0, 4));
    EXPECT_EQ(sink.room(4, 100).size(), 1U);
    EXPECT_TRUE(sink.room(5, 100).empty());
  }
  EXPECT_EQ(buffer.size(), 6U);
  EXPECT_EQ(buffer[1], std::byte{0x11});
  EXPECT_EQ(buffer[5], std::byte{0x22});
}

TEST(FileSink, KeepsEveryRoomThatIsInFlightApart) {
  const std::string content = pattern(5 * kMiB + 3);
  FileOnDisk file("head");
  std::uint64_t told = 0;
  FileSink sink(file.descriptor.get(), 4, FileSink::kUnlimited, [&](std::uint32_t bytes) {
    told += bytes;
    return false;
  });
  // Three rooms at a time, reported in the order in which they were given.
  for (std::uint64_t done = 0; done < content.size();) {
    std::vector<std::size_t> sizes;
    for (std::uint64_t asked = done; sizes.size() < 3 && asked < content.size();) {
      const auto room = sink.room(asked, content.size() - asked);
      ASSERT_TRUE(!room.empty() && room.size() <= 2 * kMiB);
      put(room, content, asked);
      sizes.push_back(room.size());
      asked += room.size();
    }
    for (const std::size_t size : sizes) {
      ASSERT_TRUE(sink.received(done, size));
      done += size;
    }
  }
  EXPECT_EQ(file.content(), "head" + content);
  EXPECT_EQ(told, content.size());
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

/// All that a source gives, with as many pieces in flight as the transport may have.
std::string drain(FileSource& source) {
  std::deque<std::span<const std::byte>> inFlight;
  std::string content;
  const auto land = [&] {
    content.append(reinterpret_cast<const char*>(inFlight.front().data()), inFlight.front().size());
    inFlight.pop_front();
  };
  for (std::uint64_t offset = 0; offset < source.size();) {
    const auto bytes = source.bytes(offset, 300'000);
    if (bytes.empty()) break;
    inFlight.push_back(bytes);
    offset += bytes.size();
    if (inFlight.size() > ptp::DataSource::kMaximumInFlight) land();
  }
  while (!inFlight.empty())
    land();
  return content;
}

TEST(FileSource, GivesTheFilesBytesWithOneOfPaddingWhereTheContainerNeedsIt) {
  const std::string content = pattern(3 * kMiB);
  FileOnDisk file(content);
  const struct {
    std::uint64_t start;
    std::uint64_t size;
    std::uint64_t announced;
  } rows[] = {{0, 51, 51}, {0, 52, 53}, {0, 53, 53}, {10, 116, 117}, {7, 2'999'988, 2'999'989},
              {0, 0, 0}};
  for (const auto& row : rows) {
    std::uint64_t told = 0;
    FileSource source(file.descriptor.get(), row.start, row.size, [&](std::uint32_t bytes) {
      told += bytes;
      return false;
    });
    EXPECT_EQ(source.size(), row.announced);
    auto expected = content.substr(row.start, row.size);
    expected.resize(row.announced);
    EXPECT_TRUE(drain(source) == expected) << row.size;
    EXPECT_EQ(told, row.size);
    EXPECT_FALSE(source.endedEarly());
    EXPECT_TRUE(source.bytes(row.announced, 1).empty());
  }
}

TEST(FileSource, EndsTheTransferWhereTheFileEndsAndWhenItIsCancelled) {
  FileOnDisk file("short");
  FileSource early(file.descriptor.get(), 0, 6, {});
  EXPECT_EQ(drain(early), "short");
  EXPECT_TRUE(early.endedEarly());

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
