// Trace logging with subsystems that are selected by preference.
//
// Callers test the flag of their subsystem first and build the text only when it is set:
//
//   if (LogCheck(kLogListener)) Log(kLogListener, sRLAListener, stdWStringUTF16("starting"));
//
// The device library traces printf-style through TraceLog.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/SystemLog.h"
#include "platform/foundation/UserDefaults.h"

namespace tarvo {

// Flags. The lowest word's first bits choose what stands before a line, the others are subsystems
// that can be turned on. A level of several bits is written only when all of them are on.

/// Local date and time to the second before each line.
inline constexpr std::uint64_t kLogIncludeTimestamp = 0x1;
/// Process id, and the kernel's thread id in hexadecimal.
inline constexpr std::uint64_t kLogIncludeThreadID = 0x2;
/// Seconds since the first message, with milliseconds; takes the place of the date.
inline constexpr std::uint64_t kLogIncludeMilliseconds = 0x4;
/// The device library's traces: the camera bit and its verbose one.
inline constexpr std::uint64_t kLogCameraVerbose = 0xC0;
/// What the application says of itself.
inline constexpr std::uint64_t kLogAppDebug = 0x10000;
/// The listener; zero configuration has the same bit.
inline constexpr std::uint64_t kLogListener = 0x100000;

/// Tag of traces that concern a device's options; it has no effect on whether a line is written.
inline constexpr std::string_view XTOptDebugLog = "XTOptDebugLog";

/// The process-wide log state. The owner of the process makes one and holds it for its life; while
/// it lives, every operation below reaches it. Without one nothing is written and LogCheck is
/// false. A second one takes its place for as long as it lives. The preferences and the log are the
/// owner's and outlive the state.
class LogState {
 public:
  /// Takes the place of the state that was current. Reads no preference yet: that is done by the
  /// first message, on its thread, once.
  LogState(const UserDefaults& defaults, SystemLog& systemLog);
  /// Puts the former state back. Every thread that logs has ended by then: they hold no reference
  /// that would keep the state alive.
  ~LogState();
  LogState(const LogState&) = delete;
  LogState& operator=(const LogState&) = delete;

  /// The state that messages reach; null without one. Any thread.
  static LogState* current();

 private:
  friend class GGLogging;
  friend class TraceLog;
  friend bool LogCheck(std::uint64_t flags);
  friend void systemLogLine(std::string_view line);

  static std::atomic<LogState*> current_;

  /// What stands before "facility - message": time, then process and thread, each only with its
  /// flag in `options`. Called on the thread that logs, whose id it shows.
  std::string linePrefix(std::uint64_t options) const;

  LogState* const previous_;
  const UserDefaults& defaults_;
  SystemLog& systemLog_;

  // The flags as the preferences have them, from the first message to the end: changed preferences
  // count in the next process.
  std::once_flag computed_;
  std::atomic<std::uint64_t> activeLogFlags_ = 0;           ///< 0 until computed
  std::chrono::system_clock::time_point firstMessageTime_;  ///< written once, under computed_

  // Bits that callers turn on for a while, and how many callers hold each. The lock guards both. A
  // count may fall below zero; it then needs as many sets to come back.
  std::mutex dynFlagsLock_;
  std::uint64_t sDynFlags_ = 0;
  std::int32_t sDynFlagCnt_[64] = {};

  // A copy of activeLogFlags_ that the free LogCheck reads without an atomic operation of its own.
  std::once_flag cacheFilled_;
  std::uint64_t cachedFlags_ = 0;  ///< what the free LogCheck compares with

  /// Held for a whole trace, so that traces of several threads reach the system log in the order in
  /// which they took it.
  std::mutex traceLock_;
};

/// Flags and the line builder. Any thread. Everything here does nothing, or answers 0 or false,
/// while there is no LogState.
class GGLogging {
 public:
  /// The active flags, computed from the preferences on the first call.
  static std::uint64_t LogGetActiveLevel();
  /// True when every bit is in the active flags as they stand; computes nothing.
  static bool LogCheck(std::uint64_t flags);
  /// Counts a user of each bit and turns the bits on. Of the dynamic flags only the format options
  /// have an effect: they never let a message through.
  static void SetDynLogFlags(std::uint64_t flags);
  /// Takes a user of each bit away. Each bit that loses its last user toggles the whole argument,
  /// not itself alone.
  static void ClearDynLogFlags(std::uint64_t flags);
  /// Writes "PREFIX facility - message" when every bit of `level` is active. The line is expanded
  /// as a format string whose arguments are missing.
  static void Log(std::uint64_t level, std::string_view facility, std::string_view message);
};

/// True when every bit of `flags` is active; computes the flags when nobody has yet. It costs a
/// comparison after that, so it may stand in a loop. Any thread.
bool LogCheck(std::uint64_t flags);

/// Writes a line from wide strings and returns the facility. An element is a UTF-16 code unit or,
/// above 0xFFFF, a character.
std::wstring Log(std::uint64_t level, const std::wstring& facility, const std::wstring& message);

/// Writes a whole line to the system log, whatever the flags (separators, errors that a user
/// needs). The line is no format: a "%" stays. Any thread.
void systemLogLine(std::string_view line);

/// Traces of the device library, at level kLogCameraVerbose. Any thread.
class TraceLog {
 public:
  /// A null format gives "*** Nil format passed to -trace: ***".
  [[gnu::format(printf, 1, 2)]] static void trace(const char* format, ...);
  /// The tag has no effect: the facility is "XT PictureDevice", as for every trace.
  static void traceWithTag(std::string_view message, std::string_view tag);
  /// The same under a facility of its own, and without the lock that keeps traces in order.
  [[gnu::format(printf, 2, 3)]] static void traceFormat(std::string_view facility,
                                                        const char* format, ...);
  /// "-[Class selector] (self=0x...)"; `self` null stands for a class operation ('+').
  static void traceMethod(std::string_view className, std::string_view selector, const void* self);
  /// Hands the text itself to the system log, without prefix and facility.
  static void dump(std::string_view text);
  /// True when a trace would be written: test it before building a costly text.
  static bool isActive();
};

// What printf-style formatting makes of a text when every argument is missing.
//
// The log hands its finished line to the system log as a format string, so a "%" that came with a
// device's or a user's text acts as a directive. This does the same without reading arguments that
// are not there.

/// The line that formatting `format` without any argument gives. It never fails and takes time in
/// proportion to the text; the result is at most kWidest (64) characters and a few longer for each
/// directive, so text of a device cannot blow a line up.
///
///   expandMissingArguments("100%% of %d")  gives "100% of 0"
///
/// "%%" gives "%", integer and floating directives give zero, "%s" and "%@" give "(null)", "%c" and
/// "%n" nothing. Flags, width and precision count, width and precision up to 64; what is no
/// directive stays as it stands. Any thread.
std::string expandMissingArguments(std::string_view format);

}  // namespace tarvo
