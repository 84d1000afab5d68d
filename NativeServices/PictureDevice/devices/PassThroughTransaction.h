// One PTP transaction over Image Capture's pass-through message, in the shape that all operations
// share.
//
//   PassThroughTransaction transaction({.method = "storageIDs",
//                                       .operation = ptp::kGetStorageIDs,
//                                       .dataUsageMode = kDataFromDevice,
//                                       .room = 128});
//   if (!transaction.run(device)) return transaction.outcome();
//   auto ids = transaction.reader().scanUInt32Array();
//
// Data sets are small and lie in the record. The bytes of an object do not: they go straight to a
// sink or come straight from a source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/Status.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

class XTImageCaptureDevice;

/// In which lines a failure is traced, each behind a text of the operation.
enum class FailureTrace : std::uint8_t {
  kHeaderAndResult,       ///< "... objectSendMessagePB.header.err: ", "... result N: resultCode: "
  kStatusAndResponse,     ///< "... status N response 0xN"
  kHeaderAndResultInOne,  ///< "... objectSendMessagePB.header.err: , result N: resultCode: "
};

/// What a transaction is made of. `data` is lent to the constructor only, `sink` and `source` until
/// run() returns.
struct PTPRequest {
  /// Name of the operation in "... couldn't get an ICA object".
  std::string method;
  /// What the two failure lines begin with; `method` where empty.
  std::string headerFailure{};
  std::string resultFailure{};
  std::uint16_t operation = 0;
  std::vector<std::uint32_t> parameters{};  ///< at most 4
  std::uint32_t responseParameters = 0;     ///< wanted
  /// Which way the data phase goes; without one none of the next four counts.
  PTPDataUsageMode dataUsageMode = kNoData;
  std::size_t room = 0;               ///< bytes that may be received, also into `sink`
  std::span<const std::byte> data{};  ///< to send
  ptp::DataSink* sink = nullptr;      ///< takes what is received in place of the record
  ptp::DataSource* source = nullptr;  ///< gives what is sent in place of `data`
  /// Reason of the malloc exception; lent to the constructor.
  const char* mallocFailure = "malloc failed.";
  FailureTrace failureTrace = FailureTrace::kHeaderAndResult;
  /// A response code that is an answer like any other: it is no success, but is not traced.
  std::uint16_t untracedResponse = 0;
};

/// Main thread only.
/// The record lies in one allocation with the room for the data phase, and is sent once.
class PassThroughTransaction {
 public:
  /// Rooms up to this size, in bytes, lie in the record and are cleared. A size that a device
  /// claims may be any: a larger room costs only what arrives in it.
  static constexpr std::size_t kLargestClearedRoom = std::size_t{1} << 20;
  /// No list is longer: 16 million objects have room in it. Sinks may take more.
  static constexpr std::size_t kLargestRoom = std::size_t{1} << 26;

  /// Raises the malloc exception, also for more room than the largest, and for 4 GiB and more into
  /// a sink or from a source, which no record can announce.
  explicit PassThroughTransaction(PTPRequest request);
  PassThroughTransaction(const PassThroughTransaction&) = delete;
  PassThroughTransaction& operator=(const PassThroughTransaction&) = delete;

  /// Sends it to `device`; true when the device answered OK. Any other end is traced.
  bool run(XTImageCaptureDevice& device);

  /// 0 after success; 0x2003 without an Image Capture object; -490 when this side ended it; else
  /// the response code, 0x2002 where there is none, or the message's status where the response was
  /// OK all the same.
  Status outcome() const;
  /// What sending the message returned.
  Status status() const { return status_; }
  /// The parameter block's own error.
  Status headerErr() const { return headerErr_; }
  /// 0 before run().
  std::uint32_t responseCode() const { return record_.pb().resultCode; }
  /// `index` is 0 to 3; one that the device left out reads as 0.
  std::uint32_t responseParameter(std::size_t index) const { return record_.pb().params[index]; }

  /// Bytes of the data phase: what the service says of a receive, what was announced of a send.
  std::uint32_t dataSize() const { return record_.pb().dataSize; }
  /// What the device sent, at most the room; nothing where it went into a sink.
  std::span<const std::byte> received() const;
  /// A little-endian reader over the whole room, which was cleared: a short answer reads as zeros.
  /// Of a room that was too large to be cleared only what was received can be read. Valid as long
  /// as the transaction.
  XTPTPDataSet reader() const;
  /// The same over the first `length` bytes of the room at most.
  XTPTPDataSet reader(std::size_t length) const;
  /// True, and traced, when `reader` has gone beyond what the device sent.
  bool wasShort(const XTPTPDataSet& reader) const;

  /// Gives the record up to the caller; the transaction is of no use afterwards.
  PTPPassThroughRecord takeRecord() { return std::move(record_); }

 private:
  /// Makes a sink of our own for a large room.
  void makeLargeRoom();
  void traceFailure() const;

  PTPRequest request_;
  PTPPassThroughRecord record_;
  /// The data phase where the room is larger than the record's own may be.
  ByteBuffer largeData_;
  std::unique_ptr<BufferSink> largeSink_;
  Status status_ = status::kOK;
  Status headerErr_ = status::kOK;
  /// False until a device with an Image Capture object got the message.
  bool hadObject_ = false;
};

}  // namespace tarvo
