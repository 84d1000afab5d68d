// What a PTP device gets and gives, without containers and packets, and the table of its
// operations.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulator/bytes/Payload.h"

namespace tarvo::simulator {

enum Response : std::uint16_t {
  kOK = 0x2001,
  kGeneralError = 0x2002,
  kSessionNotOpen = 0x2003,
  kInvalidTransactionID = 0x2004,
  kOperationNotSupported = 0x2005,
  kParameterNotSupported = 0x2006,
  kIncompleteTransfer = 0x2007,
  kInvalidStorageID = 0x2008,
  kInvalidObjectHandle = 0x2009,
  kDevicePropNotSupported = 0x200A,
  kInvalidObjectFormatCode = 0x200B,
  kStoreFull = 0x200C,
  kObjectWriteProtected = 0x200D,
  kStoreReadOnly = 0x200E,
  kAccessDenied = 0x200F,
  kNoThumbnailPresent = 0x2010,
  kPartialDeletion = 0x2012,
  kStoreNotAvailable = 0x2013,
  kSpecificationByFormatUnsupported = 0x2014,
  kNoValidObjectInfo = 0x2015,
  kCaptureAlreadyTerminated = 0x2018,
  kDeviceBusy = 0x2019,
  kInvalidParentObject = 0x201A,
  kInvalidDevicePropFormat = 0x201B,
  kInvalidDevicePropValue = 0x201C,
  kInvalidParameter = 0x201D,
  kSessionAlreadyOpen = 0x201E,
  kTransactionCancelled = 0x201F,
};

enum EventCode : std::uint16_t {
  kObjectAdded = 0x4002,
  kObjectRemoved = 0x4003,
  kDevicePropChanged = 0x4006,
  kStoreFullEvent = 0x400A,
  kCaptureComplete = 0x400D,
};

/// Each information operation goes with the data operation behind it; kSendExtendedInfo goes with
/// SendObject.
enum VendorOperation : std::uint16_t {
  kVendorSendInfo = 0x9001,
  kVendorSendData = 0x9002,
  kAlternateSendInfo = 0x9005,
  kAlternateSendData = 0x9006,
  kSendExtendedInfo = 0x9202,
  kVendorDelete = 0x9209,
};

/// Where the one data phase goes that an operation may have (ISO 15740).
enum class DataDirection { kNone, kFromDevice, kToDevice };

/// A command container, and the data container behind it where there is one.
struct PTPRequest {
  std::uint16_t operation = 0;
  std::uint32_t transactionID = 0;
  std::array<std::uint32_t, 5> parameters{};  ///< what the host left out is 0
  unsigned parameterCount = 0;
  std::shared_ptr<const Payload> data;  ///< what the host sent in the data phase; null: nothing
};

/// An event container (ISO 15740, "Events").
struct PTPEvent {
  std::uint16_t code = 0;
  std::vector<std::uint32_t> parameters;  ///< at most three
};

/// What goes back: the data phase first, then the response container; and what else comes of the
/// request.
struct PTPReply {
  std::uint16_t code = kOK;  ///< or the response code that refuses; 0: the device does not answer
  std::vector<std::uint32_t> parameters;
  std::shared_ptr<const Payload> data;  ///< data phase from the device; null: none
  std::vector<PTPEvent> events;
  std::vector<std::string> complaints;  ///< what the host did wrong, in words
  bool powersDown = false;              ///< the device goes once the response was taken
};

/// A reply without data.
inline PTPReply refuse(std::uint16_t code) {
  PTPReply reply;
  reply.code = code;
  return reply;
}

/// A reply with a data set.
inline PTPReply reply(ByteWriter& writer) {
  PTPReply made;
  made.data = std::make_shared<BytesPayload>(writer.take());
  return made;
}

/// How an operation is called and answered.
struct Operation {
  DataDirection direction = DataDirection::kNone;
  unsigned minimumParameters = 0;
  unsigned maximumParameters = 0;
  std::function<PTPReply(const PTPRequest&)> run;
  bool needsSession = true;
};

/// By operation code.
using OperationTable = std::map<std::uint16_t, Operation>;

/// A member function as an Operation's `run`; `self` must outlive the table.
template <typename Class>
std::function<PTPReply(const PTPRequest&)> calling(Class* self,
                                                   PTPReply (Class::*member)(const PTPRequest&)) {
  return [self, member](const PTPRequest& request) { return (self->*member)(request); };
}

}  // namespace tarvo::simulator
