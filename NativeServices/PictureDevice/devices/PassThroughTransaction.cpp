#include "NativeServices/PictureDevice/devices/PassThroughTransaction.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "Utilities/Exception.h"

namespace tarvo {
namespace {

/// In bytes. A record without a data phase still has one byte of room.
/// A payload that goes straight to its sink needs no room in the record, and a large room is made
/// apart: clearing megabytes costs more than reading into them.
std::size_t recordRoomFor(const PTPRequest& request) {
  const bool isElsewhere = request.sink != nullptr || request.source != nullptr ||
                           request.room > PassThroughTransaction::kLargestClearedRoom;
  return isElsewhere ? 1 : std::max<std::size_t>({request.room, request.data.size(), 1});
}

/// What the record announces: the exact size of what is sent, the room for what is received; the
/// service writes there how much came.
std::uint64_t dataSizeOf(const PTPRequest& request) {
  if (request.dataUsageMode != kDataToDevice) return request.room;
  return request.source ? request.source->size() : request.data.size();
}

[[noreturn]] void raiseMalloc(const PTPRequest& request) {
  throw Exception(std::string(exception_name::kMalloc), request.mallocFailure);
}

}  // namespace

PassThroughTransaction::PassThroughTransaction(PTPRequest request)
    : request_(std::move(request)), record_(recordRoomFor(request_), request_.mallocFailure) {
  // Most operations name themselves alike in all lines.
  if (request_.headerFailure.empty()) request_.headerFailure = request_.method;
  if (request_.resultFailure.empty()) request_.resultFailure = request_.headerFailure;

  const std::size_t most =
      request_.sink || request_.source ? std::numeric_limits<std::uint32_t>::max() : kLargestRoom;
  if (dataSizeOf(request_) > most) raiseMalloc(request_);
  if (!request_.sink && request_.room > kLargestClearedRoom) makeLargeRoom();

  auto& pb = record_.pb();
  pb.commandCode = request_.operation;
  pb.numOfInputParams = static_cast<std::uint32_t>(
      std::min<std::size_t>(request_.parameters.size(), std::size(pb.params)));
  std::copy_n(request_.parameters.begin(), pb.numOfInputParams, pb.params);
  pb.numOfOutputParams = request_.responseParameters;
  pb.dataUsageMode = request_.dataUsageMode;
  pb.dataSize = static_cast<std::uint32_t>(dataSizeOf(request_));
  record_.setSink(request_.sink);
  record_.setSource(request_.source);
  // Also ends the loan: a retry or a late look at the record must not reach the caller's bytes.
  // Small: what is large is sent from a source.
  if (!request_.source) std::ranges::copy(request_.data, record_.data().begin());
}

void PassThroughTransaction::makeLargeRoom() {
  try {
    largeSink_ =
        std::make_unique<BufferSink>(largeData_, static_cast<std::uint32_t>(request_.room));
  } catch (const std::bad_alloc&) {
    raiseMalloc(request_);
  }
  request_.sink = largeSink_.get();
}

bool PassThroughTransaction::run(XTImageCaptureDevice& device) {
  // Remembered, since a device may lose its object while the transaction runs.
  hadObject_ = device.icaObject() != 0;
  if (!hadObject_) {
    TraceLog::trace("%s couldn't get an ICA object", request_.method.c_str());
    return false;
  }
  ICAObjectSendMessagePB block;
  block.object = device.icaObject();
  block.messageType = ica::kMessagePass;
  block.data = &record_;
  block.dataSize = static_cast<std::uint32_t>(record_.allocationSize());
  block.dataType = ica::kDataTypeData;
  status_ = device.icaObjectSendMessage(block);
  headerErr_ = block.headerErr;
  // Lent no longer; our own sink cuts its data to what came.
  // The record may be taken and kept by the caller, longer than the sink lives.
  record_.setSink(nullptr);
  record_.setSource(nullptr);
  largeSink_.reset();
  const bool succeeded = outcome() == status::kOK;
  // An answer that is expected ("there are none of that format") is no failure and would fill the
  // trace.
  const bool isAnswer = responseCode() != 0 && responseCode() == request_.untracedResponse;
  if (!succeeded && !isAnswer) traceFailure();
  return succeeded;
}

Status PassThroughTransaction::outcome() const {
  // The response says more than the message's status; the status counts when the response is OK.
  if (!hadObject_) return status::kPTPSessionNotOpen;
  // The device has no word for it: the user, or whoever takes or gives the data, wanted no more.
  if (status_ == status::kCancelled) return status_;
  const auto response = static_cast<Status>(responseCode());
  if (response == status::kPTPOK) return status_;
  // 0 is what stands there when the device has not answered.
  return response == 0 ? status::kPTPGeneralError : response;
}

std::span<const std::byte> PassThroughTransaction::received() const {
  if (!largeData_.empty()) return largeData_;
  if (request_.sink) return {};
  const auto data = record_.data();
  // The size is the device's word by now and is not trusted.
  return data.first(std::min<std::size_t>(record_.pb().dataSize, data.size()));
}

XTPTPDataSet PassThroughTransaction::reader() const {
  return reader(request_.room);
}

XTPTPDataSet PassThroughTransaction::reader(std::size_t length) const {
  // The whole room, not what was received: the rest was cleared and reads as zeros.
  const auto data = request_.sink ? received() : record_.data();
  return XTPTPDataSet::ptpDataSetWithBytesNoCpy(data.first(std::min(length, data.size())),
                                                kPTPByteOrder);
}

bool PassThroughTransaction::wasShort(const XTPTPDataSet& reader) const {
  const bool isShort = reader.position() > received().size();
  if (isShort) {
    TraceLog::trace("%s read %u bytes, the device sent %zu", request_.method.c_str(),
                    reader.position(), received().size());
  }
  return isShort;
}

void PassThroughTransaction::traceFailure() const {
  const char* const header = request_.headerFailure.c_str();
  const auto error = static_cast<unsigned>(headerErr_);
  switch (request_.failureTrace) {
    case FailureTrace::kStatusAndResponse:
      TraceLog::trace("%s status %d response 0x%X", header, status_, responseCode());
      return;
    case FailureTrace::kHeaderAndResultInOne:
      TraceLog::trace("%s objectSendMessagePB.header.err: 0x%x, result %i: resultCode: 0x%x",
                      header, error, status_, responseCode());
      return;
    case FailureTrace::kHeaderAndResult:
      TraceLog::trace("%s objectSendMessagePB.header.err: 0x%x", header, error);
      TraceLog::trace("%s result %i: resultCode: 0x%x", request_.resultFailure.c_str(), status_,
                      responseCode());
      return;
  }
}

}  // namespace tarvo
