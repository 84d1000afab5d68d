// The root of everything that can be the sender of a notification: devices and child processes.
#pragma once

#include <memory>
#include <string>

namespace tarvo {

class Object : public std::enable_shared_from_this<Object> {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  /// What a log line shows of the object.
  virtual std::string description() const { return "object"; }
};

}  // namespace tarvo
