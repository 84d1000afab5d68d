// One PTP transaction over Image Capture's pass-through message, in the shape that all operations
// share.
//
//   PassThroughTransaction transaction({.method = "storageIDs",
//                                       .operation = ptp::kGetStorageIDs,
//                                       .dataUsageMode = kDataFromDevice,
//                                       .room = 128});
//   if (!transaction.run(device)) return transaction.outcome();
//   auto ids = transaction.reader().scanUInt32Array();
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/XTPTPDataSet.h"
#include "Utilities/Status.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

class XTImageCaptureDevice;

/// What a transaction is made of. `data` is lent to the constructor only.
struct PTPRequest {
  /// Name of the operation in "... couldn't get an ICA object".
  std::string method;
  /// What the two failure lines begin with; `method` where empty.
  std::string headerFailure{};
  std::string resultFailure{};
  std::uint16_t operation = 0;
  std::vector<std::uint32_t> parameters{};  ///< at most 4
  std::uint32_t responseParameters = 0;     ///< wanted
  /// Which way the data phase goes; without one neither `room` nor `data` counts.
  PTPDataUsageMode dataUsageMode = kNoData;
  std::size_t room = 0;                          ///< bytes that may be received
  std::span<const std::byte> data{};             ///< to send
  const char* mallocFailure = "malloc failed.";  ///< reason of the malloc exception
};

/// Main thread only.
/// The record lies in one allocation with the room for the data phase, and is sent once.
class PassThroughTransaction {
 public:
  /// Raises the malloc exception.
  explicit PassThroughTransaction(PTPRequest request);

  /// Sends it to `device`; true when the device answered OK. Any other end is traced.
  bool run(XTImageCaptureDevice& device);

  /// 0 after success; 0x2003 without an Image Capture object; else the response code, 0x2002 where
  /// there is none, or the message's status where the response was OK all the same.
  Status outcome() const;
  /// What sending the message returned.
  Status status() const { return status_; }
  /// 0 before run().
  std::uint32_t responseCode() const { return record_.pb().resultCode; }
  /// `index` is 0 to 3; one that the device left out reads as 0.
  std::uint32_t responseParameter(std::size_t index) const { return record_.pb().params[index]; }

  /// What the device sent, at most the room.
  std::span<const std::byte> received() const;
  /// A little-endian reader over the whole room, which was cleared: a short answer reads as zeros.
  /// Valid as long as the transaction.
  XTPTPDataSet reader() const;
  /// True, and traced, when `reader` has gone beyond what the device sent.
  bool wasShort(const XTPTPDataSet& reader) const;

  /// Gives the record up to the caller; the transaction is of no use afterwards.
  PTPPassThroughRecord takeRecord() { return std::move(record_); }

 private:
  /// The two lines in which every failing operation is traced.
  void traceFailure(Status headerErr) const;

  PTPRequest request_;
  PTPPassThroughRecord record_;
  Status status_ = status::kOK;
  /// False until a device with an Image Capture object got the message.
  bool hadObject_ = false;
};

}  // namespace tarvo
