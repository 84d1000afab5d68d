#include "NativeServices/PictureDevice/operations/ObjectFetch.h"

#include <algorithm>
#include <utility>

#include "NativeServices/PictureDevice/datasets/PTPDates.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/PartFile.h"

namespace tarvo {

namespace {

constexpr std::uint16_t kAssociationFormat = 0x3001;
constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;

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
  if (info_->objFmtCode() == kAssociationFormat)
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
    place_.failToWrite("no file can be made in the folder", error);
    return;
  }
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
  return size == kUnknownSize || place_.hasRoom(size - std::min(size, part.size()));
}

Status Fetch::transfer(PartFile& part) {
  const std::uint64_t there = part.size();
  // Of an earlier attempt; longer than the object it is nothing that came from it.
  if (there > 0 && there <= info_->compressedSize()) {
    return goOn(part, static_cast<std::uint32_t>(there));
  }
  part.truncate(0);  // the one longer than the object
  return stream(part);
}

Status Fetch::stream(PartFile& part) {
  const std::uint32_t size = info_->compressedSize();
  std::uint64_t received = 0;
  // One transaction: a device answers each piece with a delay of its own.
  FileSink sink(part.descriptor(), 0, size == kUnknownSize ? FileSink::kUnlimited : size,
                request_.progress, &spare_);
  const Status status = device_.downloadEntireObject(handle_, size, sink, received);
  if (size == kUnknownSize) result_.size = received;
  return takeIn(status, sink, received, size);
}

Status Fetch::goOn(PartFile& part, std::uint32_t from) {
  const std::uint32_t size = info_->compressedSize();
  result_.resumed = from;
  // Told as well, so that what was told adds up to the whole.
  if (request_.progress && request_.progress(from)) return status::kCancelled;
  Status status = status::kOK;
  for (std::uint32_t offset = from; status == status::kOK && offset < size;) {
    const std::uint32_t length = std::min(size - offset, kDownloadChunk);
    std::uint64_t received = 0;
    FileSink sink(part.descriptor(), offset, length, request_.progress, &spare_);
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
  if (status != status::kOK || expected == kUnknownSize || received >= expected) return status;
  result_.why =
      formatted("the device sent %llu of %llu bytes", static_cast<unsigned long long>(received),
                static_cast<unsigned long long>(expected));
  return status::kPTPIncompleteTransfer;
}

}  // namespace

FetchResult ObjectFetch::toFile(std::uint32_t handle, const FetchRequest& request) {
  FetchResult result;
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
