// The bytes of objects, to a PTP device and from it. They go straight between the transport and
// whoever takes or gives them: nothing here holds a second copy.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <optional>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

/// Files above this size go in parts of it, in bytes, where the device takes parts.
constexpr std::uint32_t kPartSize = 0x200000;

/// Bytes of the caller's with the padding that keeps their container from being a multiple of 64
/// bytes long.
class PaddedSource : public ptp::DataSource {
 public:
  explicit PaddedSource(std::span<const std::byte> data)
      : data_(data), size_(data.size() + (isModulo64PayloadSize(data.size()) ? 1 : 0)) {
    if (size_ != data_.size()) {
      TraceLog::trace("objectData payload size adjusted to %d", static_cast<int>(size_));
    }
  }

  std::uint64_t size() const override { return size_; }
  std::span<const std::byte> bytes(std::uint64_t offset, std::size_t length) override {
    static constexpr std::byte kPadding{0};
    if (offset < data_.size()) {
      return data_.subspan(offset, std::min<std::uint64_t>(length, data_.size() - offset));
    }
    return {&kPadding, offset < size_ && length > 0 ? 1U : 0U};
  }

 private:
  std::span<const std::byte> data_;
  std::uint64_t size_;
};

/// Bytes of a file; none where there is no such file. Links are followed: what is sent is what the
/// user sees.
std::optional<std::uint64_t> fileSize(const std::string& path) {
  struct stat attributes {};
  if (::stat(path.c_str(), &attributes) != 0) return std::nullopt;
  return static_cast<std::uint64_t>(attributes.st_size);
}

FileDescriptor openForReading(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

/// A file that ends early says more than the transaction that was given up for it.
Status outcomeOf(const PassThroughTransaction& transaction, const FileSource& source) {
  if (source.endedEarly()) return status::kIOError;
  return source.wasCancelled() ? status::kCancelled : transaction.outcome();
}

constexpr char kSendObjectFailure[] = "sendObjectData kPTPCmdSendObject";

}  // namespace

bool XTImageCapturePTPDevice::reportProgress(std::uint32_t bytes) {
  return fields_.downloadUpdateCb && fields_.downloadUpdateCb(bytes);
}

Status XTImageCapturePTPDevice::downloadEntireObject(std::uint32_t handle, std::uint32_t size,
                                                     ptp::DataSink& sink, std::uint64_t& received) {
  received = 0;
  if (size == 0) return status::kOK;
  // More than the object's own information says is nothing that the caller has room for.
  ptp::CountingSink counted(sink,
                            size == ptp::kUnknownObjectSize ? ptp::CountingSink::kUnlimited : size);
  PassThroughTransaction transaction({.method = "downloadEntireObject",
                                      .headerFailure = "downloadEntireObject GetObject",
                                      .operation = ptp::kGetObject,
                                      .parameters = {handle},
                                      .dataUsageMode = kDataFromDevice,
                                      .room = size,
                                      .sink = &counted});
  run(transaction);
  // Also after a failure: what has come can be gone on from.
  received = counted.count();
  return transaction.outcome();
}

Status XTImageCapturePTPDevice::downloadPartialObject(std::uint32_t handle, std::uint32_t offset,
                                                      std::uint32_t size, ptp::DataSink& sink,
                                                      std::uint64_t& received) {
  received = 0;
  // Before each part, since the one before has taken time in which the user may have changed his
  // mind.
  if (reportProgress(0)) return lastOutcome_ = status::kCancelled;
  ptp::CountingSink counted(sink, size);
  PassThroughTransaction transaction({.method = "downloadPartialObject",
                                      .headerFailure = "downloadPartialObject GetPartialObject",
                                      .operation = ptp::kGetPartialObject,
                                      .parameters = {handle, offset, size},
                                      .dataUsageMode = kDataFromDevice,
                                      .room = size,
                                      .sink = &counted});
  const bool succeeded = run(transaction);
  received = counted.count();
  // The bytes are here, so it is too late to cancel this part: the next one asks again.
  if (succeeded) reportProgress(size);
  return transaction.outcome();
}

std::optional<ByteBuffer> XTImageCapturePTPDevice::downloadThumb(const ObjectReference& object) {
  const auto info = objectInfoForHandle(object);
  const std::uint32_t size = info ? info->thumbCompressedSize() : 0;
  if (size == 0) return std::nullopt;
  // The size is the device's word.
  if (size > PassThroughTransaction::kLargestRoom) {
    TraceLog::trace("downloadThumb: no thumbnail has %u bytes", size);
    return std::nullopt;
  }
  PassThroughTransaction transaction({.method = "downloadThumb",
                                      .headerFailure = "downloadThumb GetObject",
                                      .operation = ptp::kGetThumb,
                                      .parameters = {object.get<std::uint32_t>()},
                                      .dataUsageMode = kDataFromDevice,
                                      .room = size,
                                      .untracedResponse = status::kPTPNoThumbnailPresent});
  if (!run(transaction)) return std::nullopt;
  // As many as were expected, not as many as came; what did not come is zero.
  const auto reader = transaction.reader();
  const auto bytes = reader.bytes();
  return ByteBuffer(bytes.begin(), bytes.end());
}

Status XTImageCapturePTPDevice::sendObjectInfo(XTExtendedObjectInfo& info, std::uint32_t storage,
                                               std::uint32_t parent, std::uint32_t* resultHandle) {
  if (!resultHandle) {
    TraceLog::trace("sendObjectInfo was passed a nil result handle");
    return status::kBadParameter;
  }
  const auto& maker = PictureDeviceRoom::required().services().maker;
  // Before the format is filtered: which operation it is depends on what the object really is.
  const auto opcodes = opcodesForInfo(facts(), maker, info);
  // Kept for sendObjectData(), which has only bytes to go by.
  fields_.sendObjectOpcode = opcodes.sendObject;
  info.setObjFmtCode(formatCodeFilter(model(), maker, info.objFmtCode()));
  // The data phase of the object will have one byte of padding, so it is announced.
  if (isModulo64PayloadSize(info.compressedSize())) {
    info.setCompressedSize(info.compressedSize() + 1);
  }
  auto dataSet = info.dataSetWithByteOrder(kPTPByteOrder);
  dataSet.adjustToAvoidModulo64PayloadSize();
  TraceLog::traceWithTag(formatted("sendObjectInfo size: %d", static_cast<int>(dataSet.length())),
                         XTOptDebugLog);
  PassThroughTransaction transaction({.method = "sendObjectInfo",
                                      .headerFailure = "sendObjectInfo kPTPCmdSendObjectInfo",
                                      .operation = opcodes.sendInfo,
                                      .parameters = {storage, parent},
                                      .responseParameters = 3,
                                      .dataUsageMode = kDataToDevice,
                                      .data = dataSet.bytes(),
                                      .failureTrace = FailureTrace::kStatusAndResponse});
  if (run(transaction)) {
    *resultHandle = transaction.responseParameter(2);
    // Some devices use the handle of an object that was deleted again.
    invalidateInfoCacheForObject(*resultHandle);
  }
  // Also after a failure, of which nobody knows what it has left.
  contentsChanged();
  return transaction.outcome();
}

Status XTImageCapturePTPDevice::sendObjectData(std::span<const std::byte> data) {
  PaddedSource source(data);
  TraceLog::traceWithTag(formatted("sendObjectData sent size: %d", static_cast<int>(source.size())),
                         XTOptDebugLog);
  PassThroughTransaction transaction({.method = "sendObjectData",
                                      .headerFailure = kSendObjectFailure,
                                      .operation = fields_.sendObjectOpcode,
                                      .responseParameters = 3,
                                      .dataUsageMode = kDataToDevice,
                                      .source = &source,
                                      .failureTrace = FailureTrace::kStatusAndResponse});
  if (run(transaction)) {
    TraceLog::trace("sendObjectData received data size: %d",
                    static_cast<int>(transaction.dataSize()));
  }
  return transaction.outcome();
}

Status XTImageCapturePTPDevice::sendContentsOfFile(const std::string& path,
                                                   XTExtendedObjectInfo& info,
                                                   std::uint32_t storage, std::uint32_t parent,
                                                   std::uint32_t* resultHandle) {
  // Neither ObjectInfo nor a container has more than 32 bits for a size.
  if (fileSize(path).value_or(0) > std::numeric_limits<std::uint32_t>::max()) {
    TraceLog::trace("sendContentsOfFile: %s is too large to be sent: 4 GiB and more", path.c_str());
    return status::kBadParameter;
  }
  // A query is read by the device as it comes, and never in parts.
  const bool inParts = supportsOperation(ptp::XTO_SEND_OBJECT_PART) &&
                       info.compressedSize() > kPartSize && info.objFmtCode() != ptp::XTD_QUERY;
  std::uint32_t handle = 0;
  const Status status = inParts ? sendContentsOfFileInParts(path, info, storage, parent, handle)
                                : sendWholeFile(path, info, storage, parent, handle);
  if (status == status::kOK && resultHandle) *resultHandle = handle;
  return status;
}

// The announcement goes first: a file that cannot be read then is the rarer case.
Status XTImageCapturePTPDevice::sendWholeFile(const std::string& path, XTExtendedObjectInfo& info,
                                              std::uint32_t storage, std::uint32_t parent,
                                              std::uint32_t& handle) {
  if (const Status status = sendObjectInfo(info, storage, parent, &handle); status != status::kOK) {
    return status;
  }
  const auto size = fileSize(path);
  const FileDescriptor file = openForReading(path);
  if (!size || !file.isOpen()) return status::kFileNotFound;
  FileSource source(file.get(), 0, *size,
                    [this](std::uint32_t bytes) { return reportProgress(bytes); });
  PassThroughTransaction transaction({.method = "sendContentsOfFile",
                                      .headerFailure = kSendObjectFailure,
                                      .operation = fields_.sendObjectOpcode,
                                      .responseParameters = 3,
                                      .dataUsageMode = kDataToDevice,
                                      .source = &source,
                                      .failureTrace = FailureTrace::kStatusAndResponse});
  run(transaction);
  return lastOutcome_ = outcomeOf(transaction, source);
}

Status XTImageCapturePTPDevice::sendContentsOfFileInParts(const std::string& path,
                                                          XTExtendedObjectInfo& info,
                                                          std::uint32_t storage,
                                                          std::uint32_t parent,
                                                          std::uint32_t& handle) {
  // Of the object, before the padding that sendObjectInfo() may announce with it.
  const std::uint32_t size = info.compressedSize();
  if (reportProgress(0)) return status::kCancelled;
  const FileDescriptor file = openForReading(path);
  if (!file.isOpen()) return status::kFileNotFound;
  Status status = sendObjectInfo(info, storage, parent, &handle);
  // The callback is asked between parts, where the device is between transactions and a
  // cancellation needs no recovery.
  for (std::uint32_t sent = 0; status == status::kOK && sent < size;) {
    const std::uint32_t part = std::min(size - sent, kPartSize);
    status = sendPart(file.get(), sent, part, part == size - sent);
    sent += part;
    if (status == status::kOK && reportProgress(part)) status = status::kCancelled;
  }
  return status;
}

Status XTImageCapturePTPDevice::sendPart(int descriptor, std::uint32_t offset, std::uint32_t size,
                                         bool isLast) {
  // The parameter is the size without padding, by which the device tells the two apart.
  FileSource source(descriptor, offset, size, {});
  PassThroughTransaction transaction({.method = "sendContentsOfFileInParts",
                                      .headerFailure = kSendObjectFailure,
                                      .operation = ptp::XTO_SEND_OBJECT_PART,
                                      .parameters = {size, isLast ? 1U : 0U},
                                      .dataUsageMode = kDataToDevice,
                                      .source = &source,
                                      .failureTrace = FailureTrace::kStatusAndResponse});
  run(transaction);
  return lastOutcome_ = outcomeOf(transaction, source);
}

}  // namespace tarvo
