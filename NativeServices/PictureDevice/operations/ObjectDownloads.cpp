#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileNames.h"
#include "platform/files/PartFile.h"
#include "platform/files/ScratchFolder.h"

namespace tarvo {
namespace {

/// A path as the folder, opened, and the name in it. A folder that cannot be opened shows when the
/// file is made.
struct Destination {
  explicit Destination(const std::string& path) : name(std::filesystem::path(path).filename()) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    const std::string folderPath = parent.empty() ? "." : parent.string();
    // Opened once and used by descriptor from here on: a folder that is renamed or replaced while
    // the object comes does not lead the file elsewhere.
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
  // A device that ends early with OK has lost its card, or lies; the file would look like the
  // object and be damaged.
  const bool isShort = expected != ptp::kUnknownObjectSize && received < expected;
  return status == status::kOK && isShort ? status::kIOError : status;
}

/// Takes an object of unknown size, and ends the transfer of one that has more than `most` bytes.
class BoundedSink : public BufferSink {
 public:
  BoundedSink(ByteBuffer& buffer, std::uint32_t most) : BufferSink(buffer, most + 1), most_(most) {}
  bool received(std::uint64_t offset, std::size_t length) override {
    BufferSink::received(offset, length);
    return offset + length <= most_;
  }

 private:
  std::uint32_t most_;
};

/// Writes a new file that only its owner can read.
void writePrivately(const std::string& path, std::span<const std::byte> content) {
  // O_EXCL and O_NOFOLLOW: nothing that another user has laid at the name is opened.
  const FileDescriptor file(::open(
      path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  while (file.isOpen() && !content.empty()) {
    const ssize_t written = ::write(file.get(), content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    content = content.subspan(static_cast<std::size_t>(written));
  }
  if (!file.isOpen() || !content.empty())
    throw std::system_error(errno, std::generic_category(), "a temporary file cannot be written");
}

}  // namespace

bool goesInChunks(const PTPDeviceFacts& facts, std::uint32_t size) {
  // A piece cannot begin beyond 4 GiB, and an object of unknown size is of 4 GiB or more.
  return size > kDownloadChunk && size != ptp::kUnknownObjectSize &&
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
    const Status status = toMemory(handle, info->compressedSize(), buffer);
    if (status == status::kOK) return buffer;
    if (status == status::kObjectTooLarge) {
      device_.setLastOutcome(status);
      TraceLog::trace("downloadObjectDataPTP: object 0x%08X is larger than %u bytes", handle,
                      most_);
    }
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
  if (size == ptp::kUnknownObjectSize) {
    BoundedSink sink(buffer, most_);
    const Status status = device_.downloadEntireObject(handle, size, sink, received);
    return received > most_ ? status::kObjectTooLarge : status;
  }
  // The size is the device's word, so that a lie costs no more than the truth.
  if (size > most_) return status::kObjectTooLarge;
  if (!goesInChunks(device_.facts(), size)) {
    // More than announced is drained and dropped by the sink's limit, so that a lie about the size
    // costs no memory.
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
  FileSink sink(descriptor, 0, size == ptp::kUnknownObjectSize ? FileSink::kUnlimited : size,
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
  // Beside the final name and under another, so that whoever watches the folder sees nothing half.
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
  if (!safeName) return std::nullopt;
  // Not in one that is shared: another process may read a file of the same name just now.
  ScratchFolder folder;
  std::string path = folder.path() + "/" + *safeName;
  writePrivately(path, content);
  folder.leave();
  return path;
}

void removeTemporaryFile(const std::string& path) {
  ::unlink(path.c_str());
  ::rmdir(std::filesystem::path(path).parent_path().c_str());  // empty now, or not ours
}

namespace {

/// One object on its way to one file.
class Fetch {
 public:
  Fetch(PTPTransactions& device, SparePieces& spare, std::uint32_t handle,
        const FetchRequest& request, FetchResult& result)
      : device_(device),
        spare_(spare),
        handle_(handle),
        request_(request),
        result_(result),
        place_(request, result) {}

  /// True when there is something to be fetched, and a place for it.
  bool prepare();
  void run();

 private:
  /// Names the object for a part that is gone on with; empty where none may be kept.
  std::string identity() const;

  /// For what the part does not have yet.
  bool hasRoom(const PartFile& part);
  Status transfer(PartFile& part);
  Status stream(PartFile& part);
  Status goOn(PartFile& part, std::uint32_t from);
  Status takeIn(Status status, const FileSink& sink, std::uint64_t received,
                std::uint64_t expected);

  PTPTransactions& device_;
  SparePieces& spare_;
  std::uint32_t handle_;
  const FetchRequest& request_;
  FetchResult& result_;
  ObjectInfoPointer info_;
  FilePlace place_;
  bool couldNotWrite_ = false;
  bool pieceWasRefused_ = false;
};

bool Fetch::prepare() {
  const Status status = device_.objectInfo(info_, handle_);
  if (status != status::kOK) return place_.fail(status, "its information cannot be read");
  if (info_->objFmtCode() == ptp::kAssociationFormat)
    // An association has no bytes to fetch.
    return place_.fail(status::kNotAFile, "it is a folder");
  result_.size = info_->compressedSize();
  return place_.prepare(info_->fileName());
}

std::string Fetch::identity() const {
  if (request_.device.empty() || !goesInChunks(device_.facts(), info_->compressedSize())) return {};
  // A device that was formatted gives its handles anew, hence size and date.
  return request_.device + formatted("\n%u\n%u\n", handle_, info_->compressedSize()) +
         info_->captureDateStr();
}

void Fetch::run() {
  const std::string identity = Fetch::identity();
  PartFile part(place_.folder(), PartFile::nameFor(place_.name(), identity));
  const auto opening = identity.empty() ? PartFile::Opening::kNew : PartFile::Opening::kContinue;
  if (const int error = part.open(opening); error != 0) {
    place_.failToWrite(
        error == EBUSY ? "another process fetches it" : "no file can be made in the folder", error);
    return;
  }
  // Before the transfer, so that hours are not spent on what cannot be kept; what an earlier
  // attempt has brought stays.
  if (!hasRoom(part)) {
    if (part.size() > 0) part.keep();
    return;
  }
  result_.status = transfer(part);
  if (result_.status == status::kOK) {
    place_.put(part, dateOfObject(*info_));
  } else if (!identity.empty() && !couldNotWrite_ && !pieceWasRefused_ && part.size() > 0) {
    // A full disk has no use for half an object, and a device that lists pieces but gives none
    // would refuse them for ever.
    part.keep();
    result_.part = request_.folder + "/" + part.name();
    result_.kept = part.size();
  }
}

bool Fetch::hasRoom(const PartFile& part) {
  const std::uint64_t size = info_->compressedSize();
  return size == ptp::kUnknownObjectSize || place_.hasRoom(size - std::min(size, part.size()));
}

Status Fetch::transfer(PartFile& part) {
  const std::uint64_t there = part.size();
  // Of an earlier attempt; longer than the object it is nothing that came from it.
  // Exactly as long as the object is whole: goOn() then asks for nothing, and only its date is
  // missing.
  if (there > 0 && there <= info_->compressedSize()) {
    return goOn(part, static_cast<std::uint32_t>(there));
  }
  const int error = part.truncate(0);  // the one longer than the object
  if (error == 0) return stream(part);
  couldNotWrite_ = true;
  place_.failToWrite("the file cannot be written", error);
  return status::kIOError;
}

Status Fetch::stream(PartFile& part) {
  const std::uint32_t size = info_->compressedSize();
  std::uint64_t received = 0;
  // One transaction: a device answers each piece with a delay of its own.
  FileSink sink(part.descriptor(), 0, size == ptp::kUnknownObjectSize ? FileSink::kUnlimited : size,
                request_.progress, &spare_, request_.content);
  const Status status = device_.downloadEntireObject(handle_, size, sink, received);
  // 0xFFFFFFFF announces nothing; how much came is how much there is.
  if (size == ptp::kUnknownObjectSize) result_.size = received;
  return takeIn(status, sink, received, size);
}

Status Fetch::goOn(PartFile& part, std::uint32_t from) {
  const std::uint32_t size = info_->compressedSize();
  // The device is not asked whether the part is still the same object: its identity in the part's
  // name is.
  result_.resumed = from;
  // Told as well, so that what was told adds up to the whole.
  if (request_.progress && request_.progress(from)) return status::kCancelled;
  Status status = status::kOK;
  for (std::uint32_t offset = from; status == status::kOK && offset < size;) {
    const std::uint32_t length = std::min(size - offset, kDownloadChunk);
    std::uint64_t received = 0;
    FileSink sink(part.descriptor(), offset, length, request_.progress, &spare_, request_.content);
    status = device_.downloadPartialObject(handle_, offset, length, sink, received);
    // A general error is also what a device that has gone comes to.
    const bool isError = status > 0 && status != status::kPTPGeneralError;
    // Less than was asked for is a piece (ISO 15740, GetPartialObject), nothing is none.
    pieceWasRefused_ = isError || (status == status::kOK && received == 0);
    offset += static_cast<std::uint32_t>(received);
    status = takeIn(status, sink, received > 0 ? size : offset, size);
  }
  return status;
}

Status Fetch::takeIn(Status status, const FileSink& sink, std::uint64_t received,
                     std::uint64_t expected) {
  couldNotWrite_ = sink.error() != 0;
  if (couldNotWrite_) {
    // The transport calls it a cancelled transfer.
    place_.failToWrite("the file cannot be written", sink.error());
    return status::kIOError;
  }
  if (status != status::kOK || expected == ptp::kUnknownObjectSize || received >= expected)
    return status;
  result_.why =
      formatted("the device sent %llu of %llu bytes", static_cast<unsigned long long>(received),
                static_cast<unsigned long long>(expected));
  return status::kPTPIncompleteTransfer;
}

}  // namespace

FetchResult ObjectFetch::toFile(std::uint32_t handle, const FetchRequest& request) {
  FetchResult result;
  // What raises is the decoding of what the device says; a transaction that fails has a status.
  try {
    Fetch fetch(device_, spare_, handle, request, result);
    // Each step that fails has left its words in the result.
    if (fetch.prepare()) fetch.run();
  } catch (const Exception& exception) {
    // An object whose information is malformed ends no batch.
    result.status = status::kICAProtocolError;
    result.why = exception.reason();
  }
  return result;
}

}  // namespace tarvo
