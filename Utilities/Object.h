// The root of everything that can be the sender of a notification: devices and child processes.
#pragma once

#include <memory>
#include <string>

namespace tarvo {

/// Held by std::shared_ptr alone: an observer that is called with a sender may keep it by
/// shared_from_this(). It is never copied, since observers tell senders apart by their address.
class Object : public std::enable_shared_from_this<Object> {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  /// What a log line shows of the object; never empty. Not meant to be parsed.
  virtual std::string description() const { return "object"; }
};

}  // namespace tarvo
