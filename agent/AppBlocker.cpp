#include "agent/AppBlocker.h"

#include <algorithm>

#include "NativeServices/Logging.h"

namespace tarvo {

std::unique_ptr<AppBlocker> AppBlocker::initForBlockingOnRLA(
    DistributedNotificationCenter& center) {
  return std::unique_ptr<AppBlocker>(
      new AppBlocker(center, {kRLABusyNotification, kRLADoneNotification},
                     {kWRLABusyNotification, kWRLADoneNotification}, Clock::now));
}

std::unique_ptr<AppBlocker> AppBlocker::initForBlockingOnWRLA(DistributedNotificationCenter& center,
                                                              Now now) {
  return std::unique_ptr<AppBlocker>(
      new AppBlocker(center, {kWRLABusyNotification, kWRLADoneNotification},
                     {kRLABusyNotification, kRLADoneNotification}, std::move(now)));
}

// A post comes back to its own process too, so a side must not hear the names that it posts.
AppBlocker::AppBlocker(DistributedNotificationCenter& center, Names heard, Names posted, Now now)
    : center_(center),
      busyNotification(posted.busy),
      doneNotification(posted.done),
      now_(std::move(now)) {
  center_.addObserver(this, std::string(heard.busy), [this] { handleBusyNotification(); });
  center_.addObserver(this, std::string(heard.done), [this] { handleDoneNotification(); });
}

AppBlocker::~AppBlocker() {
  center_.removeObserver(this);
}

void AppBlocker::SendBusyNotification() {
  if (LogCheck(kLogListener))
    systemLogLine("AppBlocker - SendBusyNotification sending " + busyNotification);
  center_.post(busyNotification);
}

void AppBlocker::SendDoneNotification() {
  if (LogCheck(kLogListener))
    systemLogLine("AppBlocker - SendDoneNotification sending " + doneNotification);
  center_.post(doneNotification);
}

void AppBlocker::setBusy(bool busy) {
  isBusy_ = busy;
  if (busy != busySince_.has_value()) busySince_ = busy ? std::optional(now_()) : std::nullopt;
  // Told also when nothing differs: who shows it compares.
  if (changed_) changed_();
}

std::chrono::seconds AppBlocker::busyFor() const {
  if (!busySince_) return {};
  const auto lasted = std::chrono::duration_cast<std::chrono::seconds>(now_() - *busySince_);
  return std::max(lasted, std::chrono::seconds(0));
}

void AppBlocker::handleBusyNotification() {
  if (LogCheck(kLogListener)) systemLogLine("AppBlocker - handleBusyNotification entered");
  setBusy(true);
}

void AppBlocker::handleDoneNotification() {
  if (LogCheck(kLogListener)) systemLogLine("AppBlocker - handleDoneNotification entered");
  setBusy(false);
}

}  // namespace tarvo
