// A session service on a private bus, as far as a session monitor asks it.
#pragma once

#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>

#include "tests/support/FakeBusService.h"

namespace tarvo::test {

class FakeLogind {
 public:
  /// Takes the service's name on `bus`.
  explicit FakeLogind(const PrivateBus& bus)
      : service_(bus, "org.freedesktop.login1", [this](auto call) { called(call.get()); }) {}

  /// "s1", "s2", or empty for a user without a session.
  void setDisplay(const std::string& session) {
    {
      const std::scoped_lock lock(mutex_);
      display_ = session;
    }
    changed(kUser, "org.freedesktop.login1.User", "Display");
  }
  void setActive(const std::string& session, bool active) {
    active_[session == "s2"] = active;
    changed(kSessions + session, "org.freedesktop.login1.Session", "Active");
  }

  std::atomic<bool> knowsUser{true};
  std::atomic<int> calls{0};  ///< that have been answered

 private:
  static constexpr const char* kUser = "/org/freedesktop/login1/user/u";
  static inline const std::string kSessions = "/org/freedesktop/login1/session/";

  void called(GDBusMessage* call) {
    const std::string path = g_dbus_message_get_path(call);
    if (g_dbus_message_get_member(call) == std::string("GetUser")) {
      guint32 uid = 0;
      g_variant_get(g_dbus_message_get_body(call), "(u)", &uid);
      if (knowsUser && uid == ::getuid())
        service_.answer(call, g_variant_new("(o)", kUser));
      else
        service_.refuse(call, "org.freedesktop.login1.NoSuchUser", "user is not logged in");
    } else if (path == kUser) {
      const std::scoped_lock lock(mutex_);
      const std::string object = display_.empty() ? "/" : kSessions + display_;
      service_.answer(
          call, g_variant_new("(v)", g_variant_new("(so)", display_.c_str(), object.c_str())));
    } else {
      const bool active = active_[path.ends_with("s2")];
      service_.answer(call, g_variant_new("(v)", g_variant_new_boolean(active)));
    }
    ++calls;
  }

  void changed(const std::string& path, const char* interface, const char* property) {
    const char* const invalidated[] = {property, nullptr};
    service_.emit(
        path.c_str(), "org.freedesktop.DBus.Properties", "PropertiesChanged",
        g_variant_new("(s@a{sv}^as)", interface, g_variant_new("a{sv}", nullptr), invalidated));
  }

  std::mutex mutex_;
  std::string display_ = "s1";
  std::atomic<bool> active_[2] = {true, true};
  FakeBusService service_;  // Goes first: it calls.
};

}  // namespace tarvo::test
