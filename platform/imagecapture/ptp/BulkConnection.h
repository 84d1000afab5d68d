// A PTP conversation over USB bulk transport: sessions, transaction ids, and what is done about a
// transaction that goes wrong.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/Container.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/Recovery.h"
#include "platform/imagecapture/ptp/TransactionRunner.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

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
