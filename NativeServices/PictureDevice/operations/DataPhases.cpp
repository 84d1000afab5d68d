#include "NativeServices/PictureDevice/operations/DataPhases.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"

namespace tarvo {
namespace {

/// What is read or written at once; the transport's own pieces are not larger.
constexpr std::size_t kPieceSize = std::size_t{1} << 21;

/// Writes all of `bytes`; the errno of a failure, or 0.
int writeAt(int descriptor, std::span<const std::byte> bytes, std::uint64_t offset) {
  while (!bytes.empty()) {
    const ssize_t written =
        ::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : EIO;
    bytes = bytes.subspan(static_cast<std::size_t>(written));
    offset += static_cast<std::uint64_t>(written);
  }
  return 0;
}

/// Bytes that were read, 0 at the end of the file and on failure.
std::size_t readAt(int descriptor, std::span<std::byte> room, std::uint64_t offset) {
  ssize_t count = -1;
  do {
    count = ::pread(descriptor, room.data(), room.size(), static_cast<off_t>(offset));
  } while (count < 0 && errno == EINTR);
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

}  // namespace

BufferSink::BufferSink(ByteBuffer& buffer, std::uint32_t limit)
    : buffer_(buffer), limit_(limit), memory_(std::make_unique_for_overwrite<std::byte[]>(limit)) {
  // Here, where it may fail; more than is needed, as a buffer may be filled by many sinks.
  const std::size_t most = buffer.size() + limit;
  if (buffer.capacity() < most) buffer.reserve(std::max(most, 2 * buffer.capacity()));
}

BufferSink::~BufferSink() {
  buffer_.insert(buffer_.end(), memory_.get(), memory_.get() + filled_);
}

std::span<std::byte> BufferSink::room(std::uint64_t offset, std::size_t length) {
  const std::span all(memory_.get(), limit_);
  if (offset >= all.size()) return {};
  return all.subspan(offset, std::min<std::uint64_t>(length, all.size() - offset));
}

bool BufferSink::received(std::uint64_t offset, std::size_t length) {
  filled_ = offset + length;
  return true;
}

/// Rooms that were given and not yet written, in the order of their offsets, and memory to make
/// more of. A room whose end stayed unused is passed over when a later one is reported.
struct FileSink::Pieces {
  struct Piece {
    std::uint64_t offset;
    ByteBuffer memory;
  };

  explicit Pieces(SparePieces* kept) : spare(kept ? *kept : ownSpare) {}
  Pieces(const Pieces&) = delete;
  Pieces& operator=(const Pieces&) = delete;
  // The memory goes back to whoever lent it, so that the next object of a batch finds it.
  ~Pieces() {
    while (!given.empty())
      retireFirst();
  }

  /// Memory is used again once its room was written, so that there is as much of it as is in
  /// flight, whatever the size of the object.
  std::span<std::byte> give(std::uint64_t offset, std::size_t length) {
    // A buffer that is larger than asked for is as good: pieces grow within one object.
    ByteBuffer memory;
    if (!spare.empty()) {
      memory = std::move(spare.back());
      spare.pop_back();
    }
    if (memory.size() < length) memory.resize(length);
    given.push_back({offset, std::move(memory)});
    return std::span(given.back().memory).first(length);
  }

  /// The bytes of the room that was given last for `offset`; what lies before it is done with.
  std::span<const std::byte> filled(std::uint64_t offset, std::size_t length) {
    while (given.size() > 1 && given[1].offset <= offset)
      retireFirst();
    if (given.empty() || given.front().offset > offset) return {};
    const std::span<const std::byte> memory = given.front().memory;
    // The transport may report a room in two parts, when a short packet ended the first.
    const std::uint64_t skipped = offset - given.front().offset;
    return skipped + length <= memory.size() ? memory.subspan(skipped, length)
                                             : std::span<const std::byte>();
  }

  void retireFirst() {
    spare.push_back(std::move(given.front().memory));
    given.pop_front();
  }

  std::deque<Piece> given;
  SparePieces ownSpare;
  SparePieces& spare;
};

FileSink::FileSink(int descriptor, std::uint64_t start, std::uint64_t limit,
                   ProgressCallback progress, SparePieces* spare, ContentCallback content)
    : descriptor_(descriptor),
      start_(start),
      limit_(limit),
      progress_(std::move(progress)),
      content_(std::move(content)),
      pieces_(std::make_unique<Pieces>(spare)) {}

FileSink::~FileSink() = default;

std::span<std::byte> FileSink::room(std::uint64_t offset, std::size_t length) {
  if (offset >= limit_) return {};
  // The transport asks for as much as is to come; small rooms are filled and written sooner.
  const std::uint64_t most = std::min<std::uint64_t>(kPieceSize, limit_ - offset);
  return pieces_->give(offset, std::min<std::uint64_t>(length, most));
}

bool FileSink::received(std::uint64_t offset, std::size_t length) {
  const auto bytes = pieces_->filled(offset, length);
  // Nothing that a transport may do: bytes that no room was given for.
  error_ = bytes.size() == length ? writeAt(descriptor_, bytes, start_ + offset) : EINVAL;
  if (error_ != 0) return false;
  if (content_) content_(start_ + offset, bytes);
  // Asked after the write: what was told lies in the file.
  wasCancelled_ = progress_ && progress_(static_cast<std::uint32_t>(length));
  return !wasCancelled_;
}

/// A ring of buffers: one is filled while the others may still be in flight.
/// The transport submits at most kMaximumInFlight, and one more is being filled by the caller.
struct FileSource::Pieces {
  std::span<std::byte> next(std::size_t length) {
    auto& memory = ring[index++ % ring.size()];
    if (memory.size() < length) memory.resize(length);
    return std::span(memory).first(length);
  }

  std::array<ByteBuffer, kMaximumInFlight + 1> ring;
  std::size_t index = 0;
};

FileSource::FileSource(int descriptor, std::uint64_t start, std::uint64_t size,
                       ProgressCallback progress)
    : descriptor_(descriptor),
      start_(start),
      fileBytes_(size),
      progress_(std::move(progress)),
      pieces_(std::make_unique<Pieces>()) {}

FileSource::~FileSource() = default;

std::uint64_t FileSource::size() const {
  // One byte more where the container would be a multiple of 64 bytes long, which none may be.
  return isModulo64PayloadSize(fileBytes_) ? fileBytes_ + 1 : fileBytes_;
}

std::span<const std::byte> FileSource::bytes(std::uint64_t offset, std::size_t length) {
  static constexpr std::byte kPadding{0};
  // The padding lies behind the file and is no part of it, so it counts for no progress.
  if (offset >= fileBytes_) return {&kPadding, offset < size() && length > 0 ? 1U : 0U};

  const std::uint64_t most = std::min<std::uint64_t>(kPieceSize, fileBytes_ - offset);
  const auto room = pieces_->next(std::min<std::uint64_t>(length, most));
  // By position, so that what reads the same descriptor elsewhere is not disturbed.
  const std::size_t count = readAt(descriptor_, room, start_ + offset);
  // The size has been announced, and a container cannot be cut short: the transaction is given up,
  // where zeros would make a damaged object look whole.
  endedEarly_ = count == 0;
  if (endedEarly_ || !reportHandedOut(offset + count)) return {};
  return room.first(count);
}

/// The transport asks for the same bytes again where it could not use all that it got.
bool FileSource::reportHandedOut(std::uint64_t end) {
  // Only what is new counts, or the sum would pass the size of the file.
  if (end <= handedOut_) return true;
  const auto fresh = static_cast<std::uint32_t>(end - handedOut_);
  handedOut_ = end;
  wasCancelled_ = progress_ && progress_(fresh);
  return !wasCancelled_;
}

}  // namespace tarvo
