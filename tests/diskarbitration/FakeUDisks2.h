// The disk service on a private bus: it shows the objects that the test gives it and answers calls
// by a script.
//
//   FakeUDisks2 service(bus);
//   service.objects = FakeUDisks2::block("sdb1", {.drive = "Card", .mountPoints = "[b'/mnt']"});
//   service.script["Unmount"] = {.error = "DeviceBusy"};
#pragma once

#include <gio/gio.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/foundation/GlibPtr.h"
#include "tests/support/PrivateBus.h"

namespace tarvo::test {

/// It answers from GDBus's own thread, so that it is there while the test waits in a private
/// context. Set it up before the calls; only calls() may be asked at any time.
class FakeUDisks2 {
 public:
  struct Answer {
    /// Behind "org.freedesktop.UDisks2.Error.", or whole where it has a dot.
    std::string error = {};
    bool silent = false;
    /// Called in the service's thread before the answer.
    std::function<void()> before = nullptr;
    /// Likewise after it.
    std::function<void()> after = nullptr;
  };

  explicit FakeUDisks2(const PrivateBus& bus) : connection_(bus.connect()) {
    presence_->service = this;
    filter_ = g_dbus_connection_add_filter(
        connection_.get(), filtered, new std::shared_ptr<Presence>(presence_),
        [](gpointer presence) { delete static_cast<std::shared_ptr<Presence>*>(presence); });
    const GVariantPtr answer(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", "org.freedesktop.UDisks2", 0U), nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  }
  FakeUDisks2(const FakeUDisks2&) = delete;
  FakeUDisks2& operator=(const FakeUDisks2&) = delete;
  ~FakeUDisks2() {
    {
      const std::scoped_lock lock(presence_->mutex);
      presence_->service = nullptr;
    }
    g_dbus_connection_remove_filter(connection_.get(), filter_);
    leave();
  }

  /// The service ends: its connection closes. Any thread, so also from within a call.
  void leave() { g_dbus_connection_close(connection_.get(), nullptr, nullptr, nullptr); }

  struct Block {
    std::string drive = {};        ///< name; empty: none
    std::string table = {};        ///< name of the disk that it is a partition of; empty: none
    std::string mountPoints = {};  ///< "[b'/mnt']"; empty: no filesystem
  };
  /// An entry of `objects`, whose object is not named like the device.
  static std::string block(const std::string& name, const Block& block) {
    std::string text = "objectpath '" + blockPath(name) +
                       "': {'org.freedesktop.UDisks2.Block': {'Device': <b'/dev/" + name +
                       "'>, 'Drive': <objectpath '" +
                       (block.drive.empty() ? "/" : drivePath(block.drive)) + "'>}";
    if (!block.table.empty())
      text += ", 'org.freedesktop.UDisks2.Partition': {'Table': <objectpath '" +
              blockPath(block.table) + "'>}";
    if (!block.mountPoints.empty())
      text += ", 'org.freedesktop.UDisks2.Filesystem': {'MountPoints': <@aay " + block.mountPoints +
              ">}";
    return text + "}";
  }
  static std::string blockPath(const std::string& name) {
    return "/org/freedesktop/UDisks2/block_devices/_" + name;
  }
  static std::string drivePath(const std::string& name) {
    return "/org/freedesktop/UDisks2/drives/" + name;
  }

  /// What GetManagedObjects answers: entries of block(), or other text, separated by commas.
  std::string objects;
  /// By method; what is not here succeeds.
  std::map<std::string, Answer> script;

  /// "METHOD OBJECT ARGUMENTS" of every call so far, GetManagedObjects excepted.
  std::vector<std::string> calls() const {
    const std::scoped_lock lock(mutex_);
    return calls_;
  }
  /// Tells that objects have come, without saying which.
  void tellOfArrival() {
    g_dbus_connection_emit_signal(
        connection_.get(), nullptr, "/org/freedesktop/UDisks2",
        "org.freedesktop.DBus.ObjectManager", "InterfacesAdded",
        g_variant_new("(o@a{sa{sv}})", "/any", g_variant_new("a{sa{sv}}", nullptr)), nullptr);
  }
  /// An answer to the call that was met with silence.
  void answerLate() {
    const std::scoped_lock lock(mutex_);
    send(g_dbus_message_new_method_reply(waiting_.get()));
  }

 private:
  /// A filter may still run after it was removed: it holds this while it works on the service.
  struct Presence {
    std::mutex mutex;
    FakeUDisks2* service = nullptr;
  };

  static GDBusMessage* filtered(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                gpointer data) {
    if (incoming == 0 ||
        g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
      return message;
    GObjectPtr<GDBusMessage> call(message);
    const auto& presence = *static_cast<std::shared_ptr<Presence>*>(data);
    const std::scoped_lock lock(presence->mutex);
    if (presence->service != nullptr) presence->service->called(std::move(call));
    return nullptr;
  }

  void called(GObjectPtr<GDBusMessage> call) {
    const std::string method = g_dbus_message_get_member(call.get());
    if (method != "GetManagedObjects") {
      const GCharPtr arguments(g_variant_print(g_dbus_message_get_body(call.get()), FALSE));
      const std::scoped_lock lock(mutex_);
      calls_.push_back(method + " " + g_dbus_message_get_path(call.get()) + " " + arguments.get());
    }
    const Answer answer = script[method];
    if (answer.silent) {
      const std::scoped_lock lock(mutex_);
      waiting_ = retained(call.get());
    }
    if (answer.before) answer.before();
    if (answer.silent) return;
    if (!answer.error.empty()) {
      const bool isWhole = answer.error.find('.') != std::string::npos;
      const std::string name = (isWhole ? "" : "org.freedesktop.UDisks2.Error.") + answer.error;
      send(
          g_dbus_message_new_method_error_literal(call.get(), name.c_str(), "the service's words"));
    } else {
      GDBusMessage* reply = g_dbus_message_new_method_reply(call.get());
      if (method == "GetManagedObjects") g_dbus_message_set_body(reply, managedObjects());
      if (method == "Mount") g_dbus_message_set_body(reply, g_variant_new("(s)", "/media/u/CARD"));
      send(reply);
    }
    if (answer.after) answer.after();
  }

  GVariant* managedObjects() const {
    const std::string text = "({" + objects + "},)";
    GVariant* parsed =
        g_variant_parse(G_VARIANT_TYPE("(a{oa{sa{sv}}})"), text.c_str(), nullptr, nullptr, nullptr);
    // Text of another type stands for itself.
    return parsed != nullptr ? parsed : g_variant_new("(s)", objects.c_str());
  }

  void send(GDBusMessage* message) {
    const GObjectPtr<GDBusMessage> owner(message);
    g_dbus_connection_send_message(connection_.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                   nullptr, nullptr);
  }

  std::shared_ptr<Presence> presence_ = std::make_shared<Presence>();
  GObjectPtr<GDBusConnection> connection_;
  guint filter_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  GObjectPtr<GDBusMessage> waiting_;
};

}  // namespace tarvo::test
