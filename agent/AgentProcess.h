// The agent as a process: owns every platform service and the state of every room, in the order in
// which they need each other, and runs the main loop. The only place that knows which platform the
// agent stands on; everything below it is handed its services.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/desktop/BusConnection.h"
#include "platform/desktop/FamilyNames.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

// The D-Bus object on which a desktop can watch the agent: interface com.tarvo.Agent1 on
// /com/tarvo/Agent. data/dbus/com.tarvo.Agent1.xml describes its properties. They are read-only,
// and changes are announced as org.freedesktop.DBus.Properties has it (D-Bus specification).
//
//   AgentStatus status(loop, [&] { return valuesNow(); }, log);
//   status.attach(connection);
//   status.update();             // whenever something may have changed

/// Main thread only. The object shows what it read last, not what is true at the moment of a
/// client's question: no question of another process makes the agent touch a device.
class AgentStatus {
 public:
  struct Device {
    std::string type;  ///< "PTP", "MSC", "card", or empty when it is not supported
    /// USB location as the Relay application is given it: bus and ports, a nibble each, read as a
    /// signed number; 0 for an unsupported camera.
    std::int32_t location = 0;
    std::string path;          ///< mount point; empty for a camera
    std::string serialNumber;  ///< as the device tells it, in whatever bytes

    friend bool operator==(const Device&, const Device&) = default;
  };
  struct Values {
    bool active = true;                   ///< the user's session is
    bool relayRunning = false;            ///< the one that this agent has started
    bool wirelessBusy = false;            ///< the wireless utility is transferring
    std::uint64_t wirelessBusySince = 0;  ///< in microseconds since 1970; 0 while it is not
    bool recoveryArmed = false;           ///< a lost device is being looked for
    std::vector<Device> devices;

    friend bool operator==(const Values&, const Values&) = default;
  };

  /// `read` gives the values as they are now; it is called from the main loop alone and may take
  /// its time. `loop` must outlive the object.
  AgentStatus(RunLoop& loop, std::function<Values()> read, LogSink log);
  ~AgentStatus();
  AgentStatus(const AgentStatus&) = delete;
  AgentStatus& operator=(const AgentStatus&) = delete;

  /// Shows the object on `connection`, which it keeps a reference to, in place of an earlier one.
  /// False, with the cause logged, when the path is taken there.
  [[nodiscard]] bool attach(GDBusConnection* connection);
  /// Takes the object back; also from a connection that has been closed. update() goes on reading.
  void detach();

  /// Reads the values once the loop is idle, and announces those that differ from the last ones.
  /// However often it is called until then, it is one reading.
  void update();

  /// What the object shows.
  const Values& values() const { return values_; }

 private:
  /// Reads the values, and announces them where somebody can hear it.
  void refresh();
  /// One PropertiesChanged signal with what differs from `before`.
  void announce(const Values& before) const;

  RunLoop& loop_;
  std::function<Values()> read_;
  LogSink log_;
  Values values_;
  bool updatePending_ = false;  ///< an idle call is on its way
  GObjectPtr<GDBusConnection> connection_;
  unsigned registration_ = 0;  ///< 0 exactly while there is no connection
  std::shared_ptr<char> alive_ = std::make_shared<char>();  ///< lets a late idle call find out
};

// The devices of the registry as the agent's status shows them.

/// In the order of the registry, which is that of arrival; unsupported devices are among them, with
/// an empty type. Looks at mount points for the marker files of cards, so it belongs into an idle
/// moment. Empty while no room of picture devices lives. Main thread only; raises nothing.
std::vector<AgentStatus::Device> presentDevices();

/// Exit statuses of tarvo-agent.
inline constexpr int kExitNormal = 0;
inline constexpr int kExitNameRefused = 1;  ///< the service unit tries again a few times
inline constexpr int kExitUsage = 2;        ///< and not at all

struct AgentOptions {
  std::string version;  ///< as it is logged at the start
  /// Preferences file to read in place of the user's own; those of the system still lie below it.
  std::optional<std::string> configFile;
};

/// Main thread only. One in a process, which it prepares: SIGPIPE is ignored from run() on, and
/// SIGTERM and SIGINT end the main loop.
class AgentProcess {
 public:
  explicit AgentProcess(AgentOptions options);
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  /// Owns the agent's name, arms the Listener and runs until SIGTERM or SIGINT. The exit status of
  /// the process: kExitNameRefused when the name cannot be owned on a bus that is there, now or
  /// later; kExitUsage when the preferences file that was asked for cannot be read, which is
  /// explained on standard error; otherwise kExitNormal, also when the Listener cannot be made,
  /// which is logged. Children that are still running are left alone.
  int run();

 private:
  struct Base;
  struct Devices;

  /// False when the name is refused. Without a bus it is true.
  [[nodiscard]] bool ownName();
  /// Makes what reaches devices. False, with the cause logged, when there is no Listener after it.
  [[nodiscard]] bool armListener();
  /// The defaults until the Listener is there.
  AgentStatus::Values statusNow() const;

  AgentOptions options_;
  std::unique_ptr<Base> base_;        ///< log, preferences, main loop, session bus
  std::unique_ptr<Devices> devices_;  ///< what reaches devices, made once the name is owned
};

// The agent's name on the session bus: who owns it is the user's one agent. Nothing may be launched
// before it is known that no other process owns the name, or two agents would start two Relays.
//
//   AgentName name(bus, log, [&] { loop.quit(); });
//   name.claim();
//   if (name.isRefused()) return 1;

/// Main thread only. While the bus is away nobody owns the name; it is claimed anew on every
/// connection, and given back by the bus itself when the connection ends. The claim never queues
/// behind another owner.
class AgentName {
 public:
  /// `refused` is called when the name cannot be owned on a bus that is there: another process owns
  /// it, or the bus denies it to this user; that is logged, with the number and the command of the
  /// other process, which the bus is asked for. It may be called inside claim(), and at
  /// any time later when a bus comes. `bus` must outlive the object.
  AgentName(BusConnection& bus, LogSink log, std::function<void()> refused);
  ~AgentName();
  AgentName(const AgentName&) = delete;
  AgentName& operator=(const AgentName&) = delete;

  /// Claims the name on the connection that is there, and on those that come. Waits for the bus's
  /// answers, two seconds at most for each; a bus that gives none is logged, and the name counts as
  /// free, so that a broken bus does not keep the agent from its work.
  void claim();
  /// Whether the name was refused when it was claimed last.
  bool isRefused() const { return refused_; }

 private:
  /// One claim; sets `refused_` for this connection alone.
  void claimOn(GDBusConnection* connection);
  void refused(const std::string& why);

  BusConnection& bus_;
  LogSink log_;
  std::function<void()> whenRefused_;
  bool refused_ = false;
};

}  // namespace tarvo
