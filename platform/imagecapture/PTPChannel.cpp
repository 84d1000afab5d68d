#include "platform/imagecapture/PTPChannel.h"

#include "Utilities/PTPCodes.h"

namespace tarvo {

Status PTPChannel::hold(std::string* why) {
  if (isGone_) {
    if (why) *why = statusText(status::kICADeviceGone);
    return status::kICADeviceGone;
  }
  if (holders_ == 0) {
    Status failure = status::kIOError;
    connection_ = connector_.connect(address_, &failure, why);
    if (!connection_) return failure;
    hasSession_ = false;
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
  if (transaction.operation != ptp::kGetDeviceInfo) {
    const Status result = ensureSession(transaction);
    if (result != status::kOK || transaction.responseCode != 0) return result;
  }
  const Status result = connection_->transact(transaction, why);
  // A device that was reset has lost the session: the next operation opens another.
  const bool wasReset =
      transaction.operation == ptp::kResetDevice && transaction.responseCode == status::kPTPOK;
  if (wasReset || transaction.responseCode == status::kPTPSessionNotOpen) hasSession_ = false;
  return result;
}

Status PTPChannel::ensureSession(ptp::Transaction& transaction) {
  if (hasSession_) return status::kOK;
  // Positive values are response codes: the device has answered, and the record says so.
  const Status result = connection_->openSession();
  hasSession_ = result == status::kOK;
  if (result <= status::kOK) return result;
  transaction.responseCode = static_cast<std::uint16_t>(result);
  return status::kOK;
}

std::unique_ptr<PTPScope> PTPScope::open(std::shared_ptr<PTPChannel> channel, Status* failure,
                                         std::string* why) {
  const Status result = channel->hold(why);
  if (failure) *failure = result;
  if (result != status::kOK) return nullptr;
  return std::unique_ptr<PTPScope>(new PTPScope(std::move(channel)));
}

}  // namespace tarvo
