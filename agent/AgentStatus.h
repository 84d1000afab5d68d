// The D-Bus object on which a desktop can watch the agent: interface com.tarvo.Agent1 on
// /com/tarvo/Agent. data/dbus/com.tarvo.Agent1.xml describes its properties.
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

/// Main thread only.
class AgentStatus {
 public:
  struct Device {
    std::string type;  ///< "PTP", "MSC", "card", or empty when it is not supported
    std::int32_t location = 0;
    std::string path;
    std::string serialNumber;

    friend bool operator==(const Device&, const Device&) = default;
  };
  struct Values {
    bool active = true;
    bool relayRunning = false;
    bool wirelessBusy = false;
    bool recoveryArmed = false;
    std::vector<Device> devices;

    friend bool operator==(const Values&, const Values&) = default;
  };

  /// `read` gives the values as they are now. `loop` must outlive the object.
  AgentStatus(RunLoop& loop, std::function<Values()> read, LogSink log);
  ~AgentStatus();
  AgentStatus(const AgentStatus&) = delete;
  AgentStatus& operator=(const AgentStatus&) = delete;

  /// Shows the object on `connection`, which it keeps a reference to, in place of an earlier one.
  /// False, with the cause logged, when the path is taken there.
  bool attach(GDBusConnection* connection);
  /// Takes the object back.
  void detach();

  /// Reads the values once the loop is idle, and announces those that differ from the last ones.
  /// However often it is called until then, it is one reading.
  void update();

  /// What the object shows.
  const Values& values() const { return values_; }

 private:
  void refresh();
  void announce(const Values& before) const;

  RunLoop& loop_;
  std::function<Values()> read_;
  LogSink log_;
  Values values_;
  bool updatePending_ = false;
  GObjectPtr<GDBusConnection> connection_;
  unsigned registration_ = 0;
  std::shared_ptr<char> alive_ = std::make_shared<char>();  ///< lets a late idle call find out
};

}  // namespace tarvo
