// A system log that keeps its lines for the test.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/SystemLog.h"

namespace tarvo::test {

/// Any thread may write; the test reads `lines()` as a copy.
class RecordingSystemLog : public SystemLog {
 public:
  struct Line {
    LogLevel level;
    std::string text;
  };

  void write(LogLevel level, std::string_view line) override {
    const std::scoped_lock lock(mutex_);
    entries_.push_back({level, std::string(line)});
  }

  /// A sink for platform code that writes here.
  LogSink sink() {
    return [this](LogLevel level, std::string_view line) { write(level, line); };
  }

  std::vector<Line> entries() const {
    const std::scoped_lock lock(mutex_);
    return entries_;
  }

  std::vector<std::string> lines() const {
    std::vector<std::string> texts;
    for (const auto& entry : entries())
      texts.push_back(entry.text);
    return texts;
  }

  /// How many lines contain `part`.
  std::size_t count(std::string_view part) const {
    const auto texts = lines();
    return static_cast<std::size_t>(std::ranges::count_if(
        texts, [&](const auto& text) { return text.find(part) != std::string::npos; }));
  }
  bool contains(std::string_view part) const { return count(part) > 0; }

  void clear() {
    const std::scoped_lock lock(mutex_);
    entries_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Line> entries_;
};

}  // namespace tarvo::test
