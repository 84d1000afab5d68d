#include "platform/desktop/BusConnection.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {
namespace {

using std::chrono::milliseconds;

/// A daemon makes its socket before it listens, and listens before it answers: the retries, each
/// after twice the delay of the one before, bridge about 25 seconds.
constexpr int kRetriesOfABurst = 8;
constexpr milliseconds kFirstRetry{100};
constexpr milliseconds kLongestRetry{60000};
/// A connection that ends sooner does not start a new burst of retries.
constexpr std::chrono::seconds kProvenAfter{5};

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// GLib's own look-up would start a bus where it finds none; this one never does.
std::string sessionBusAddress() {
  if (auto address = environment("DBUS_SESSION_BUS_ADDRESS"); !address.empty()) return address;
  const auto folder = environment("XDG_RUNTIME_DIR");
  if (folder.empty()) return "";
  return "unix:path=" + takeText(g_dbus_address_escape_value((folder + "/bus").c_str()));
}

std::string systemBusAddress() {
  // Unlike for a session bus, GLib's look-up of the system bus never starts one.
  return takeText(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
}

}  // namespace

std::string socketPathOfBusAddress(const std::string& address) {
  constexpr std::string_view kTransport = "unix:";
  constexpr std::string_view kKey = "path=";
  std::string_view rest = address;
  while (!rest.empty()) {
    std::string_view entry = rest.substr(0, rest.find(';'));
    rest.remove_prefix(std::min(rest.size(), entry.size() + 1));
    // Abstract sockets and other transports leave nothing in the file system to wait for.
    if (!entry.starts_with(kTransport)) continue;
    entry.remove_prefix(kTransport.size());
    while (!entry.empty()) {
      const std::string_view pair = entry.substr(0, entry.find(','));
      entry.remove_prefix(std::min(entry.size(), pair.size() + 1));
      if (!pair.starts_with(kKey)) continue;
      return takeText(
          g_uri_unescape_string(std::string(pair.substr(kKey.size())).c_str(), nullptr));
    }
  }
  return "";
}

/// One try to connect. It outlives its bus when GLib takes longer than the bus waits.
struct BusConnection::Attempt {
  BusConnection* bus;  ///< null once nobody waits any more
  GObjectPtr<GCancellable> cancellable{g_cancellable_new()};

  void abandon() {
    bus = nullptr;
    g_cancellable_cancel(cancellable.get());
  }

  static void finished(GObject* /*source*/, GAsyncResult* result, gpointer self) {
    const std::unique_ptr<Attempt> attempt(static_cast<Attempt*>(self));
    GErrorHolder error;
    GObjectPtr<GDBusConnection> connection(
        g_dbus_connection_new_for_address_finish(result, error.out()));
    BusConnection* bus = attempt->bus;
    // A connection that came too late is closed by its owner here, before anybody hears of it.
    if (bus == nullptr) return;
    guardedEntry(bus->log_, "BusConnection", [&] {
      bus->attempt_ = nullptr;
      if (connection) {
        bus->joined(std::move(connection));
      } else {
        bus->failed(error.message(), false);
      }
    });
  }
};

BusConnection::BusConnection(std::string title, std::string address, RunLoop& loop, LogSink log,
                             milliseconds answerTimeout)
    : title_(std::move(title)),
      address_(std::move(address)),
      socketPath_(socketPathOfBusAddress(address_)),
      loop_(loop),
      log_(std::move(log)),
      answerTimeout_(answerTimeout) {}

BusConnection::~BusConnection() {
  if (attempt_ != nullptr) attempt_->abandon();
  if (answerTimer_) answerTimer_->invalidate();
  if (retryTimer_) retryTimer_->invalidate();
  dropConnection();
}

void BusConnection::start() {
  if (address_.empty()) {
    failed("its address is not known", false);
    return;
  }
  attempt();
}

bool BusConnection::waitUntilSettled() {
  while (attempt_ != nullptr && !settled_)
    // Always ends: the attempt is bounded by its timer, which fires in this context.
    g_main_context_iteration(g_main_context_get_thread_default(), TRUE);
  return connection_ != nullptr;
}

void BusConnection::addObserver(const void* observer, Connected connected, Lost lost) {
  observers_.push_back({observer, std::move(connected), std::move(lost)});
  const Connected call = observers_.back().connected;  // it may add and remove observers
  if (connection_ && call) call(connection_.get());
}

void BusConnection::removeObserver(const void* observer) {
  std::erase_if(observers_, [&](const Observer& entry) { return entry.identity == observer; });
}

void BusConnection::attempt() {
  // Socket and retry timer may both ask for an attempt at the same time.
  if (attempt_ != nullptr || connection_) return;
  if (retryTimer_) retryTimer_->invalidate();
  attempt_ = new Attempt{this};  // deleted by its callback, which GLib always calls
  constexpr auto kFlags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  g_dbus_connection_new_for_address(address_.c_str(), kFlags, nullptr, attempt_->cancellable.get(),
                                    Attempt::finished, attempt_);
  answerTimer_ = loop_.scheduleTimer(answerTimeout_, false, [this] { attemptTimedOut(); });
}

void BusConnection::attemptTimedOut() {
  if (attempt_ == nullptr) return;
  // GLib looks at the cancellable between its steps only, and authentication is one that may block
  // for good. So nobody waits for the callback; it finds the attempt abandoned whenever it comes.
  std::exchange(attempt_, nullptr)->abandon();
  failed("it does not answer", true);
}

void BusConnection::joined(GObjectPtr<GDBusConnection> connection) {
  answerTimer_->invalidate();
  watch_.reset();
  settled_ = true;
  joinedAt_ = std::chrono::steady_clock::now();
  connection_ = std::move(connection);
  // GLib ends the whole process with a message bus connection unless it is told not to.
  g_dbus_connection_set_exit_on_close(connection_.get(), FALSE);
  // GDBus reports the end of a connection in the context in which it was made: the main one.
  const auto closed = +[](GDBusConnection*, gboolean, GError* error, gpointer self) {
    auto* bus = static_cast<BusConnection*>(self);
    guardedEntry(bus->log_, "BusConnection",
                 [&] { bus->lost(error != nullptr ? error->message : "closed"); });
  };
  closedHandler_ = g_signal_connect(connection_.get(), "closed", G_CALLBACK(closed), this);
  if (absent_) logTo(log_, LogLevel::kInfo, title_ + " is there");
  absent_ = false;
  forEachObserver("connected", [this](const Observer& observer) {
    if (observer.connected && connection_) observer.connected(connection_.get());
  });
}

void BusConnection::failed(const std::string& reason, bool silentBus) {
  if (answerTimer_) answerTimer_->invalidate();
  settled_ = true;
  if (!absent_) logTo(log_, LogLevel::kWarning, title_ + " is absent: " + reason);
  absent_ = true;
  scheduleRetry(silentBus);
}

void BusConnection::lost(const std::string& reason) {
  logTo(log_, LogLevel::kWarning, title_ + " is lost: " + reason);
  absent_ = true;
  // A bus that drops every connection at once must not be asked without end.
  if (std::chrono::steady_clock::now() - joinedAt_ > kProvenAfter) retries_ = 0;
  // Told before the connection is dropped: unsubscribing needs it, though it is closed.
  forEachObserver("lost", [](const Observer& observer) {
    if (observer.lost) observer.lost();
  });
  dropConnection();
  scheduleRetry(false);
}

void BusConnection::scheduleRetry(bool silentBus) {
  if (address_.empty()) return;
  if (!socketPath_.empty() && !watch_) {
    watch_ = std::make_unique<PathWatch>(
        socketPath_, [this] { retryAtOnce(); }, log_);
  }
  // Where the watch tells of a new bus, retries only bridge the time between the making of a socket
  // and its first answer. Nothing tells when a silent bus wakes up, or of a bus without a path.
  const bool told = !socketPath_.empty() && !silentBus;
  const bool nobodyThere = told && ::access(socketPath_.c_str(), F_OK) != 0;
  if (nobodyThere || (told && retries_ >= kRetriesOfABurst)) return;
  // The exponent is bounded before it is used, since shifting further than the type is wide is
  // undefined.
  const auto delay = std::min(kLongestRetry, kFirstRetry * (1 << std::min(retries_++, 10)));
  retryTimer_ = loop_.scheduleTimer(delay, false, [this] { attempt(); });
}

void BusConnection::retryAtOnce() {
  retries_ = 0;
  attempt();
}

void BusConnection::dropConnection() {
  if (!connection_) return;
  g_signal_handler_disconnect(connection_.get(), closedHandler_);
  connection_.reset();
}

template <typename Call>
void BusConnection::forEachObserver(const char* name, Call call) {
  const auto observers = observers_;  // the list may change while it is walked
  for (const auto& observer : observers) {
    const bool stays = std::ranges::any_of(
        observers_, [&](const Observer& entry) { return entry.identity == observer.identity; });
    if (stays) guardedEntry(log_, name, [&] { call(observer); });
  }
}

SessionBus::SessionBus(RunLoop& loop, LogSink log)
    : BusConnection("session bus", sessionBusAddress(), loop, std::move(log)) {}

SystemBus::SystemBus(RunLoop& loop, LogSink log)
    : BusConnection("system bus", systemBusAddress(), loop, std::move(log)) {}

}  // namespace tarvo
