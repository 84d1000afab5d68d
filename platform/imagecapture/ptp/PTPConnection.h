// A PTP conversation with one device: sessions and transactions over USB bulk transport.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Utilities/Status.h"
#include "platform/imagecapture/ptp/DataPhase.h"
#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// One transaction: operation with parameters, at most one data phase, response with parameters.
/// The caller fills in the first group and reads the second. Sink and source are lent until
/// transact() returns.
struct Transaction {
  std::uint16_t operation = 0;
  std::array<std::uint32_t, 5> parameters{};
  unsigned parameterCount = 0;  ///< 0 to 5
  DataSource* send = nullptr;   ///< data phase to the device, or
  DataSink* receive = nullptr;  ///< data phase from the device, or neither

  std::uint16_t responseCode = 0;  ///< 0 until a response arrived
  std::array<std::uint32_t, 5> responseParameters{};
  unsigned responseParameterCount = 0;
  std::uint64_t bytesReceived = 0;  ///< payload bytes that the device sent, dropped ones included
};

/// How long to wait.
/// The sum that a device which falls silent can cost is bulk, once, recovery, once, for all that is
/// tried then, and half a second for a reset by port: 5 s at most with the values given here. One
/// that goes on sending what it should not costs stale more with each step of getting back in step,
/// and one whose bytes trickle in as much as it likes, both up to whole where that is given.
struct Timeouts {
  /// All bulk transfers of a transaction together without progress, which is payload that moves.
  std::chrono::milliseconds bulk{4000};
  std::chrono::milliseconds control{1000};  ///< closing the session at the end
  std::chrono::milliseconds recovery{500};  ///< each step of getting back in step after a failure
  /// All of closing a session that another process left open, and opening it anew.
  std::chrono::milliseconds takeOver{2000};
  /// The first word of the device on this connection, before somebody else is thought to have left
  /// it in the middle of something.
  std::chrono::milliseconds firstWord{1000};
  /// What a device goes on sending that somebody else has asked for, as long as it comes.
  std::chrono::milliseconds stale{2000};
  /// The response to an operation that takes long by its nature: a store is formatted, a sent
  /// object written, a folder deleted, the device tests or resets itself. Counts where it is more
  /// than bulk.
  std::chrono::milliseconds slow{300000};
  /// Where there is one, called once in such an operation when it has taken all of bulk.
  std::function<void()> waiting{};
  /// Where there is one, all waits of a connection together, from its beginning on: what is asked
  /// beyond it fails at once.
  std::optional<std::chrono::milliseconds> whole{};
  /// All of getting back in step and closing the session, when whole is over or interrupted is
  /// true. Part of whole.
  std::chrono::milliseconds leaving{1000};
  /// Where there is one, true ends the transaction that is running, also while the device is
  /// silent, as kCancelled; a signal handler may set it. Lent.
  const std::atomic<bool>* interrupted = nullptr;
};

/// What a device reports by itself on its interrupt endpoint (ISO 15740, "Events"). Session and
/// transaction are 0xFFFFFFFF where the event belongs to none.
struct Event {
  std::uint16_t code = 0;
  std::uint32_t transactionID = 0;
  std::array<std::uint32_t, 3> parameters{};  ///< what the device left out is 0
  unsigned parameterCount = 0;
};

/// Counts of what went over the wire, for tests and benchmarks.
struct WireStatistics {
  std::uint64_t transactions = 0;
  std::uint64_t bytesSent = 0;      ///< container headers included
  std::uint64_t bytesReceived = 0;  ///< container headers included
};

/// Main thread only. Destroying it lets the interface go; an open session is closed first unless
/// the device is gone or has timed out, where that has been tried at once.
///
///   auto connection = connector.connect(address, &failure, &why);
///   connection->openSession();
///   Transaction ids{.operation = 0x1004, .receive = &sink};
///   if (connection->transact(ids, &why) == 0) use(ids.responseCode, sink.filled());
///
/// Every call blocks until it has its result, for as long as Timeouts allow. A sink, a source or
/// Timeouts::waiting that is called meanwhile may call nothing of the connection, nor destroy it;
/// PTPChannel sees to that.
class PTPConnection {
 public:
  virtual ~PTPConnection() = default;

  /// Opens session 1; nothing is sent where it is open. A session that is open already (0x201E,
  /// left by a process that died) is closed and opened anew. Returns 0, a PTP response code other
  /// than OK, or a status as for transact().
  [[nodiscard]] virtual Status openSession() = 0;
  /// 0 also when none is open; otherwise the response code when it is not OK, or a status as for
  /// transact().
  [[nodiscard]] virtual Status closeSession() = 0;

  /// Runs one transaction. 0 when a response arrived (whatever its code), otherwise kICATimeout
  /// (no progress for the time-out), kICAOutOfTime (Timeouts::whole is over), kICADeviceGone,
  /// kICAProtocolError (wrong transaction id, lying lengths, garbage), kCancelled (the sink or
  /// source ended it) or kIOError. After a failure the connection has been brought back in step
  /// where the device let it be (cancel request, endpoint halts cleared, stale data drained,
  /// reset). After a time-out the session is closed where the device still lets it be, and every
  /// further call fails at once with kICATimeout, so that a silent device costs one time-out.
  /// `*why`, when given, says it in words. kBadParameter, and nothing is sent, for more than five
  /// parameters or for 4 GiB of data and more. What a sink or a source raises passes through, once
  /// the connection is back in step.
  ///
  /// The session is over after a reset, also one on the way back into step, and after a response
  /// that says that there is none or another one (0x2003, 0x2004, 0x201E): openSession() is due.
  [[nodiscard]] virtual Status transact(Transaction& transaction, std::string* why = nullptr) = 0;

  /// Events of the device from now on, until an empty handler is given: called on the main loop,
  /// never from inside another call, in the order of the device. Costs no wake-up while the device
  /// has none. Malformed containers are dropped. Nothing on a device without an interrupt endpoint.
  virtual void watchEvents(std::function<void(const Event&)> handler) = 0;

  virtual const WireStatistics& statistics() const = 0;
};

/// Main thread only. The seam between Image Capture and the wire.
class PTPConnector {
 public:
  virtual ~PTPConnector() = default;
  /// Opens and claims; errors as for USBDeviceOpener::open.
  virtual std::unique_ptr<PTPConnection> connect(const USBInterfaceAddress& address,
                                                 Status* failure, std::string* why) = 0;
};

}  // namespace tarvo::ptp
