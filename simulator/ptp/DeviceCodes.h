// Response and event codes of ISO 15740 as a device sends them, and the maker's operations for
// sending and deleting. The product has its own list of those that it knows; a device uses them
// all.
#pragma once

#include <cstdint>

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

}  // namespace tarvo::simulator
