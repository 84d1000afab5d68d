// Notifications between the processes of one user: a name without arguments, from any sender.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tarvo {

/// Main thread only. Handlers run from the main loop.
/// Any process of the user may post any name: a notification is a hint, never proof.
class DistributedNotificationCenter {
 public:
  /// Called without arguments: a notification carries nothing but its name.
  using Handler = std::function<void()>;

  virtual ~DistributedNotificationCenter() = default;

  /// Hears `name` from every process, this one included. `observer` is an identity for removal.
  virtual void addObserver(const void* observer, std::string name, Handler handler) = 0;
  /// Ends every registration of `observer`; must be called before what its handlers use goes.
  virtual void removeObserver(const void* observer) = 0;

  /// Posts `name`. Without a bus it is dropped, with one log line.
  virtual void post(std::string_view name) = 0;
};

}  // namespace tarvo
