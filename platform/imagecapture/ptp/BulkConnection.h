// A PTP conversation over USB bulk transport: sessions, transaction ids, and what is done about a
// transaction that goes wrong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/TransactionRunner.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

// Getting back in step with a device after a transaction that went wrong: the class requests of the
// USB still-image class (PIMA 15740:2000, annex D.5), endpoint halts and stale data.

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
  /// itself; without the reset where it was only busy with sending, and without either where that
  /// ended with a response, unless `always`. False when it is not idle in the end.
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
  bool hasAnswered_ = false;  ///< what was drained last ended with a response
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

/// Main thread only. It lasts until it is destroyed or the endpoint fails; its handler
/// may destroy it, and the device with it.
class EventWatch {
 public:
  /// `device` is lent. `name` says in log lines which device this is. What the handler raises is
  /// logged.
  EventWatch(USBDevice& device, std::function<void(const Event&)> handler, LogSink log,
             std::string name);
  EventWatch(const EventWatch&) = delete;
  EventWatch& operator=(const EventWatch&) = delete;
  ~EventWatch();

 private:
  struct State;

  USBDevice& device_;
  /// Shared with a call of the handler that is running.
  std::shared_ptr<State> state_;
};

/// Main thread only.
/// The one PTPConnection of the product. It owns the device and lets it go when it is destroyed.
///
/// A transaction passes through three hands: TransactionRunner moves its containers, this class
/// decides what a bad ending means, and Recovery talks to the device until the next transaction can
/// work. After a time-out, when the session has been closed where the device lets it be, or an
/// unplugging nothing more is sent, whatever is asked.
///
/// A process that was killed may have left the device in the middle of a transaction. So the first
/// one of a connection gets more than one chance, unless it sends data: recovery, and then a device
/// reset, stand between them, for as long as Timeouts::takeOver, or where the device keeps silent
/// until Timeouts::bulk is over.
class BulkConnection : public PTPConnection {
 public:
  /// `name` says in log lines which device this is. `ids` is where a session begins to count.
  BulkConnection(std::unique_ptr<USBDevice> device, const Timeouts& timeouts, LogSink log,
                 std::string name, TransactionIDs ids = TransactionIDs());
  BulkConnection(const BulkConnection&) = delete;
  BulkConnection& operator=(const BulkConnection&) = delete;
  ~BulkConnection() override;

  /// As the base says. Taking an open session over is bounded by Timeouts::takeOver as a whole.
  Status openSession() override;
  /// 0 also when none is open. The session counts as closed afterwards even when the device did not
  /// answer, so that it is not closed again by the destructor.
  Status closeSession() override;
  Status transact(Transaction& transaction, std::string* why) override;
  void watchEvents(std::function<void(const Event&)> handler) override;
  const WireStatistics& statistics() const override { return pipe_.statistics(); }

 private:
  /// One transaction with everything that its failure calls for; the connection can be used again,
  /// or refuses, when it returns.
  Outcome attempt(Transaction& transaction, std::uint32_t transactionID);
  Outcome runOnce(Transaction& transaction, std::uint32_t transactionID);
  /// Whether `outcome` may come from what another process left behind, and is worth another try.
  bool isWorthARestart(const Transaction& transaction, const Outcome& outcome) const;
  /// As the class says. `begin` is when the transaction began.
  Outcome restart(Transaction& transaction, std::uint32_t transactionID, Outcome outcome,
                  BulkPipe::Clock::time_point begin);
  /// Ends the halt and reads the response that may follow. `stall` again when none does.
  Outcome settleStall(Transaction& transaction, std::uint32_t transactionID, Outcome stall);
  /// Gets back in step, or remembers that there is nobody to get in step with.
  void settleFailure(const Outcome& failure, std::uint32_t transactionID);
  /// Why nothing is sent any more; done when something may be.
  Outcome refusal() const;
  /// `response` is the device's code when the outcome is done.
  Outcome sendOpenSession(Status& response);
  Outcome takeOver(Status& response, BulkPipe::Clock::time_point begin);
  /// For who lets the device go: no failure of it matters.
  void closeQuietly(BulkPipe::Clock::time_point deadline) noexcept;

  std::unique_ptr<USBDevice> device_;
  Timeouts timeouts_;
  LogSink log_;
  std::string name_;
  /// Where each session begins to count; ids_ is where this one has come to.
  TransactionIDs firstIDs_;
  TransactionIDs ids_;
  /// These three borrow from each other and from *device_, so they stand in this order.
  BulkPipe pipe_;
  TransactionRunner runner_;
  Recovery recovery_;
  std::unique_ptr<EventWatch> events_;  ///< while events are watched
  bool sessionOpen_ = false;
  bool timedOut_ = false;  ///< once and for all
  bool gone_ = false;
};

}  // namespace tarvo::ptp
