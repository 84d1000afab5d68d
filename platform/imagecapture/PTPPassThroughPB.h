// The record that carries one PTP transaction through the Image Capture service.
//
// Eleven 32-bit values in host order, then the data phase from offset 44 on. A record owns one
// buffer of 45 + room bytes:
//
//   PTPPassThroughRecord record(2048);
//   record.pb().commandCode = ptp::kGetDeviceInfo;
//   record.pb().dataUsageMode = kDataFromDevice;
//
// A payload may go straight to its sink, or come straight from its source, instead of lying behind
// the record: then the data area has no room, and dataSize counts what the sink may take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/imagecapture/ptp/DataPhase.h"

namespace tarvo {

/// Which way the data phase goes (ISO 15740: an operation has one at most, in one
/// direction).
enum PTPDataUsageMode : std::uint32_t {
  kDataToDevice = 0,
  kDataFromDevice = 1,
  kNoData = 2,
};

/// The fixed part. It is read and written by clients in place, so its layout never changes.
struct PTPPassThroughPB {
  /// PTP operation code, 16 bits; OpenSession and CloseSession are refused.
  std::uint32_t commandCode;
  std::uint32_t resultCode;         ///< PTP response code, filled in by the service
  std::uint32_t numOfInputParams;   ///< 0 to 4
  std::uint32_t numOfOutputParams;  ///< number of response parameters wanted
  std::uint32_t params[4];          ///< operation parameters in, response parameters out
  std::uint32_t dataUsageMode;
  std::uint32_t flags;     ///< always 0
  std::uint32_t dataSize;  ///< bytes to send, or room; on return bytes received
};
static_assert(sizeof(PTPPassThroughPB) == 44);

/// Owns a cleared record with its data area. Movable, never copied.
class PTPPassThroughRecord {
 public:
  /// Offset of the data area.
  static constexpr std::size_t kHeaderSize = sizeof(PTPPassThroughPB);

  /// `room`: bytes of the data area; dataSize is preset to it. Raises the malloc exception with
  /// `failureReason` when there is no memory for it.
  /// `failureReason` is lent for the call.
  explicit PTPPassThroughRecord(std::size_t room, const char* failureReason = "malloc failed.");

  /// The fixed part, in the record's own buffer.
  PTPPassThroughPB& pb() { return *reinterpret_cast<PTPPassThroughPB*>(buffer_.get()); }
  const PTPPassThroughPB& pb() const {
    return *reinterpret_cast<const PTPPassThroughPB*>(buffer_.get());
  }
  /// The whole data area, of which dataSize bytes count. Lent while the record lives.
  std::span<std::byte> data() { return {buffer_.get() + kHeaderSize, room_}; }
  std::span<const std::byte> data() const { return {buffer_.get() + kHeaderSize, room_}; }

  /// Where the data phase goes or comes from in place of the data area; lent until the record has
  /// been sent. Null, as at first: the data area. A source's size goes before dataSize.
  void setSink(ptp::DataSink* sink) { sink_ = sink; }
  void setSource(ptp::DataSource* source) { source_ = source; }
  ptp::DataSink* sink() const { return sink_; }
  ptp::DataSource* source() const { return source_; }

  /// Header, data area and one byte.
  std::size_t allocationSize() const { return room_ + kHeaderSize + 1; }

 private:
  /// Aligned for the fixed part, since new[] of bytes aligns for every fundamental type.
  std::unique_ptr<std::byte[]> buffer_;
  std::size_t room_;
  ptp::DataSink* sink_ = nullptr;
  ptp::DataSource* source_ = nullptr;
};

}  // namespace tarvo
