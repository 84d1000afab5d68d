#include "platform/desktop/ApplicationScopes.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "Utilities/Format.h"

namespace tarvo {
namespace {

constexpr int kManagerTimeoutMs = 10000;

/// A question to the manager that may be answered after its asker has gone.
struct ScopeRequest {
  std::string scope;
  LogSink log;

  static void answered(GObject* connection, GAsyncResult* result, gpointer self) {
    const std::unique_ptr<ScopeRequest> request(static_cast<ScopeRequest*>(self));
    GErrorHolder error;
    const GVariantPtr job(
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, error.out()));
    if (job || isNothingToTell(error)) return;
    logTo(request->log, LogLevel::kWarning,
          request->scope +
              " cannot be made, so what was started counts with the agent: " + error.message());
  }

  /// No manager on this bus, or a child that has ended already.
  static bool isNothingToTell(const GErrorHolder& error) {
    constexpr std::array<int, 3> kCodes = {G_DBUS_ERROR_SERVICE_UNKNOWN,
                                           G_DBUS_ERROR_NAME_HAS_NO_OWNER,
                                           G_DBUS_ERROR_UNIX_PROCESS_ID_UNKNOWN};
    return std::ranges::any_of(kCodes, [&](int code) { return error.matches(G_DBUS_ERROR, code); });
  }
};

}  // namespace

std::string scopeOfApplication(std::string_view identifier, pid_t pid) {
  std::string scope = "app-tarvo-";
  for (const char c : identifier) {
    // A hyphen would end the launcher's part.
    const bool isPlain = g_ascii_isalnum(c) != 0 || c == ':' || c == '_' || c == '.';
    scope += isPlain ? std::string(1, c) : formatted("\\x%02x", static_cast<unsigned char>(c));
  }
  return scope + "-" + std::to_string(pid) + ".scope";
}

// The child is not held back meanwhile: it would wait for another process, which may hang. For some
// milliseconds it counts with the agent, and so does what it starts in them.
void ApplicationScopes::add(pid_t pid, std::string_view identifier) {
  GDBusConnection* connection = bus_.connection();
  if (connection == nullptr) return;
  auto* request = new ScopeRequest{scopeOfApplication(identifier, pid), log_};
  GVariantBuilder properties;
  g_variant_builder_init(&properties, G_VARIANT_TYPE("a(sv)"));
  const auto number = static_cast<guint32>(pid);
  g_variant_builder_add(
      &properties, "(sv)", "PIDs",
      g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, &number, 1, sizeof number));
  // Gone with its last process, also one that failed.
  g_variant_builder_add(&properties, "(sv)", "CollectMode",
                        g_variant_new_string("inactive-or-failed"));
  g_dbus_connection_call(
      connection, "org.freedesktop.systemd1", "/org/freedesktop/systemd1",
      "org.freedesktop.systemd1.Manager", "StartTransientUnit",
      g_variant_new("(ssa(sv)a(sa(sv)))", request->scope.c_str(), "fail", &properties, nullptr),
      G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, kManagerTimeoutMs, nullptr,
      ScopeRequest::answered, request);  // deleted there, and GDBus always calls it
}

}  // namespace tarvo
