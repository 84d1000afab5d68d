#include "agent/AgentName.h"

#include <utility>

#include "Utilities/Format.h"

namespace tarvo {
namespace {

// The agent does nothing meanwhile; a bus that works answers within a few milliseconds.
constexpr int kAnswerTimeoutMs = 2000;

// Flags and answers of org.freedesktop.DBus.RequestName (D-Bus specification).
constexpr guint32 kDoNotQueue = 4;
constexpr guint32 kNameExists = 3;

}  // namespace

AgentName::AgentName(BusConnection& bus, LogSink log, std::function<void()> refused)
    : bus_(bus), log_(std::move(log)), whenRefused_(std::move(refused)) {}

AgentName::~AgentName() {
  bus_.removeObserver(this);
}

void AgentName::claim() {
  bus_.addObserver(this, [this](GDBusConnection* connection) { claimOn(connection); }, {});
}

void AgentName::claimOn(GDBusConnection* connection) {
  refused_ = false;
  // Asked directly: g_bus_own_name would answer from the main loop, after the first arrivals, and
  // would not tell a name that is refused from a bus that fails.
  GErrorHolder error;
  const GVariantPtr answer(g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", kAgentBusName, kDoNotQueue), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, kAnswerTimeoutMs, nullptr, error.out()));
  if (answer) {
    guint32 result = 0;
    g_variant_get(answer.get(), "(u)", &result);
    // Otherwise it is owned now, or was already.
    if (result == kNameExists)
      refused(formatted("Another agent is running: it owns the name %s on the session bus",
                        kAgentBusName));
    return;
  }
  // What the bus itself answers is a refusal; the bus that does not answer gives an error of GIO.
  const bool isAnswered = g_dbus_error_is_remote_error(error.get()) != 0;
  const std::string words =
      formatted("The name %s cannot be owned: %s", kAgentBusName, error.message().c_str());
  if (isAnswered) {
    refused(words);
  } else {
    logTo(log_, LogLevel::kWarning, words);
  }
}

void AgentName::refused(const std::string& why) {
  refused_ = true;
  logTo(log_, LogLevel::kError, why);
  if (whenRefused_) whenRefused_();
}

}  // namespace tarvo
