#include "simulator/bytes/Spool.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace tarvo::simulator {
namespace {

/// Bytes of a file without a name.
class FilePayload : public Payload {
 public:
  FilePayload(FileDescriptor file, std::uint64_t size) : file_(std::move(file)), size_(size) {}
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override {
    while (!room.empty()) {
      const auto count = ::pread(file_.get(), room.data(), room.size(), static_cast<off_t>(offset));
      if (count <= 0) break;
      room = room.subspan(static_cast<std::size_t>(count));
      offset += static_cast<std::uint64_t>(count);
    }
    // Only a file that somebody else has cut ends early.
    std::fill(room.begin(), room.end(), std::byte{});
  }

 private:
  FileDescriptor file_;
  std::uint64_t size_;
};

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

FileDescriptor makeFile() {
  auto path = (std::filesystem::temp_directory_path() / "tarvo-object-XXXXXX").string();
  FileDescriptor file(::mkostemp(path.data(), O_CLOEXEC));
  if (!file.isOpen()) fail("no temporary file for what the host sends");
  ::unlink(path.c_str());
  return file;
}

void writeAll(const FileDescriptor& file, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(file.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) fail("cannot keep what the host sends");
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

}  // namespace

void Spool::append(std::span<const std::byte> bytes) {
  size_ += bytes.size();
  if (!file_.isOpen() && size_ <= kInMemory) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return;
  }
  if (!file_.isOpen()) {
    file_ = makeFile();
    writeAll(file_, bytes_);
    bytes_ = {};
  }
  writeAll(file_, bytes);
}

void Spool::append(const Payload& payload) {
  Bytes piece(std::size_t{1} << 20);
  for (std::uint64_t offset = 0; offset < payload.size(); offset += piece.size()) {
    const auto left = payload.size() - offset;
    const auto room = std::span(piece).first(
        static_cast<std::size_t>(std::min<std::uint64_t>(left, piece.size())));
    payload.read(offset, room);
    append(room);
  }
}

std::shared_ptr<const Payload> Spool::finish() {
  const auto size = std::exchange(size_, 0);
  if (!file_.isOpen()) return std::make_shared<BytesPayload>(std::exchange(bytes_, {}));
  return std::make_shared<FilePayload>(std::exchange(file_, FileDescriptor()), size);
}

}  // namespace tarvo::simulator
