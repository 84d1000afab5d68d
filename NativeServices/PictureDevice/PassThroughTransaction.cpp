#include "NativeServices/PictureDevice/PassThroughTransaction.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/XTImageCaptureDevice.h"

namespace tarvo {

namespace {

// A record without a data phase still has one byte of room.
std::size_t roomFor(const PTPRequest& request) {
  return std::max<std::size_t>({request.room, request.data.size(), 1});
}

}  // namespace

PassThroughTransaction::PassThroughTransaction(PTPRequest request)
    : request_(std::move(request)), record_(roomFor(request_), request_.mallocFailure) {
  // Most operations name themselves alike in all three lines.
  if (request_.headerFailure.empty()) request_.headerFailure = request_.method;
  if (request_.resultFailure.empty()) request_.resultFailure = request_.headerFailure;

  auto& pb = record_.pb();
  pb.commandCode = request_.operation;
  pb.numOfInputParams = static_cast<std::uint32_t>(
      std::min<std::size_t>(request_.parameters.size(), std::size(pb.params)));
  std::copy_n(request_.parameters.begin(), pb.numOfInputParams, pb.params);
  pb.numOfOutputParams = request_.responseParameters;
  pb.dataUsageMode = request_.dataUsageMode;
  // What is sent has its exact size, what is received the room; the service writes there how much
  // came.
  pb.dataSize = static_cast<std::uint32_t>(
      request_.dataUsageMode == kDataToDevice ? request_.data.size() : request_.room);
  // Also ends the loan: a retry or a late look at the record must not reach the caller's bytes.
  std::ranges::copy(request_.data, record_.data().begin());
}

bool PassThroughTransaction::run(XTImageCaptureDevice& device) {
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
  const bool succeeded = outcome() == status::kOK;
  if (!succeeded) traceFailure(block.headerErr);
  return succeeded;
}

Status PassThroughTransaction::outcome() const {
  // The response says more than the message's status; the status counts when the response is OK.
  if (!hadObject_) return status::kPTPSessionNotOpen;
  const auto response = static_cast<Status>(responseCode());
  if (response == status::kPTPOK) return status_;
  return response == 0 ? status::kPTPGeneralError : response;
}

std::span<const std::byte> PassThroughTransaction::received() const {
  const auto data = record_.data();
  // The size is the device's word by now and is not trusted.
  return data.first(std::min<std::size_t>(record_.pb().dataSize, data.size()));
}

XTPTPDataSet PassThroughTransaction::reader() const {
  // The whole room, not what was received: the rest was cleared and reads as zeros.
  return XTPTPDataSet::ptpDataSetWithBytesNoCpy(record_.data(), kPTPByteOrder);
}

bool PassThroughTransaction::wasShort(const XTPTPDataSet& reader) const {
  const bool isShort = reader.position() > received().size();
  if (isShort) {
    TraceLog::trace("%s read %u bytes, the device sent %zu", request_.method.c_str(),
                    reader.position(), received().size());
  }
  return isShort;
}

void PassThroughTransaction::traceFailure(Status headerErr) const {
  TraceLog::trace("%s objectSendMessagePB.header.err: 0x%x", request_.headerFailure.c_str(),
                  static_cast<unsigned>(headerErr));
  TraceLog::trace("%s result %i: resultCode: 0x%x", request_.resultFailure.c_str(), status_,
                  responseCode());
}

}  // namespace tarvo
