#include "agent/AppBlocker.h"

#include "NativeServices/Logging.h"

namespace tarvo {

std::unique_ptr<AppBlocker> AppBlocker::initForBlockingOnRLA(
    DistributedNotificationCenter& center) {
  return std::unique_ptr<AppBlocker>(
      new AppBlocker(center, {kRLABusyNotification, kRLADoneNotification},
                     {kWRLABusyNotification, kWRLADoneNotification}));
}

std::unique_ptr<AppBlocker> AppBlocker::initForBlockingOnWRLA(
    DistributedNotificationCenter& center) {
  return std::unique_ptr<AppBlocker>(new AppBlocker(center,
                                                    {kWRLABusyNotification, kWRLADoneNotification},
                                                    {kRLABusyNotification, kRLADoneNotification}));
}

// A post comes back to its own process too, so a side must not hear the names that it posts.
AppBlocker::AppBlocker(DistributedNotificationCenter& center, Names heard, Names posted)
    : center_(center), busyNotification(posted.busy), doneNotification(posted.done) {
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
  isBusy_ = busy;  // told also when nothing differs: who shows it compares
  if (changed_) changed_();
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
