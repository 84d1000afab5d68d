#include "platform/imagecapture/ObjectDownload.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>

#include "Utilities/PTPCodes.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/files/TemporaryFile.h"

namespace tarvo {
namespace {

/// Writes what arrives to a file. It holds the pieces that are in flight and nothing else.
class DownloadSink : public ptp::DataSink {
 public:
  explicit DownloadSink(int descriptor) : descriptor_(descriptor) {}

  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override {
    pieces_.push_back({offset, length, std::make_unique_for_overwrite<std::byte[]>(length)});
    return {pieces_.back().memory.get(), length};
  }

  bool received(std::uint64_t offset, std::size_t length) override {
    // The transport asks again for the end of a room that it could not use: the last room counts.
    const auto holds = [&](const Piece& piece) { return piece.offset <= offset; };
    const auto piece = std::find_if(pieces_.rbegin(), pieces_.rend(), holds);
    if (piece == pieces_.rend()) return false;
    const bool written = write(piece->memory.get() + (offset - piece->offset), length, offset);
    received_ = offset + length;
    while (!pieces_.empty() && pieces_.front().offset + pieces_.front().length <= received_)
      pieces_.pop_front();
    return written;
  }

  std::uint64_t size() const { return received_; }
  int error() const { return error_; }  ///< errno of the write that failed, else 0

 private:
  struct Piece {
    std::uint64_t offset;
    std::size_t length;
    std::unique_ptr<std::byte[]> memory;
  };

  bool write(const std::byte* bytes, std::size_t length, std::uint64_t offset) {
    while (length > 0) {
      const auto count = ::pwrite(descriptor_, bytes, length, static_cast<off_t>(offset));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) {
        error_ = count < 0 ? errno : ENOSPC;
        return false;
      }
      bytes += count;
      length -= static_cast<std::size_t>(count);
      offset += static_cast<std::uint64_t>(count);
    }
    return true;
  }

  int descriptor_;
  std::deque<Piece> pieces_;
  std::uint64_t received_ = 0;
  int error_ = 0;
};

/// Empty where the device's name is no name of a file.
std::string fileName(const std::string& deviceName) {
  const std::string name = lastPathComponent(deviceName);
  const bool isNone = name == "." || name == ".." || name.find('\0') != std::string::npos;
  return isNone ? "" : name;
}

bool isWhole(const PTPObject& object, std::uint64_t size) {
  return object.size == PTPObject::kUnknownSize || size == object.size;
}

}  // namespace

Status downloadObject(PTPChannel& channel, const PTPObject& object, const std::string& folder,
                      std::string& path, std::string* why) {
  const std::string name = fileName(object.name);
  if (name.empty()) return status::kFileNotFound;
  const std::string target = folder + "/" + name;
  // Looked at first, so that nothing is fetched in vain.
  if (TemporaryFile::exists(target)) return status::kDuplicateFile;
  TemporaryFile file(folder);
  if (!file.isOpen()) return errno == ENOENT ? status::kFileNotFound : status::kIOError;

  DownloadSink sink(file.descriptor());
  ptp::Transaction transaction{.operation = ptp::kGetObject,
                               .parameters = {object.handle},
                               .parameterCount = 1,
                               .receive = &sink};
  Status result = channel.transact(transaction, why);
  if (sink.error() != 0) {
    *why = std::strerror(sink.error());
    return status::kIOError;
  }
  if (result != status::kOK) return result;
  if (transaction.responseCode != status::kPTPOK) return transaction.responseCode;
  if (!isWhole(object, sink.size())) {
    *why = "the object is shorter or longer than the device has said";
    return status::kIOError;
  }
  result = file.rename(target);
  if (result == status::kOK) path = target;
  return result;
}

}  // namespace tarvo
