// The system log: whole lines, at a level.
#pragma once

#include <string_view>

#include "Utilities/LogSink.h"

namespace tarvo {

/// Any thread.
/// Lines of one writer keep their order.
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  /// `line` has no line end of its own and is lent for the call. A log that cannot be written is
  /// silent: there is nobody left to tell.
  virtual void write(LogLevel level, std::string_view line) = 0;
};

}  // namespace tarvo
