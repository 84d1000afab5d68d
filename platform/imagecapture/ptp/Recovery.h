// Getting back in step with a device after a transaction that went wrong: the class requests of the
// USB still-image class (PIMA 15740:2000, annex D.5), endpoint halts and stale data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/Container.h"

namespace tarvo::ptp {

/// Main thread only. Each step takes `Timeouts::recovery` at most, and as long as stale data come
/// `Timeouts::stale` at most. A device that lets one class request time out is asked nothing more
/// on endpoint 0, unless it was busy with sending such data.
///
/// The stages, each of which is enough for some devices: the cancel request; waiting until the
/// device status is OK, with halts ended as the device names them; reading until the device is at
/// the end of the transaction; a reset, which costs the session, by device reset, or by port where
/// the device does not know that request or is silent. A device from which nothing has ever come on
/// the bulk endpoint is not reset by port: it may be busy with something that is not ours.
class Recovery {
 public:
  /// `scratch` takes what is drained. All are lent.
  Recovery(USBDevice& device, BulkPipe& pipe, std::span<std::byte> scratch,
           const Timeouts& timeouts);

  /// Ends the halt of `endpoint` and of those that the device status names.
  void clearHalts(std::uint8_t endpoint);

  /// The whole way back: cancel request, device status until it is OK, what is left in the IN
  /// endpoint dropped, and a reset where the device does not come to rest. False when it is not
  /// idle in the end.
  bool resynchronise(std::uint32_t transactionID);

  /// For a device that a killed process has left in the middle of something and that says nothing:
  /// what it may want to send is dropped, then cancel request and device reset, whatever it says of
  /// itself; without the reset where it was only busy with sending, unless `always`. False when it
  /// is not idle in the end.
  bool startAfresh(std::uint32_t transactionID, bool always);

  /// The device drops its session. False when it does not become idle.
  bool reset();
  /// Whether there was a reset in the last recovery.
  bool wasReset() const { return wasReset_; }

  bool silent() const { return silent_; }  ///< a class request has timed out
  bool gone() const { return gone_; }

 private:
  /// Tells the device to give the transaction up. False when it did not take that: many know no
  /// class requests, and go on to the end.
  bool cancelTransaction(std::uint32_t transactionID);
  /// Reads and drops what the device still sends, until the transaction's response has come. A
  /// pause is an end, too, where `pauseEnds`. False when there was none within `most`.
  bool drain(std::uint32_t transactionID, bool pauseEnds, BulkPipe::Milliseconds most);
  bool resetPort();
  /// None when the device does not know the request or has not answered.
  std::optional<DeviceStatus> deviceStatus();
  /// False when the device is still busy after Timeouts::recovery, silent or gone.
  bool awaitIdle();
  std::optional<std::size_t> request(std::uint8_t type, std::uint8_t code,
                                     std::span<std::byte> data);
  /// False, and nothing is done, for an endpoint that is not ours, for the device may name any, and
  /// for a device that answers no class request in this recovery.
  bool clearHalt(std::uint8_t endpoint);

  USBDevice& device_;
  BulkPipe& pipe_;
  std::span<std::byte> scratch_;
  Timeouts timeouts_;
  bool heard_ = false;  ///< in this recovery a class request was answered, or refused
  bool wasReset_ = false;
  bool silent_ = false;
  bool gone_ = false;
};

// The transaction ids of one session (ISO 15740, 9.3.1): 1, 2, ... 0xFFFFFFFE, and 1 again.

/// Outside a session, and for OpenSession itself, the id is 0.
inline constexpr std::uint32_t kNoTransactionID = 0;

///   TransactionIDs ids;  // of one session
///   ids.next();          // 1
class TransactionIDs {
 public:
  /// `last` is the id that was used before the first next(); tests begin near the end of the range.
  explicit TransactionIDs(std::uint32_t last = 0) : last_(last) {}

  /// Never 0 and never 0xFFFFFFFF, which are reserved.
  std::uint32_t next() {
    last_ = last_ >= 0xFFFFFFFE ? 1 : last_ + 1;
    return last_;
  }

 private:
  std::uint32_t last_;
};

}  // namespace tarvo::ptp
