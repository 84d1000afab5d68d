// A session service on a private bus, as far as a session monitor asks it.
#pragma once

#include <gio/gio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/foundation/GlibPtr.h"
#include "tests/support/PrivateBus.h"

namespace tarvo::test {

class FakeLogind {
 public:
  /// Takes the service's name on `bus`.
  explicit FakeLogind(const PrivateBus& bus) : connection_(bus.connect()) {
    static const char* const kDescription =
        "<node>"
        "<interface name='org.freedesktop.login1.Manager'><method name='GetUser'>"
        "<arg direction='in' type='u'/><arg direction='out' type='o'/></method></interface>"
        "<interface name='org.freedesktop.login1.User'>"
        "<property name='Display' type='(so)' access='read'/></interface>"
        "<interface name='org.freedesktop.login1.Session'>"
        "<property name='Active' type='b' access='read'/></interface>"
        "</node>";
    node_ = g_dbus_node_info_new_for_xml(kDescription, nullptr);
    serve("/org/freedesktop/login1", 0);
    serve("/org/freedesktop/login1/user/u", 1);
    serve("/org/freedesktop/login1/session/s1", 2);
    serve("/org/freedesktop/login1/session/s2", 2);
    callBus("RequestName", g_variant_new("(su)", "org.freedesktop.login1", 0U));
  }
  FakeLogind(const FakeLogind&) = delete;
  FakeLogind& operator=(const FakeLogind&) = delete;
  ~FakeLogind() {
    callBus("ReleaseName", g_variant_new("(s)", "org.freedesktop.login1"));
    for (const guint id : registrations_)
      g_dbus_connection_unregister_object(connection_.get(), id);
    g_dbus_node_info_unref(node_);
  }

  /// "s1", "s2", or empty for a user without a session.
  void setDisplay(const std::string& session) {
    display_ = session;
    changed("/org/freedesktop/login1/user/u", "org.freedesktop.login1.User", "Display");
  }
  void setActive(const std::string& session, bool active) {
    active_[session == "s2"] = active;
    changed("/org/freedesktop/login1/session/" + session, "org.freedesktop.login1.Session",
            "Active");
  }

  bool knowsUser = true;
  int calls = 0;  ///< method calls and property reads so far

 private:
  static void methodCalled(GDBusConnection*, const char*, const char*, const char*, const char*,
                           GVariant* arguments, GDBusMethodInvocation* invocation, gpointer self) {
    auto* logind = static_cast<FakeLogind*>(self);
    ++logind->calls;
    guint32 uid = 0;
    g_variant_get(arguments, "(u)", &uid);
    if (logind->knowsUser && uid == ::getuid()) {
      g_dbus_method_invocation_return_value(invocation,
                                            g_variant_new("(o)", "/org/freedesktop/login1/user/u"));
    } else {
      g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.login1.NoSuchUser",
                                                 "user is not logged in");
    }
  }

  static GVariant* propertyRead(GDBusConnection*, const char*, const char* path, const char*,
                                const char* name, GError**, gpointer self) {
    auto* logind = static_cast<FakeLogind*>(self);
    ++logind->calls;
    if (std::string(name) == "Active") {
      return g_variant_new_boolean(logind->active_[std::string(path).ends_with("s2")]);
    }
    const std::string& session = logind->display_;
    const std::string object = session.empty() ? "/" : "/org/freedesktop/login1/session/" + session;
    return g_variant_new("(so)", session.c_str(), object.c_str());
  }

  void serve(const char* path, int interface) {
    static const GDBusInterfaceVTable kTable = {methodCalled, propertyRead, nullptr, {}};
    registrations_.push_back(g_dbus_connection_register_object(
        connection_.get(), path, node_->interfaces[interface], &kTable, this, nullptr, nullptr));
  }

  void changed(const std::string& path, const char* interface, const char* property) {
    const char* const invalidated[] = {property, nullptr};
    g_dbus_connection_emit_signal(
        connection_.get(), nullptr, path.c_str(), "org.freedesktop.DBus.Properties",
        "PropertiesChanged",
        g_variant_new("(s@a{sv}^as)", interface, g_variant_new("a{sv}", nullptr), invalidated),
        nullptr);
  }

  void callBus(const char* method, GVariant* arguments) {
    const GVariantPtr answer(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  }

  GObjectPtr<GDBusConnection> connection_;
  GDBusNodeInfo* node_ = nullptr;
  std::vector<guint> registrations_;
  std::string display_ = "s1";
  bool active_[2] = {true, true};
};

}  // namespace tarvo::test
