// The disk service on a private bus: it shows the objects that the test gives it and answers calls
// by a script.
//
//   FakeUDisks2 service(bus);
//   service.objects = FakeUDisks2::block("sdb1", {.drive = "Card", .mountPoints = "[b'/mnt']"});
//   service.script["Unmount"] = {.error = "DeviceBusy"};
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/FakeBusService.h"

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

  explicit FakeUDisks2(const PrivateBus& bus)
      : service_(bus, "org.freedesktop.UDisks2",
                 [this](GObjectPtr<GDBusMessage> call) { called(std::move(call)); }) {}

  /// The service ends. Any thread, so also from within a call.
  void leave() { service_.leave(); }

  struct Block {
    std::string drive = {};        ///< name; empty: none
    std::string mountPoints = {};  ///< "[b'/mnt']"; empty: no filesystem
  };
  /// An entry of `objects`, whose object is not named like the device.
  static std::string block(const std::string& name, const Block& block) {
    std::string text = "objectpath '" + blockPath(name) +
                       "': {'org.freedesktop.UDisks2.Block': {'Device': <b'/dev/" + name +
                       "'>, 'Drive': <objectpath '" +
                       (block.drive.empty() ? "/" : drivePath(block.drive)) + "'>}";
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
    service_.emit("/org/freedesktop/UDisks2", "org.freedesktop.DBus.ObjectManager",
                  "InterfacesAdded",
                  g_variant_new("(o@a{sa{sv}})", "/any", g_variant_new("a{sa{sv}}", nullptr)));
  }
  /// An answer to the call that was met with silence.
  void answerLate() {
    const std::scoped_lock lock(mutex_);
    service_.answer(waiting_.get(), nullptr);
  }

 private:
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
      service_.refuse(call.get(), name.c_str(), "the service's words");
    } else {
      service_.answer(call.get(), method == "GetManagedObjects" ? managedObjects()
                                  : method == "Mount" ? g_variant_new("(s)", "/media/u/CARD")
                                                      : nullptr);
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

  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  GObjectPtr<GDBusMessage> waiting_;
  FakeBusService service_;  // Goes first: it calls.
};

}  // namespace tarvo::test
