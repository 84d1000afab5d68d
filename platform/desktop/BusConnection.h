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
  /// With an unknown address the bus counts as absent for good, with one log line.
  void start();
  /// Iterates the default main context until the first attempt after start() has ended, for
  /// `answerTimeout` at most. True when connected.
  /// Sources of the loop fire meanwhile, so it is for start-up alone. False as well before start().
  bool waitUntilSettled();

  /// The live connection; null while there is none. It never ends the process.
  /// The bus keeps it alive; who wants it for longer takes a reference of its own.
  GDBusConnection* connection() const { return connection_.get(); }

  /// Calls `connected` for every new connection, at once when there is one already, and `lost` when
  /// a connection has gone: names and exported objects are gone with it, subscriptions are to be
  /// taken back from connection(), which is still the closed one then. Observers are called in the
  /// order of registration; either function may be empty.
  void addObserver(const void* observer, Connected connected, Lost lost);
  /// Ends every registration of `observer`, also from within a callback.
  void removeObserver(const void* observer);

 private:
  /// One try to connect; see the source.
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
  /// An attempt has succeeded: the connection is taken over and the observers hear of it.
  void joined(GObjectPtr<GDBusConnection> connection);
  /// An attempt has ended without a connection. `reason` goes to the log on the first failure only.
  void failed(const std::string& reason, bool silentBus);
  /// The connection has closed: observers hear of it while it can still be named, then it is
  /// dropped.
  void lost(const std::string& reason);
  /// Lets the connection go without a word to the observers.
  void dropConnection();
  /// Calls every observer that is still registered when its turn comes, each behind a guard.
  template <typename Call>
  void forEachObserver(const char* name, Call call);

  std::string title_;
  std::string address_;
  std::string socketPath_;  ///< empty when the address names none
  /// Where both timers run; must outlive the connection.
  RunLoop& loop_;
  LogSink log_;
  std::chrono::milliseconds answerTimeout_;

  GObjectPtr<GDBusConnection> connection_;
  /// Of the signal "closed"; valid while there is a connection.
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
  /// In order of registration; one identity may stand here several times.
  std::vector<Observer> observers_;
};

/// The bus of the user's session: $DBUS_SESSION_BUS_ADDRESS, else $XDG_RUNTIME_DIR/bus. No bus is
/// ever started.
class SessionBus : public BusConnection {
 public:
  /// The environment is read here, once; a variable that changes later changes nothing.
  SessionBus(RunLoop& loop, LogSink log);
};

/// The machine's bus: $DBUS_SYSTEM_BUS_ADDRESS, else its well-known socket.
class SystemBus : public BusConnection {
 public:
  SystemBus(RunLoop& loop, LogSink log);
};

/// Path of the first unix socket of a D-Bus address, unescaped; empty when it has none.
/// An address is a list of "transport:key=value,..." entries separated by semicolons, values
/// %-escaped (D-Bus Specification, "Server Addresses").
std::string socketPathOfBusAddress(const std::string& address);

}  // namespace tarvo
