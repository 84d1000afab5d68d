// The way to one PTP interface: claimed while somebody holds it, with a session from the first
// operation on that needs one.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/ptp/PTPConnection.h"

namespace tarvo {

/// Main thread only.
/// Shared between the object table and the scopes, so that it outlives its device where a client
/// holds it.
class PTPChannel {
 public:
  using EventHandler = std::function<void(const ptp::Event&)>;

  /// Opens nothing yet. `connector` must outlive the channel.
  PTPChannel(ptp::PTPConnector& connector, ptp::USBInterfaceAddress address)
      : connector_(connector), address_(std::move(address)) {}

  /// Claims the interface for the first holder; every success is paired with a release(). Errors as
  /// for PTPConnector::connect, and kICADeviceGone after deviceWent().
  Status hold(std::string* why);
  /// The last holder closes the session and lets the interface go.
  void release();
  /// The device was unplugged: who still holds the channel gets kICADeviceGone from now on.
  void deviceWent();

  /// Events of the device, as PTPConnection::watchEvents says, whenever somebody holds the channel
  /// from now on; until an empty handler is given, or the device went.
  void watchEvents(EventHandler handler);
  bool isWatchingEvents() const { return events_ != nullptr; }

  /// Runs a transaction; the caller holds the channel. GetDeviceInfo alone runs without a session
  /// (ISO 15740 lets it); where the device refuses the session, its refusal is the transaction's
  /// response. A question that the device refuses for want of a session, or because it is in
  /// another one, is asked once more in a new session.
  ///
  /// The sink, the source and whatever else is called meanwhile may run the main loop: the
  /// connection outlives an unplug that is noticed there. A transaction that is begun there is
  /// refused, as kICATransactionRunning. Other statuses as for PTPConnection::transact.
  Status transact(ptp::Transaction& transaction, std::string* why);

 private:
  ptp::PTPConnector& connector_;
  ptp::USBInterfaceAddress address_;
  /// There while somebody holds the channel and the device is plugged.
  /// A transaction has it, too, while it runs.
  std::shared_ptr<ptp::PTPConnection> connection_;
  EventHandler events_;  ///< empty where nobody is interested
  unsigned holders_ = 0;
  bool isGone_ = false;
};

/// Holds a channel while it lives.
/// It keeps the channel alive, too.
class PTPScope : public ICAScope {
 public:
  /// Null when the channel cannot be held, with the cause in `*failure` and `*why`.
  static std::unique_ptr<PTPScope> open(std::shared_ptr<PTPChannel> channel, Status* failure,
                                        std::string* why);
  ~PTPScope() override { channel_->release(); }
  PTPScope(const PTPScope&) = delete;
  PTPScope& operator=(const PTPScope&) = delete;

 private:
  explicit PTPScope(std::shared_ptr<PTPChannel> channel) : channel_(std::move(channel)) {}

  std::shared_ptr<PTPChannel> channel_;
};

}  // namespace tarvo
