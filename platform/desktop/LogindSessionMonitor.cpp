#include "platform/desktop/LogindSessionMonitor.h"

#include <unistd.h>

#include <memory>
#include <utility>

#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {
namespace {

constexpr const char* kService = "org.freedesktop.login1";
constexpr const char* kManagerPath = "/org/freedesktop/login1";
constexpr const char* kManager = "org.freedesktop.login1.Manager";
constexpr const char* kUser = "org.freedesktop.login1.User";
constexpr const char* kSession = "org.freedesktop.login1.Session";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
/// Nothing waits for an answer; this only bounds how long a call is remembered.
constexpr int kAnswerTimeoutMilliseconds = 5000;

/// The value in the answer to Properties.Get, when it is of `type`; null otherwise.
GVariantPtr propertyValue(GVariant* answer, const char* type) {
  if (!g_variant_is_of_type(answer, G_VARIANT_TYPE("(v)"))) return nullptr;
  // The service is trusted with the truth, not with its types: GLib would abort on a format that
  // does not fit.
  GVariant* value = nullptr;
  g_variant_get(answer, "(v)", &value);
  GVariantPtr owner(value);
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE(type))) return nullptr;
  return owner;
}

}  // namespace

/// A call under way. When its conversation is cancelled GLib reports only that, and the monitor,
/// which may be gone by then, is not touched.
struct LogindSessionMonitor::Call {
  LogindSessionMonitor* monitor;
  Answer answer;

  static void finished(GObject* source, GAsyncResult* result, gpointer self) {
    const std::unique_ptr<Call> call(static_cast<Call*>(self));
    GErrorHolder error;
    const GVariantPtr answer(
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
    // Cancelled conversations are over, and with them the monitor may be.
    if (error.matches(G_IO_ERROR, G_IO_ERROR_CANCELLED)) return;
    LogindSessionMonitor* monitor = call->monitor;
    guardedEntry(monitor->log_, "LogindSessionMonitor", [&] {
      if (answer) {
        call->answer(answer.get());
      } else {
        monitor->unanswered(error.message());
      }
    });
  }
};

LogindSessionMonitor::LogindSessionMonitor(BusConnection& bus, LogSink log)
    : bus_(bus), log_(std::move(log)) {}

LogindSessionMonitor::~LogindSessionMonitor() {
  bus_.removeObserver(this);
  left();
}

void LogindSessionMonitor::start(NotificationCenter& workspace) {
  workspace_ = &workspace;
  bus_.addObserver(
      this, [this](GDBusConnection*) { joined(); }, [this] { left(); });
}

// Subscribed before anything is asked, so that a service that starts in between is not missed.
void LogindSessionMonitor::joined() {
  const auto changed = +[](GDBusConnection*, const char*, const char*, const char*, const char*,
                           GVariant* arguments, gpointer self) {
    auto* monitor = static_cast<LogindSessionMonitor*>(self);
    guardedEntry(monitor->log_, "NameOwnerChanged", [&] { monitor->ownerChanged(arguments); });
  };
  ownerSubscription_ = g_dbus_connection_signal_subscribe(
      bus_.connection(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", kService, G_DBUS_SIGNAL_FLAGS_NONE, changed, this, nullptr);
  beginConversation();
}

void LogindSessionMonitor::left() {
  endConversation();
  if (ownerSubscription_ == 0) return;
  g_dbus_connection_signal_unsubscribe(bus_.connection(), std::exchange(ownerSubscription_, 0));
}

void LogindSessionMonitor::beginConversation() {
  endConversation();
  conversation_.reset(g_cancellable_new());
  call(kManagerPath, kManager, "GetUser", g_variant_new("(u)", static_cast<guint32>(getuid())),
       [this](GVariant* answer) {
         if (!g_variant_is_of_type(answer, G_VARIANT_TYPE("(o)"))) return;
         const char* path = nullptr;
         g_variant_get(answer, "(&o)", &path);
         userPath_ = path;
         userSubscription_ = follow(userPath_, kUser, &LogindSessionMonitor::askDisplay);
         askDisplay();
       });
}

void LogindSessionMonitor::endConversation() {
  if (conversation_) g_cancellable_cancel(conversation_.get());
  conversation_.reset();
  unfollow(userSubscription_);
  unfollow(sessionSubscription_);
  sessionPath_.clear();
}

void LogindSessionMonitor::askDisplay() {
  call(userPath_, kProperties, "Get", g_variant_new("(ss)", kUser, "Display"),
       [this](GVariant* answer) {
         const GVariantPtr display = propertyValue(answer, "(so)");
         if (!display) return;
         const char* path = nullptr;
         g_variant_get(display.get(), "(&s&o)", nullptr, &path);
         displayTold(path);
       });
}

void LogindSessionMonitor::displayTold(const std::string& sessionPath) {
  // The same session told again still has its state read: that may be what has changed.
  if (sessionPath != sessionPath_) {
    unfollow(sessionSubscription_);
    sessionPath_ = sessionPath;
    if (sessionPath == "/") {
      logTo(log_, LogLevel::kInfo, "this user has no login session, which counts as inactive");
      setActive(false);
      return;
    }
    sessionSubscription_ = follow(sessionPath_, kSession, &LogindSessionMonitor::askActive);
  }
  if (sessionPath != "/") askActive();
}

void LogindSessionMonitor::askActive() {
  call(sessionPath_, kProperties, "Get", g_variant_new("(ss)", kSession, "Active"),
       [this, asked = sessionPath_](GVariant* answer) {
         const GVariantPtr active = propertyValue(answer, "b");
         // The display may have moved on while this answer was under way.
         if (active && asked == sessionPath_) setActive(g_variant_get_boolean(active.get()) != 0);
       });
}

void LogindSessionMonitor::ownerChanged(GVariant* arguments) {
  if (!g_variant_is_of_type(arguments, G_VARIANT_TYPE("(sss)"))) return;
  const char* newOwner = nullptr;
  g_variant_get(arguments, "(&s&s&s)", nullptr, nullptr, &newOwner);
  // A restarted service has new objects, so the conversation begins anew.
  if (*newOwner != '\0') {
    beginConversation();
    return;
  }
  endConversation();
  unanswered("the session service has ended");
}

void LogindSessionMonitor::unanswered(const std::string& reason) {
  // Each step of a conversation may fail by itself; one line tells it all.
  if (std::exchange(absenceLogged_, true)) return;
  logTo(log_, LogLevel::kInfo,
        "session state is not told, the session counts as " +
            std::string(active_ ? "active" : "inactive") + ": " + reason);
}

void LogindSessionMonitor::setActive(bool active) {
  absenceLogged_ = false;
  if (active == active_) return;
  // Changed before it is posted, for handlers that ask in their turn.
  active_ = active;
  workspace_->post({std::string(active ? kSessionDidBecomeActive : kSessionDidResignActive), {}});
}

void LogindSessionMonitor::call(const std::string& path, const char* interface, const char* method,
                                GVariant* arguments, Answer answer) {
  // A service that does not run is not started: the system decides whether it has one.
  g_dbus_connection_call(bus_.connection(), kService, path.c_str(), interface, method, arguments,
                         nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, kAnswerTimeoutMilliseconds,
                         conversation_.get(), Call::finished, new Call{this, std::move(answer)});
}

guint LogindSessionMonitor::follow(const std::string& path, const char* interface, Ask ask) {
  struct Follower {
    LogindSessionMonitor* monitor;
    Ask ask;
  };
  // What has changed is asked again, whether or not the signal carries the new value.
  const auto changed = +[](GDBusConnection*, const char*, const char*, const char*, const char*,
                           GVariant*, gpointer self) {
    const auto follower = *static_cast<Follower*>(self);
    guardedEntry(follower.monitor->log_, "PropertiesChanged",
                 [&] { (follower.monitor->*follower.ask)(); });
  };
  return g_dbus_connection_signal_subscribe(
      bus_.connection(), kService, kProperties, "PropertiesChanged", path.c_str(), interface,
      G_DBUS_SIGNAL_FLAGS_NONE, changed, new Follower{this, ask},
      [](gpointer follower) { delete static_cast<Follower*>(follower); });
}

void LogindSessionMonitor::unfollow(guint& subscription) {
  if (subscription == 0) return;
  g_dbus_connection_signal_unsubscribe(bus_.connection(), std::exchange(subscription, 0));
}

}  // namespace tarvo
