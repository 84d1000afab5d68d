// The system log: the journal, or standard error.
#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/SystemLog.h"

namespace tarvo {

/// Lines go to the journal under an identifier when standard error leads there or nowhere, and
/// plainly to standard error when that is a terminal, a file or a pipe, or when there is no
/// journal. No text is ever taken for a format.
class JournalLog : public SystemLog {
 public:
  /// kAutomatic chooses as said above, once, at construction; kStandardError is for programs that a
  /// person runs.
  enum class Destination { kAutomatic, kStandardError };

  explicit JournalLog(std::string identifier = "tarvo-agent",
                      Destination destination = Destination::kAutomatic);

  /// One line, in one piece and unbuffered. Line ends within it are followed by a tab and other
  /// control characters escaped ("\x1b", "\u009b"), so that a device's text can neither pose as a
  /// line nor steer a terminal.
  void write(LogLevel level, std::string_view line) override;

  /// A sink that writes here; the log must outlive it.
  LogSink sink();

 private:
  /// False when the journal does not take the line.
  bool writeToJournal(LogLevel level, std::string_view line) const;

  std::string identifier_;
  bool useJournal_;
};

}  // namespace tarvo
