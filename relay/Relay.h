// The Relay without its window: the device that it is about, and those that come meanwhile.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/Arrival.h"
#include "relay/ImportSession.h"

namespace tarvo::relay {

/// Main thread only.
class Relay {
 public:
  Relay(std::string program, SessionObserver& observer, const ChildLimits& limits = {});
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  /// A device for which the Relay was started, first or again. One that is at work here already
  /// only goes on.
  void arrived(const Arrival& arrival);
  /// What the agent sees by now. One that is new there begins where nothing is going on, else it is
  /// offered.
  void devicesAre(std::vector<Arrival> devices);
  /// To be called when the session's standing has changed: where its device is gone, and another is
  /// offered, that one begins.
  void standingChanged();
  /// Begins anew with the same device, where that has failed.
  void retry();
  /// Shows the one that is offered.
  void accept();
  /// A device that is here beside the one that is shown.
  const std::optional<Arrival>& offered() const { return offered_; }
  /// Ends everything in order; `ended` is called once, when no child is left.
  void close(std::function<void()> ended);

  /// The one that is shown; null before the first.
  ImportSession* session() { return session_.get(); }
  const Arrival& arrival() const { return arrival_; }

 private:
  struct Leaving {
    std::unique_ptr<ImportSession> session;
    bool isGone = false;
  };

  void begin(const Arrival& arrival);
  /// Lets the session end in order.
  void letGo();
  /// Forgets those that have ended; what waits for that begins.
  void sweep();
  bool isIdle() const;
  void consider(const Arrival& newcomer, bool mayBegin);

  std::string program_;
  SessionObserver& observer_;
  ChildLimits limits_;
  Arrival arrival_;
  std::optional<std::vector<Arrival>> devices_;  ///< none: not told yet
  std::optional<Arrival> offered_;
  std::unique_ptr<ImportSession> session_;
  bool isWaiting_ = false;  ///< the session has not begun: another may hold its device still
  std::vector<Leaving> leaving_;
  AttachedSource sweeping_;
  std::function<void()> closed_;
};

}  // namespace tarvo::relay
