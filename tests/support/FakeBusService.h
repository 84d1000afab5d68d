// A service on a private bus that hands every call to a function of the test.
//
//   FakeBusService service(bus, "org.freedesktop.UDisks2", [&](GObjectPtr<GDBusMessage> call) {
//     service.send(g_dbus_message_new_method_reply(call.get()));
//   });
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/foundation/GlibPtr.h"
#include "tests/support/PrivateBus.h"

namespace tarvo::test {

class FakeBusService {
 public:
  using Called = std::function<void(GObjectPtr<GDBusMessage>)>;

  /// Takes `name` on `bus`. `called` runs in GDBus's own thread, so that the service is there while
  /// the test waits in a private context.
  FakeBusService(const PrivateBus& bus, const char* name, Called called)
      : connection_(bus.connect()), presence_(std::make_shared<Presence>()) {
    presence_->called = std::move(called);
    filter_ = g_dbus_connection_add_filter(
        connection_.get(), filtered, new std::shared_ptr<Presence>(presence_),
        [](gpointer presence) { delete static_cast<std::shared_ptr<Presence>*>(presence); });
    const GVariantPtr answer(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name, 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, nullptr));
  }
  FakeBusService(const FakeBusService&) = delete;
  FakeBusService& operator=(const FakeBusService&) = delete;
  ~FakeBusService() {
    {
      const std::scoped_lock lock(presence_->mutex);
      presence_->called = nullptr;
    }
    g_dbus_connection_remove_filter(connection_.get(), filter_);
    leave();
  }

  /// The service ends: its connection closes. Any thread, so also from within a call.
  void leave() { g_dbus_connection_close(connection_.get(), nullptr, nullptr, nullptr); }

  /// Takes the message.
  void send(GDBusMessage* message) {
    const GObjectPtr<GDBusMessage> owner(message);
    g_dbus_connection_send_message(connection_.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                   nullptr, nullptr);
  }
  void answer(GDBusMessage* call, GVariant* body) {
    GDBusMessage* reply = g_dbus_message_new_method_reply(call);
    if (body != nullptr) g_dbus_message_set_body(reply, body);
    send(reply);
  }
  void refuse(GDBusMessage* call, const char* name, const char* words) {
    send(g_dbus_message_new_method_error_literal(call, name, words));
  }
  void emit(const char* path, const char* interface, const char* name, GVariant* arguments) {
    g_dbus_connection_emit_signal(connection_.get(), nullptr, path, interface, name, arguments,
                                  nullptr);
  }

 private:
  /// A filter may still run after it was removed: it holds this while it works on the service.
  struct Presence {
    std::mutex mutex;
    Called called;
  };

  static GDBusMessage* filtered(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                gpointer data) {
    if (incoming == 0 ||
        g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
      return message;
    GObjectPtr<GDBusMessage> call(message);
    const auto& presence = *static_cast<std::shared_ptr<Presence>*>(data);
    const std::scoped_lock lock(presence->mutex);
    if (presence->called) presence->called(std::move(call));
    return nullptr;
  }

  GObjectPtr<GDBusConnection> connection_;
  std::shared_ptr<Presence> presence_;
  guint filter_ = 0;
};

}  // namespace tarvo::test
