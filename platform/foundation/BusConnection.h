// A connection to a message bus that follows the bus: it may be absent at start, go away, and come
// back.
//
//   SessionBus bus(loop, log);
//   bus.addObserver(this, [this](GDBusConnection* connection) { ... }, [this] { ... });
//   bus.start();
//
// No timer runs while the bus is there or while its socket does not exist; the socket's folder is
// watched then.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/PathWatch.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

/// Main thread only. Absence, loss and return are logged once each.
class BusConnection {
 public:
  using Connected = std::function<void(GDBusConnection*)>;
  using Lost = std::function<void()>;

  /// `title` names the bus in log lines ("session bus"); an empty `address` stands for a bus whose
  /// address nobody knows. A bus that has not answered within `answerTimeout` counts as absent.
  BusConnection(std::string title, std::string address, RunLoop& loop, LogSink log,
                std::chrono::milliseconds answerTimeout = std::chrono::seconds(2));
  ~BusConnection();
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// Begins to connect, without waiting.
  void start();
  /// Iterates the default main context until the first attempt after start() has ended, for
  /// `answerTimeout` at most. True when connected.
  bool waitUntilSettled();

  /// The live connection; null while there is none. It never ends the process.
  GDBusConnection* connection() const { return connection_.get(); }

  /// Calls `connected` for every new connection, at once when there is one already, and `lost` when
  /// a connection has gone: names and exported objects are gone with it, subscriptions are to be
  /// taken back from connection(), which is still the closed one then. Observers are called in the
  /// order of registration; either function may be empty.
  void addObserver(const void* observer, Connected connected, Lost lost);
  void removeObserver(const void* observer);

 private:
  struct Attempt;
  struct Observer {
    const void* identity;
    Connected connected;
    Lost lost;
  };

  /// Begins an attempt, unless one is under way or has succeeded.
  void attempt();
  /// Gives the attempt up, whether or not GLib reacts to its being cancelled.
  void attemptTimedOut();
  /// The socket has appeared: what failed before says nothing about the bus behind it.
  void retryAtOnce();
  /// Arranges for the next attempt after a failure or a loss; `silentBus`: something accepts
  /// connections there but does not answer.
  void scheduleRetry(bool silentBus);
  void joined(GObjectPtr<GDBusConnection> connection);
  void failed(const std::string& reason, bool silentBus);
  void lost(const std::string& reason);
  void dropConnection();
  /// Calls every observer that is still registered when its turn comes, each behind a guard.
  template <typename Call>
  void forEachObserver(const char* name, Call call);

  std::string title_;
  std::string address_;
  std::string socketPath_;  ///< empty when the address names none
  RunLoop& loop_;
  LogSink log_;
  std::chrono::milliseconds answerTimeout_;

  GObjectPtr<GDBusConnection> connection_;
  gulong closedHandler_ = 0;
  std::chrono::steady_clock::time_point
      joinedAt_;                ///< tells a bus that works from one that does not
  Attempt* attempt_ = nullptr;  ///< the one under way; owned by its callback
  std::shared_ptr<Timer> answerTimer_;
  std::shared_ptr<Timer> retryTimer_;
  int retries_ = 0;                   ///< since the socket appeared or a proven connection was lost
  bool absent_ = false;               ///< the absence or loss has been logged
  bool settled_ = false;              ///< the first attempt has ended
  std::unique_ptr<PathWatch> watch_;  ///< only while there is no connection
  std::vector<Observer> observers_;
};

/// The bus of the user's session: $DBUS_SESSION_BUS_ADDRESS, else $XDG_RUNTIME_DIR/bus. No bus is
/// ever started.
class SessionBus : public BusConnection {
 public:
  SessionBus(RunLoop& loop, LogSink log);
};

/// The machine's bus: $DBUS_SYSTEM_BUS_ADDRESS, else its well-known socket.
class SystemBus : public BusConnection {
 public:
  SystemBus(RunLoop& loop, LogSink log);
};

/// Path of the first unix socket of a D-Bus address, unescaped; empty when it has none.
std::string socketPathOfBusAddress(const std::string& address);

}  // namespace tarvo
