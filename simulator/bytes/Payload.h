// Bytes that a device holds or sends, made when they are asked for, so that an object of gigabytes
// takes no memory.
//
//   const auto object = std::make_shared<PatternPayload>(7, 4'000'000'000);
//   const auto part = std::make_shared<PartPayload>(object, 1'000'000, 4096);
//   part->read(0, room);
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "Utilities/FileDescriptor.h"
#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {

/// Constant after construction, so any thread may read it.
class Payload {
 public:
  virtual ~Payload() = default;
  virtual std::uint64_t size() const = 0;  ///< bytes; does not change
  /// Fills `room` with the bytes from `offset` on; never beyond the end.
  virtual void read(std::uint64_t offset, std::span<std::byte> room) const = 0;
};

/// Bytes in memory.
class BytesPayload : public Payload {
 public:
  explicit BytesPayload(Bytes bytes) : bytes_(std::move(bytes)) {}
  std::uint64_t size() const override { return bytes_.size(); }
  void read(std::uint64_t offset, std::span<std::byte> room) const override;

 private:
  Bytes bytes_;
};

/// Bytes that a test can predict: the one at `offset` is the low byte of
/// offset ^ (offset >> 8) ^ (handle * 37).
class PatternPayload : public Payload {
 public:
  PatternPayload(std::uint32_t handle, std::uint64_t size) : handle_(handle), size_(size) {}
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override;

 private:
  std::uint32_t handle_;
  std::uint64_t size_;
};

/// `head`, then as many bytes of `body` as `bodySize` says.
class JoinedPayload : public Payload {
 public:
  JoinedPayload(Bytes head, std::shared_ptr<const Payload> body, std::uint64_t bodySize)
      : head_(std::move(head)), body_(std::move(body)), bodySize_(bodySize) {}
  std::uint64_t size() const override { return head_.size() + bodySize_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override;

 private:
  Bytes head_;
  std::shared_ptr<const Payload> body_;
  std::uint64_t bodySize_;
};

/// The bytes of `whole` from `offset` on, `size` of them; they must lie within it.
class PartPayload : public Payload {
 public:
  PartPayload(std::shared_ptr<const Payload> whole, std::uint64_t offset, std::uint64_t size)
      : whole_(std::move(whole)), offset_(offset), size_(size) {}
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override {
    whole_->read(offset_ + offset, room);
  }

 private:
  std::shared_ptr<const Payload> whole_;
  std::uint64_t offset_;
  std::uint64_t size_;
};

/// All of it in memory; for what is known to be small.
Bytes allBytes(const Payload& payload);

// Where a device keeps what a host sends: the first mebibytes in memory, all of it in a temporary
// file once there is more, so that a host may send gigabytes.
//
//   Spool spool;
//   spool.append(bytes);
//   const std::shared_ptr<const Payload> content = spool.finish();

/// Not locked. The file lies in TMPDIR without a name, and goes with the last payload over it.
class Spool {
 public:
  /// What more than this many bytes are kept in a file.
  static constexpr std::size_t kInMemory = std::size_t{4} * 1024 * 1024;

  /// Raises std::system_error where the file cannot be made or written.
  void append(std::span<const std::byte> bytes);
  void append(const Payload& payload);
  std::uint64_t size() const { return size_; }
  /// Hands over what was gathered; the spool is empty afterwards.
  std::shared_ptr<const Payload> finish();

 private:
  Bytes bytes_;
  FileDescriptor file_;
  std::uint64_t size_ = 0;
};

}  // namespace tarvo::simulator
