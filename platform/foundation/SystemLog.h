// The system log: whole lines, at a level.
#pragma once

#include <string_view>

#include "Utilities/LogSink.h"

namespace tarvo {

/// Any thread.
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  virtual void write(LogLevel level, std::string_view line) = 0;
};

}  // namespace tarvo
