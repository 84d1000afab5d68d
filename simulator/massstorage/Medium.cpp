#include "simulator/massstorage/Medium.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>

#include "simulator/massstorage/FatImage.h"

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

}  // namespace tarvo::simulator
