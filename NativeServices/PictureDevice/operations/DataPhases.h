// Where the bytes of objects go to and come from on this side: a buffer, a file, a file with its
// padding. Each is a sink or a source of a transaction's data phase.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Utilities/ByteBuffer.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/Status.h"
#include "platform/imagecapture/ptp/DataPhase.h"

namespace tarvo {

/// Appends to a buffer of the caller's, at most `limit` bytes: what comes beyond is dropped.
class BufferSink : public ptp::DataSink {
 public:
  /// Makes room for `limit` bytes at once, which costs only what is filled. Raises std::bad_alloc.
  BufferSink(ByteBuffer& buffer, std::uint32_t limit);
  /// Now the buffer gets what was filled.
  ~BufferSink() override;
  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override;
  bool received(std::uint64_t offset, std::size_t length) override;

 private:
  ByteBuffer& buffer_;
  std::size_t limit_;
  /// Rooms that are in flight must not move.
  std::unique_ptr<std::byte[]> memory_;
  std::uint64_t filled_ = 0;
};

/// Memory that one file sink has done with, for the next. Kept by who fetches many objects: what
/// the system clears for every new piece costs more than to fill it.
using SparePieces = std::vector<ByteBuffer>;

/// Writes to an open file, from its offset `start` on, at most `limit` bytes. Holds no more than
/// what is in flight. A failed write ends the transfer; error() has its errno then.
class FileSink : public ptp::DataSink {
 public:
  static constexpr std::uint64_t kUnlimited = UINT64_MAX;
  /// `descriptor` is lent, and so is `spare`. `progress` may be empty. `content` gets what has been
  /// written.
  FileSink(int descriptor, std::uint64_t start, std::uint64_t limit, ProgressCallback progress,
           SparePieces* spare = nullptr, ContentCallback content = {});
  ~FileSink() override;
  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override;
  bool received(std::uint64_t offset, std::size_t length) override;
  int error() const { return error_; }
  /// Whether the progress callback ended it.
  bool wasCancelled() const { return wasCancelled_; }

 private:
  struct Pieces;
  int descriptor_;
  std::uint64_t start_;
  std::uint64_t limit_;
  ProgressCallback progress_;
  ContentCallback content_;
  std::unique_ptr<Pieces> pieces_;
  int error_ = 0;
  bool wasCancelled_ = false;
};

/// Reads `size` bytes of an open file from its offset `start` on, and, where the container would be
/// a multiple of 64 bytes long otherwise, gives one zero byte behind them. A file that ends early
/// is a read failure.
class FileSource : public ptp::DataSource {
 public:
  /// `descriptor` is lent. `progress` may be empty.
  FileSource(int descriptor, std::uint64_t start, std::uint64_t size, ProgressCallback progress);
  ~FileSource() override;
  std::uint64_t size() const override;
  std::span<const std::byte> bytes(std::uint64_t offset, std::size_t length) override;
  bool endedEarly() const { return endedEarly_; }
  bool wasCancelled() const { return wasCancelled_; }

 private:
  struct Pieces;
  /// Tells the callback of what it has not been told of; false when it ends the transfer.
  bool reportHandedOut(std::uint64_t end);

  int descriptor_;
  std::uint64_t start_;
  std::uint64_t fileBytes_;
  std::uint64_t handedOut_ = 0;
  ProgressCallback progress_;
  std::unique_ptr<Pieces> pieces_;
  bool endedEarly_ = false;
  bool wasCancelled_ = false;
};

}  // namespace tarvo
