// The process-local notification centre: named notifications from a sender to whoever observes.
//
// Delivery is synchronous, in the order of registration. An observer may leave, and others may
// join, while a notification is being delivered: who left is not called any more, who joined is
// called from the next notification on.
//
//   center.addObserver(this, "DeviceAdded", [this](const Notification& n) { deviceAdded(n); });
//   ...
//   center.removeObserver(this);
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Object.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

struct Notification {
  std::string name;
  std::shared_ptr<Object> object;  ///< the sender; may be null
  PropertyDictionary userInfo = PropertyDictionary::object();
};

/// Main thread only. Exceptions of a handler reach the poster; later observers are then not called.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  /// `observer` is only an identity, by which the registration is removed again. With a `sender`
  /// the handler hears that sender alone; the centre does not keep the sender alive.
  void addObserver(const void* observer, std::string name, Handler handler,
                   const Object* sender = nullptr);
  void removeObserver(const void* observer);
  void removeObserver(const void* observer, std::string_view name);
  /// Drops every registration that filters on `sender`.
  void removeObserversOfSender(const Object* sender);

  void post(const Notification& notification);

 private:
  struct Registration {
    const void* observer;
    std::string name;
    const Object* sender;
    Handler handler;
    bool removed = false;
  };
  void removeIf(const std::function<bool(const Registration&)>& condition);

  std::vector<std::shared_ptr<Registration>> registrations_;
};

}  // namespace tarvo
