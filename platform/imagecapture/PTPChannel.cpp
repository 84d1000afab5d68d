#include "platform/imagecapture/PTPChannel.h"

#include <algorithm>

#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

/// Whether the device has only refused a question for the session's sake, so that nothing is lost
/// by asking again: it wants one, or is in one that somebody else has left open, where it counts
/// otherwise. Nothing else is sent twice, for handles may mean other objects in another session.
bool isWorthAnotherSession(const ptp::Transaction& transaction) {
  const bool isRefused = transaction.responseCode == status::kPTPSessionNotOpen ||
                         transaction.responseCode == status::kPTPInvalidTransactionID ||
                         transaction.responseCode == status::kPTPSessionAlreadyOpen;
  const bool isQuestion = transaction.receive || transaction.operation == ptp::kGetNumObjects;
  return isRefused && isQuestion && transaction.bytesReceived == 0;
}

Status run(ptp::PTPConnection& connection, ptp::Transaction& transaction, bool inSession,
           std::string* why) {
  const Status session = inSession ? connection.openSession() : status::kOK;
  if (session == status::kOK) return connection.transact(transaction, why);
  // Positive values are response codes: the device has answered, and the record says so.
  transaction.responseCode = static_cast<std::uint16_t>(std::max(session, status::kOK));
  return std::min(session, status::kOK);
}

}  // namespace

Status PTPChannel::hold(std::string* why) {
  if (isGone_) {
    if (why) *why = statusText(status::kICADeviceGone);
    return status::kICADeviceGone;
  }
  if (holders_ == 0) {
    Status failure = status::kIOError;
    connection_ = connector_.connect(address_, &failure, why);
    if (!connection_) return failure;
    if (events_) connection_->watchEvents(events_);
  }
  // Counted only on success: a failed attempt has nothing to release.
  ++holders_;
  return status::kOK;
}

void PTPChannel::release() {
  // The connection closes its session by itself when it goes.
  if (--holders_ == 0) connection_.reset();
}

void PTPChannel::deviceWent() {
  isGone_ = true;
  // Holders stay counted, so that each may still release.
  connection_.reset();
  events_ = nullptr;
}

void PTPChannel::watchEvents(EventHandler handler) {
  events_ = isGone_ ? nullptr : std::move(handler);
  if (connection_) connection_->watchEvents(events_);
}

Status PTPChannel::transact(ptp::Transaction& transaction, std::string* why) {
  // The caller holds the channel, so only an unplug can have taken the connection.
  if (!connection_) return status::kICADeviceGone;
  // Its second owner is a transaction that is running.
  if (connection_.use_count() > 1) {
    if (why) *why = statusText(status::kICATransactionRunning);
    return status::kICATransactionRunning;
  }
  // An unplug that is noticed meanwhile takes only ours.
  const auto connection = connection_;
  const bool inSession = transaction.operation != ptp::kGetDeviceInfo;
  Status result = run(*connection, transaction, inSession, why);
  if (result == status::kOK && isWorthAnotherSession(transaction))
    result = run(*connection, transaction, true, why);
  return result;
}

std::unique_ptr<PTPScope> PTPScope::open(std::shared_ptr<PTPChannel> channel, Status* failure,
                                         std::string* why) {
  const Status result = channel->hold(why);
  if (failure) *failure = result;
  if (result != status::kOK) return nullptr;
  return std::unique_ptr<PTPScope>(new PTPScope(std::move(channel)));
}

}  // namespace tarvo
