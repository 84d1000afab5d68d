// The session's state from systemd-logind.
//
// The session is the one that login1's User object names in "Display": a user service belongs to no
// session itself. Both the User's and the Session's PropertiesChanged are followed.
#pragma once

#include <functional>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/desktop/BusConnection.h"
#include "platform/desktop/Desktop.h"

namespace tarvo {

/// Asks without waiting: the session counts as active until logind has told otherwise. A user whom
/// logind knows but who has no session is not active. While logind is away the last state stays.
/// `bus` is the system bus; it must outlive the monitor.
class LogindSessionMonitor : public SessionMonitor {
 public:
  LogindSessionMonitor(BusConnection& bus, LogSink log);
  ~LogindSessionMonitor() override;
  LogindSessionMonitor(const LogindSessionMonitor&) = delete;
  LogindSessionMonitor& operator=(const LogindSessionMonitor&) = delete;

  /// To be called once. Posts come from the main loop, never from within start().
  void start(NotificationCenter& workspace) override;

 private:
  /// A method call under way, with who waits for it.
  struct Call;
  using Answer = std::function<void(GVariant*)>;
  using Ask = void (LogindSessionMonitor::*)();

  void joined();  ///< the system bus is there
  void left();    ///< the system bus has gone
  /// The bus driver's NameOwnerChanged for login1: (name, old owner, new owner) (D-Bus
  /// Specification, "Message Bus Messages").
  void ownerChanged(GVariant* arguments);
  /// Asks for the user, then its displayed session, then that one's state; earlier answers are
  /// void from here on.
  void beginConversation();
  /// Cancels what is being asked and follows nothing any more, except whether login1 comes back.
  void endConversation();
  /// Reads the User's "Display": (session id, object path).
  void askDisplay();
  /// `sessionPath` is the session's object, "/" when the user has none.
  void displayTold(const std::string& sessionPath);
  /// Reads the Session's "Active": true while it is in the foreground of its seat.
  void askActive();
  /// Takes over the told state and posts it when it differs.
  void setActive(bool active);
  /// Nothing can be learnt now: logs it, once until the next state is told.
  void unanswered(const std::string& reason);
  /// Calls login1 within the conversation and hands the answer to `answer`.
  void call(const std::string& path, const char* interface, const char* method, GVariant* arguments,
            Answer answer);
  /// Calls `ask` whenever a property of `interface` at `path` has changed.
  guint follow(const std::string& path, const char* interface, Ask ask);
  /// Ends a subscription and sets it to 0; 0 is none.
  void unfollow(guint& subscription);

  BusConnection& bus_;
  LogSink log_;
  NotificationCenter* workspace_ = nullptr;
  /// The state that was told last; what clients assume at the start.
  bool active_ = true;
  bool absenceLogged_ = false;
  /// Objects of login1 that are followed; empty when not known.
  std::string userPath_;
  std::string sessionPath_;
  /// Signal subscriptions on the connection that is there now; 0 for none.
  guint ownerSubscription_ = 0;
  guint userSubscription_ = 0;
  guint sessionSubscription_ = 0;
  GObjectPtr<GCancellable> conversation_;  ///< its answers are void once it is cancelled
};

}  // namespace tarvo
