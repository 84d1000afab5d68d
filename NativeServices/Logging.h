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

inline constexpr std::uint64_t kLogIncludeTimestamp = 0x1;
inline constexpr std::uint64_t kLogIncludeThreadID = 0x2;
inline constexpr std::uint64_t kLogIncludeMilliseconds = 0x4;
inline constexpr std::uint64_t kLogCameraVerbose = 0xC0;
inline constexpr std::uint64_t kLogAppDebug = 0x10000;
inline constexpr std::uint64_t kLogListener = 0x100000;

/// Tag of traces that concern a device's options; it has no effect on whether a line is written.
inline constexpr std::string_view XTOptDebugLog = "XTOptDebugLog";

/// The process-wide log state. The owner of the process makes one and holds it for its life; while
/// it lives, every operation below reaches it. Without one nothing is written and LogCheck is
/// false.
class LogState {
 public:
  LogState(const UserDefaults& defaults, SystemLog& systemLog);
  ~LogState();
  LogState(const LogState&) = delete;
  LogState& operator=(const LogState&) = delete;

  static LogState* current();

 private:
  friend class GGLogging;
  friend class TraceLog;
  friend bool LogCheck(std::uint64_t flags);
  friend void systemLogLine(std::string_view line);

  const UserDefaults& defaults_;
  SystemLog& systemLog_;
  std::uint64_t activeLogFlags_ = 0;
  bool computed_ = false;
  std::chrono::system_clock::time_point firstMessageTime_;
  std::uint64_t sDynFlags_ = 0;
  std::int32_t sDynFlagCnt_[64] = {};
  std::mutex traceLock_;
  std::once_flag cacheFilled_;
  std::uint64_t cachedFlags_ = 0;
};

class GGLogging {
 public:
  /// The active flags, computed from the preferences on the first call.
  static std::uint64_t LogGetActiveLevel();
  /// True when every bit is in the active flags as they stand; computes nothing.
  static bool LogCheck(std::uint64_t flags);
  static void SetDynLogFlags(std::uint64_t flags);
  static void ClearDynLogFlags(std::uint64_t flags);
  static void Log(std::uint64_t level, std::string_view facility, std::string_view message);
};

/// True when every bit of `flags` is active. Any thread.
bool LogCheck(std::uint64_t flags);

/// Writes a line from wide strings (UTF-16 code units) and returns the facility.
std::wstring Log(std::uint64_t level, const std::wstring& facility, const std::wstring& message);

/// Writes a whole line to the system log, whatever the flags (separators, errors that a user
/// needs).
void systemLogLine(std::string_view line);

class TraceLog {
 public:
  [[gnu::format(printf, 1, 2)]] static void trace(const char* format, ...);
  static void traceWithTag(std::string_view message, std::string_view tag);
  [[gnu::format(printf, 2, 3)]] static void traceFormat(std::string_view facility,
                                                        const char* format, ...);
  /// "-[Class selector] (self=0x...)"; `self` null stands for a class operation ('+').
  static void traceMethod(std::string_view className, std::string_view selector, const void* self);
  static void dump(std::string_view text);
  /// True when a trace would be written: test it before building a costly text.
  static bool isActive();
};

}  // namespace tarvo
