// The way to one PTP interface: claimed while somebody holds it, with a session from the first
// operation on that needs one.
#pragma once

#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "Utilities/Status.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/PTPPassThroughPB.h"
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
  [[nodiscard]] Status hold(std::string* why);
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
  [[nodiscard]] Status transact(ptp::Transaction& transaction, std::string* why);

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

// The messages that a PTP device understands, as transactions on a channel that the caller holds.

/// Runs the transaction that `record` describes, its data phase straight out of or into the
/// record's data area, or its source or sink where it has one, and fills in what came back:
/// response code, response parameters (those that the device left out are 0, a fifth is dropped)
/// and, for a receive, the number of bytes that are there, 0xFFFFFFFF where a sink has taken more;
/// what did not fit is dropped. On failure the response code is left alone. kBadParameter for a
/// record that does not fit together, has 4 GiB and more to send or asks for what is the service's
/// own (OpenSession, CloseSession); otherwise as for PTPChannel::transact.
[[nodiscard]] Status passThrough(PTPChannel& channel, PTPPassThroughRecord& record,
                                 std::string* why);

/// Sets property 0x5011 (DateTime, ISO 15740) to `now` in local time. A response other than OK is
/// returned as it came.
[[nodiscard]] Status setClock(PTPChannel& channel, std::time_t now, std::string* why);

}  // namespace tarvo
