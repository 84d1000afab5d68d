#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/PTPDates.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/HostFileNames.h"
#include "platform/files/PartFile.h"
#include "platform/files/ScratchFolder.h"

namespace tarvo {

namespace {

/// A device announces this for an object of 4 GiB - 1 bytes and more.
constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;

/// A path as the folder, opened, and the name in it. A folder that cannot be opened shows when the
/// file is made.
struct Destination {
  explicit Destination(const std::string& path) : name(std::filesystem::path(path).filename()) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    const std::string folderPath = parent.empty() ? "." : parent.string();
    folder = FileDescriptor(::open(folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  bool exists() const {
    struct stat attributes {};
    return ::fstatat(folder.get(), name.c_str(), &attributes, AT_SYMLINK_NOFOLLOW) == 0;
  }

  std::string name;
  FileDescriptor folder;
};

/// Moves an object of `size` bytes, chunk after chunk, by `chunk(offset, length)`.
template <typename Chunk>
Status inChunks(std::uint32_t size, Chunk&& chunk) {
  Status status = status::kOK;
  std::uint32_t offset = 0;
  std::uint32_t remaining = size;
  while (status == status::kOK && remaining > 0) {
    const std::uint32_t length = std::min(remaining, kDownloadChunk);
    status = chunk(offset, length);
    if (status != status::kOK) break;
    offset += length;
    remaining -= length;
  }
  if (status == status::kOK && remaining > 0) raiseAssertion("Should download entire object.");
  return status;
}

/// What a finished transfer into `sink` comes to: -36 for a file that could not be written and for
/// one that ended with `received` of `expected` bytes, else `status`.
Status outcomeOfTransfer(Status status, const FileSink& sink, std::uint64_t received,
                         std::uint64_t expected) {
  // The transport calls a sink that could not write a cancelled transfer.
  if (sink.error() != 0) return status::kIOError;
  const bool isShort = expected != kUnknownSize && received < expected;
  return status == status::kOK && isShort ? status::kIOError : status;
}

/// Writes a new file that only its owner can read.
bool writePrivately(const std::string& path, std::span<const std::byte> content) {
  const FileDescriptor file(::open(
      path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file.isOpen()) return false;
  while (!content.empty()) {
    const ssize_t written = ::write(file.get(), content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      ::unlink(path.c_str());
      return false;
    }
    content = content.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

bool goesInChunks(const PTPDeviceFacts& facts, std::uint32_t size) {
  return size > kDownloadChunk && size != kUnknownSize &&
         containsCode(facts.operations, ptp::kGetPartialObject);
}

ObjectInfoPointer ObjectDownloads::information(std::uint32_t handle) {
  ObjectInfoPointer info;
  return device_.objectInfo(info, handle) == status::kOK ? info : nullptr;
}

std::optional<ByteBuffer> ObjectDownloads::data(std::uint32_t handle) {
  const auto info = information(handle);
  if (!info) return std::nullopt;
  try {
    ByteBuffer buffer;
    if (toMemory(handle, info->compressedSize(), buffer) == status::kOK) return buffer;
  } catch (const std::bad_alloc&) {
    // A size that a device announces may be any.
    TraceLog::trace("downloadObjectDataPTP: No memory for %u bytes", info->compressedSize());
  }
  return std::nullopt;
}

std::optional<ByteBuffer> ObjectDownloads::dataInPieces(std::uint32_t handle) {
  if (!containsCode(device_.facts().operations, ptp::kGetPartialObject)) return std::nullopt;
  return data(handle);
}

std::optional<std::string> ObjectDownloads::temporaryFile(std::uint32_t handle) {
  const auto info = information(handle);
  if (!info) return std::nullopt;
  TraceLog::trace("ObjectInfo: fileName: %s", info->fileName().c_str());
  // Not by data(), so that a device without pieces gives none here, either.
  const auto content = dataInPieces(handle);
  return content ? writeTemporaryFile(info->fileName(), *content) : std::nullopt;
}

Status ObjectDownloads::toMemory(std::uint32_t handle, std::uint32_t size, ByteBuffer& buffer) {
  std::uint64_t received = 0;
  if (!goesInChunks(device_.facts(), size)) {
    BufferSink sink(buffer, size);
    return device_.downloadEntireObject(handle, size, sink, received);
  }
  // Once, or each chunk would move what is there; costs only what is filled.
  buffer.reserve(size);
  return inChunks(size, [&](std::uint32_t offset, std::uint32_t length) {
    BufferSink sink(buffer, length);
    const Status status = device_.downloadPartialObject(handle, offset, length, sink, received);
    // What follows would lie at a wrong place.
    return status == status::kOK && received < length ? status::kIOError : status;
  });
}

Status ObjectDownloads::wholeTo(std::uint32_t handle, std::uint32_t size, int descriptor,
                                ProgressCallback progress) {
  std::uint64_t received = 0;
  FileSink sink(descriptor, 0, size == kUnknownSize ? FileSink::kUnlimited : size,
                std::move(progress));
  const Status status = device_.downloadEntireObject(handle, size, sink, received);
  return outcomeOfTransfer(status, sink, received, size);
}

// Progress is asked by the transactions of chunks themselves, and not at all for a whole object.
Status ObjectDownloads::toDescriptor(std::uint32_t handle, std::uint32_t size, int descriptor) {
  if (!goesInChunks(device_.facts(), size)) return wholeTo(handle, size, descriptor, {});
  return inChunks(size, [&](std::uint32_t offset, std::uint32_t length) {
    std::uint64_t received = 0;
    FileSink sink(descriptor, offset, length, {});
    const Status status = device_.downloadPartialObject(handle, offset, length, sink, received);
    return outcomeOfTransfer(status, sink, received, length);
  });
}

Status ObjectDownloads::file(std::uint32_t handle, const std::string& destination) {
  const auto info = information(handle);
  if (!info) return status::kDeviceNotFound;
  const Destination place(destination);
  PartFile part(place.folder.get(), PartFile::nameFor(place.name, ""));
  Status status = status::kIOError;
  if (part.open(PartFile::Opening::kNew) == 0) {
    status = toDescriptor(handle, info->compressedSize(), part.descriptor());
  }
  if (status == status::kOK && part.putInPlace(place.name, true, std::nullopt) != 0) {
    status = status::kIOError;
  }
  // An old file would be taken for the object.
  if (status != status::kOK) ::unlinkat(place.folder.get(), place.name.c_str(), 0);
  return status;
}

Status ObjectDownloads::image(std::uint32_t handle, const std::string& destination) {
  const Destination place(destination);
  // Before the transfer, which may take minutes.
  if (place.exists()) return status::kDuplicateFile;
  const auto info = information(handle);
  if (!info) return status::kDeviceNotFound;
  PartFile part(place.folder.get(), PartFile::nameFor(place.name, ""));
  if (part.open(PartFile::Opening::kNew) != 0) return status::kIOError;
  const Status status =
      wholeTo(handle, info->compressedSize(), part.descriptor(),
              [this](std::uint32_t bytes) { return device_.reportProgress(bytes); });
  if (status != status::kOK) return status;
  // Somebody may have made a file of that name meanwhile: it is not replaced either.
  const int error = part.putInPlace(place.name, false, dateOfObject(*info));
  if (error == EEXIST) return status::kDuplicateFile;
  return error == 0 ? status::kOK : status::kIOError;
}

std::optional<std::string> writeTemporaryFile(std::string_view name,
                                              std::span<const std::byte> content) {
  const auto safeName = safeFileName(name);
  // Not in one that is shared: another process may read a file of the same name just now.
  ScratchFolder folder;
  if (!safeName || folder.path().empty()) return std::nullopt;
  std::string path = folder.path() + "/" + *safeName;
  if (!writePrivately(path, content)) return std::nullopt;
  folder.leave();
  return path;
}

void removeTemporaryFile(const std::string& path) {
  ::unlink(path.c_str());
  ::rmdir(std::filesystem::path(path).parent_path().c_str());  // empty now, or not ours
}

}  // namespace tarvo
