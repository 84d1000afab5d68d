// A PTP conversation over USB bulk transport: sessions, transaction ids, and what is done about a
// transaction that goes wrong.
#pragma once

#include <memory>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ptp/BulkPipe.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/Recovery.h"
#include "platform/imagecapture/ptp/TransactionIDs.h"
#include "platform/imagecapture/ptp/TransactionRunner.h"

namespace tarvo::ptp {

/// Main thread only.
class BulkConnection : public PTPConnection {
 public:
  /// `name` says in log lines which device this is. `ids` is where a session begins to count.
  BulkConnection(std::unique_ptr<USBDevice> device, const Timeouts& timeouts, LogSink log,
                 std::string name, TransactionIDs ids = TransactionIDs());
  BulkConnection(const BulkConnection&) = delete;
  BulkConnection& operator=(const BulkConnection&) = delete;
  ~BulkConnection() override;

  Status openSession() override;
  Status closeSession() override;
  Status transact(Transaction& transaction, std::string* why) override;
  const WireStatistics& statistics() const override { return pipe_.statistics(); }

 private:
  Outcome attempt(Transaction& transaction, std::uint32_t transactionID);
  Outcome settleStall(Transaction& transaction, std::uint32_t transactionID, Outcome stall);
  void settleFailure(const Outcome& failure, std::uint32_t transactionID);
  Outcome refusal() const;
  Outcome sendOpenSession(Status& response);
  Outcome takeOver(Status& response);
  void closeQuietly() noexcept;

  std::unique_ptr<USBDevice> device_;
  Timeouts timeouts_;
  LogSink log_;
  std::string name_;
  TransactionIDs firstIDs_;
  TransactionIDs ids_;
  BulkPipe pipe_;
  TransactionRunner runner_;
  Recovery recovery_;
  bool sessionOpen_ = false;
  bool timedOut_ = false;  ///< once and for all
  bool gone_ = false;
};

}  // namespace tarvo::ptp
