// The D-Bus object on which a desktop can watch the agent: interface com.tarvo.Agent1 on
// /com/tarvo/Agent. data/dbus/com.tarvo.Agent1.xml describes its properties. They are read-only,
// and changes are announced as org.freedesktop.DBus.Properties has it (D-Bus specification).
//
//   AgentStatus status(loop, [&] { return valuesNow(); }, log);
//   status.attach(connection);
//   status.update();             // whenever something may have changed
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/RunLoop.h"

namespace tarvo {

inline constexpr const char* kAgentObjectPath = "/com/tarvo/Agent";
inline constexpr const char* kAgentInterface = "com.tarvo.Agent1";

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

}  // namespace tarvo
