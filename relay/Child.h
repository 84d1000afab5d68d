// The program that does the import, as a child of the window: it has the device and every byte of
// it, and tells in JSON lines how it goes (docs/import.md). Whatever it says, and if it says
// nothing, the window stays.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo::relay {

/// What is borne of a child.
struct ChildLimits {
  std::chrono::milliseconds first{20'000};   ///< of silence before its first event
  std::chrono::milliseconds work{120'000};   ///< of silence while it has something to do
  std::chrono::milliseconds leave{10'000};   ///< from the end of its input to its own end
  std::size_t line = std::size_t{1} << 20U;  ///< bytes
  int nonsense = 100;                        ///< lines that are no event
};

/// How a child has ended.
struct ChildEnd {
  enum class Kind : std::uint8_t { kLeft, kFailed, kCrashed, kHung, kNonsense, kNotStarted };
  Kind kind = Kind::kLeft;
  std::string words{};  ///< the last lines that it wrote to its standard error, printable
};

/// Hears a child. It must not destroy the child within these calls.
class ChildListener {
 public:
  virtual ~ChildListener() = default;
  /// An event: an object with the text "event".
  virtual void heard(const std::string& event, const PropertyDictionary& json) = 0;
  /// Some events have been heard; others follow when the loop has done other work.
  virtual void turnEnded() {}
  /// Once, when all it said has been heard.
  virtual void ended(const ChildEnd& end) = 0;
};

/// Main thread only; works in the default main context. SIGPIPE must be ignored by the process.
class Child {
 public:
  explicit Child(ChildListener& listener, const ChildLimits& limits = {});
  /// One that still runs is killed: an import survives that, but close() is kinder.
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Once. A failure is told by ended(), from the loop.
  void start(const std::vector<std::string>& words);
  /// A command. Goes nowhere once the child's input is closed.
  void say(const PropertyDictionary& command);
  /// Whether it has something to do, so that its silence counts.
  void setWorking(bool isWorking);
  /// Ends its input, which ends it; what it says on its way out is heard.
  void close();
  bool isRunning() const { return pid_ != 0; }

 private:
  using Clock = std::chrono::steady_clock;

  void adopt(pid_t pid, int input, int output, int errors);
  /// Reads what is there, and hears of it what fits into one turn.
  void read();
  void hearSome();
  void hear(const std::string& line);
  /// The next whole line, without its end.
  std::optional<std::string> nextLine();
  void goOn();
  void readErrors();
  void flush();
  void checkSilence();
  void armSilence(std::chrono::milliseconds wait);
  /// Kills it; `kind` is what is told at the end.
  void giveUp(ChildEnd::Kind kind);
  /// Its end is near: gives it some time for it.
  void expectEnd();
  void reaped(int status);
  void finish();

  ChildListener& listener_;
  ChildLimits limits_;
  pid_t pid_ = 0;  ///< 0 where there is none, and once it has been reaped
  FileDescriptor input_;
  FileDescriptor output_;
  FileDescriptor errors_;
  std::string outgoing_;
  std::string pending_;        ///< read and not yet heard
  std::size_t heardUpTo_ = 0;  ///< in `pending_`
  std::string lastWords_;
  bool outputEnded_ = false;
  bool hasSpoken_ = false;
  bool isWorking_ = false;
  bool hasFinished_ = false;
  int nonsense_ = 0;
  bool isClosed_ = false;
  std::optional<ChildEnd::Kind> givenUp_;
  ChildEnd::Kind end_ = ChildEnd::Kind::kLeft;
  Clock::time_point lastHeard_{};
  AttachedSource reading_, erring_, writing_, silence_, leaving_, watch_;
};

}  // namespace tarvo::relay
