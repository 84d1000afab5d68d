#include "simulator/massstorage/Medium.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/description/ContentDescription.h"

namespace tarvo::simulator {
namespace {

constexpr unsigned kDiskBlock = 512;
constexpr unsigned kOpticalBlock = 2048;

class BlocksPayload : public Payload {
 public:
  BlocksPayload(std::shared_ptr<const FileDescriptor> file, std::uint64_t start, std::uint64_t size)
      : file_(std::move(file)), start_(start), size_(size) {}
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override {
    while (!room.empty()) {
      const auto count =
          ::pread(file_->get(), room.data(), room.size(), static_cast<off_t>(start_ + offset));
      if (count <= 0) break;
      room = room.subspan(static_cast<std::size_t>(count));
      offset += static_cast<std::uint64_t>(count);
    }
    std::fill(room.begin(), room.end(), std::byte{});
  }

 private:
  std::shared_ptr<const FileDescriptor> file_;
  std::uint64_t start_;
  std::uint64_t size_;
};

}  // namespace

std::unique_ptr<Medium> Medium::of(const DeviceDescription& description) {
  if (!description.volume && description.image.empty()) return nullptr;
  return std::unique_ptr<Medium>(new Medium(description));
}

Medium::Medium(const DeviceDescription& description)
    : volume_(description.volume),
      image_(description.image),
      isOptical_(description.scsi.type == kOpticalType),
      blockSize_(isOptical_ ? kOpticalBlock : kDiskBlock),
      isWritable_(!isOptical_) {}

void Medium::open() {
  if (isOpened_) return;
  isOpened_ = true;
  FileDescriptor file;
  try {
    if (!image_.empty()) {
      file = FileDescriptor(::open(image_.c_str(), (isWritable_ ? O_RDWR : O_RDONLY) | O_CLOEXEC));
    } else {
      file = makeFatImage(*volume_, blockSize_,
                          isOptical_ ? FatLayout::kWholeMedium : FatLayout::kPartition);
    }
  } catch (const std::exception& error) {
    g_warning("the medium cannot be made: %s", error.what());
  }
  struct stat status {};
  if (::fstat(file.get(), &status) == 0) {
    blocks_ = static_cast<std::uint64_t>(status.st_size) / blockSize_;
  }
  file_ = std::make_shared<const FileDescriptor>(std::move(file));
}

std::uint64_t Medium::blocks() {
  open();
  return blocks_;
}

std::shared_ptr<const Payload> Medium::read(std::uint64_t first, std::uint64_t count) {
  open();
  return std::make_shared<BlocksPayload>(file_, first * blockSize_, count * blockSize_);
}

bool Medium::write(std::uint64_t first, std::span<const std::byte> data) {
  open();
  auto offset = static_cast<off_t>(first * blockSize_);
  while (!data.empty()) {
    const auto count = ::pwrite(file_->get(), data.data(), data.size(), offset);
    if (count <= 0) return false;
    data = data.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return true;
}

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMebi = std::uint64_t{1024} * 1024;
constexpr std::uint64_t kPartitionStart = kMebi;  // as partitioning tools align it
constexpr std::uint64_t kLargestCluster = std::uint64_t{32} * 1024;
constexpr std::uint64_t kSpare = 16 * kMebi;
constexpr std::size_t kLongestLabel = 11;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// A folder that goes with all that is in it.
class StagingFolder {
 public:
  StagingFolder() : path_((fs::temp_directory_path() / "tarvo-volume-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) fail("cannot make a temporary folder");
    fs::create_directory(content());
  }
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;
  ~StagingFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  std::string content() const { return path_ + "/content"; }
  std::string medium() const { return path_ + "/medium"; }

 private:
  std::string path_;
};

std::uint64_t clusters(std::uint64_t size) {
  return (size / kLargestCluster + 1) * kLargestCluster;
}

/// Bytes that the content takes at most.
std::uint64_t sizeOf(const std::vector<ContentNode>& content) {
  std::uint64_t total = 0;
  for (const auto& node : content) {
    switch (node.kind) {
      case ContentNode::Kind::kFolder:
        total += clusters(0) + sizeOf(node.children);
        break;
      case ContentNode::Kind::kFile:
        total += clusters(node.text ? node.text->size() : node.size);
        break;
      case ContentNode::Kind::kGenerated:
        // A long name takes up to four entries of 32 bytes in the folder.
        total += node.generated.count * (clusters(node.generated.size) + 128);
        break;
    }
  }
  return total;
}

/// Runs a tool to its end.
void run(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (auto& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  // The tools work on real files only, never on the testbed's.
  std::unique_ptr<char*, decltype(&g_strfreev)> environment(g_get_environ(), &g_strfreev);
  environment.reset(g_environ_unsetenv(environment.release(), "LD_PRELOAD"));
  environment.reset(g_environ_setenv(environment.release(), "LC_ALL", "C.UTF-8", TRUE));
  environment.reset(g_environ_setenv(environment.release(), "MTOOLS_SKIP_CHECK", "1", TRUE));
  int status = 0;
  char* errors = nullptr;
  GError* error = nullptr;
  const auto flags = GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL);
  const bool ran = g_spawn_sync(nullptr, arguments.data(), environment.get(), flags, nullptr,
                                nullptr, nullptr, &errors, &status, &error) != FALSE &&
                   g_spawn_check_wait_status(status, &error) != FALSE;
  const std::unique_ptr<char, decltype(&g_free)> said(errors, &g_free);
  const std::unique_ptr<GError, decltype(&g_error_free)> why(error, &g_error_free);
  if (ran) return;
  throw std::runtime_error(words.front() + ": " + why->message + "\n" + (said ? said.get() : ""));
}

std::string labelOf(const VolumeDescription& volume) {
  auto label = volume.label.substr(0, kLongestLabel);
  std::transform(label.begin(), label.end(), label.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  return label;
}

/// A partition table with one entry, for FAT32 by block number (type 0x0C).
Bytes partitionTable(std::uint64_t size, unsigned blockSize) {
  ByteWriter writer;
  writer.raw(Bytes(446));
  writer.u8(0);
  writer.raw(Bytes{std::byte{0xFE}, std::byte{0xFF}, std::byte{0xFF}});  // beyond cylinders
  writer.u8(0x0C);
  writer.raw(Bytes{std::byte{0xFE}, std::byte{0xFF}, std::byte{0xFF}});
  writer.u32(static_cast<std::uint32_t>(kPartitionStart / blockSize));
  writer.u32(static_cast<std::uint32_t>(size / blockSize));
  writer.raw(Bytes(48));
  writer.u16(0xAA55);
  return writer.take();
}

}  // namespace

FileDescriptor makeFatImage(const VolumeDescription& volume, unsigned blockSize, FatLayout layout) {
  const StagingFolder staging;
  writeContent(staging.content(), volume.content);
  const std::uint64_t size = (sizeOf(volume.content) + kSpare) / kMebi * kMebi;
  const std::uint64_t start = layout == FatLayout::kPartition ? kPartitionStart : 0;
  // The tools find it by a name: not every kernel lets them at a descriptor of this process.
  const auto path = staging.medium();
  FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file.isOpen()) fail("cannot make a temporary file");
  if (::ftruncate(file.get(), static_cast<off_t>(start + size)) != 0) fail("cannot make a medium");
  run({"/usr/sbin/mkfs.fat", "-S", std::to_string(blockSize), "-n", labelOf(volume),
       "--offset=" + std::to_string(start / blockSize), path, std::to_string(size / 1024)});
  std::vector<std::string> copy = {"mcopy", "-s", "-Q", "-i", path + "@@" + std::to_string(start)};
  const auto options = copy.size();
  for (const auto& entry : fs::directory_iterator(staging.content()))
    copy.push_back(entry.path().string());
  if (copy.size() > options) {
    copy.emplace_back("::/");
    run(std::move(copy));
  }
  if (layout == FatLayout::kWholeMedium) return file;
  const auto table = partitionTable(size, blockSize);
  if (::pwrite(file.get(), table.data(), table.size(), 0) != static_cast<ssize_t>(table.size())) {
    fail("cannot write a partition table");
  }
  return file;
}

}  // namespace tarvo::simulator
