#include "simulator/bytes/Payload.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace tarvo::simulator {
namespace {

constexpr std::size_t kRow = 256;

/// Row r holds 0 ^ r, 1 ^ r, ... 255 ^ r: the pattern is made of whole rows, one for each value of
/// the offset's second byte, so that copying them costs no more than memory does.
const std::array<std::array<std::byte, kRow>, kRow>& patternRows() {
  static const auto rows = [] {
    std::array<std::array<std::byte, kRow>, kRow> made{};
    for (std::size_t row = 0; row < kRow; ++row) {
      for (std::size_t i = 0; i < kRow; ++i)
        made[row][i] = static_cast<std::byte>(i ^ row);
    }
    return made;
  }();
  return rows;
}

}  // namespace

void BytesPayload::read(std::uint64_t offset, std::span<std::byte> room) const {
  if (!room.empty()) std::memcpy(room.data(), bytes_.data() + offset, room.size());
}

void PatternPayload::read(std::uint64_t offset, std::span<std::byte> room) const {
  const auto& rows = patternRows();
  while (!room.empty()) {
    const auto column = static_cast<std::size_t>(offset % kRow);
    const auto row = static_cast<std::uint8_t>((offset / kRow) ^ (std::uint64_t{handle_} * 37));
    const auto count = std::min(room.size(), kRow - column);
    std::memcpy(room.data(), rows[row].data() + column, count);
    room = room.subspan(count);
    offset += count;
  }
}

void JoinedPayload::read(std::uint64_t offset, std::span<std::byte> room) const {
  std::size_t fromHead = 0;
  if (offset < head_.size()) {
    fromHead = std::min<std::size_t>(room.size(), head_.size() - offset);
    std::memcpy(room.data(), head_.data() + offset, fromHead);
  }
  if (fromHead < room.size()) {
    body_->read(offset + fromHead - head_.size(), room.subspan(fromHead));
  }
}

Bytes allBytes(const Payload& payload) {
  Bytes bytes(static_cast<std::size_t>(payload.size()));
  payload.read(0, bytes);
  return bytes;
}

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
