#include "NativeServices/Logging.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <ctime>

#include "NativeServices/MissingArguments.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {

namespace {

/// The camera bit or its verbose one.
constexpr std::uint64_t kAnyCameraFlag = 0xC0;
constexpr std::string_view kTraceFacility = "XT PictureDevice";

/// A preference that turns flags on. A verbose key brings its subsystem's plain bit along, so that
/// either key alone is enough.
struct PreferenceFlags {
  std::string_view key;
  std::uint64_t flags;
};

/// In the order in which they are read. LOG_SUBSYS_PYTHON stands twice, and LISTENER and ZEROCONF
/// share a bit; both are intended.
constexpr auto kPreferenceFlags = std::to_array<PreferenceFlags>({
    {"LOG_INCLUDE_TIMESTAMP", kLogIncludeTimestamp},
    {"LOG_INCLUDE_THREADID", kLogIncludeThreadID},
    {"LOG_INCLUDE_MS", kLogIncludeMilliseconds},
    {"LOG_SUBSYS_FACEBOOK", 0x10},
    {"LOG_SUBSYS_FACEBOOK_VERBOSE", 0x30},
    {"LOG_SUBSYS_CAMERA", 0x40},
    {"LOG_SUBSYS_CAMERA_VERBOSE", kLogCameraVerbose},
    {"LOG_SUBSYS_PROGRESS", 0x100},
    {"LOG_SUBSYS_HTTPHANDLER", 0x400},
    {"LOG_SUBSYS_GALLERY", 0x800},
    {"LOG_SUBSYS_GALLERY_VERBOSE", 0x1800},
    {"LOG_SUBSYS_TASKS_VERBOSE", 0x2000},
    {"LOG_SUBSYS_PYTHON", 0x4000},
    {"LOG_SUBSYS_JAVASCRIPT", 0x8000},
    {"LOG_SUBSYS_PYTHON", 0x200},
    {"LOG_SUBSYS_TRACE_PYTHON_VERBOSE", 0x20000},
    {"LOG_SUBSYS_APP_DEBUG", kLogAppDebug},
    {"LOG_SUBSYS_TRACE_PYTHON_EXCEPTIONS", 0x80000},
    {"LOG_SUBSYS_LISTENER", kLogListener},
    {"LOG_SUBSYS_ZEROCONF", kLogListener},
});

constexpr bool isBitSet(std::uint64_t flags, std::size_t bit) {
  return ((flags >> bit) & 1) != 0;
}

std::string localTimeText() {
  const std::time_t now = std::time(nullptr);
  // The reentrant form: any thread may be writing a line.
  std::tm local = {};
  ::localtime_r(&now, &local);
  std::array<char, 64> text;
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local)};
}

/// Ten characters wide, three decimals, with a point in every locale.
std::string secondsText(double seconds) {
  std::array<char, 64> text;
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed, 3)
          .ptr;
  return formatted("%10.*s", static_cast<int>(end - text.data()), text.data());
}

/// Elements up to 0xFFFF are UTF-16 code units, larger ones whole characters.
std::string textFromWide(const std::wstring& wide) {
  std::u16string units;
  units.reserve(wide.size());
  for (const wchar_t element : wide) {
    // wchar_t has 32 bits on Linux, so both forms of a wide string can come; unpaired surrogates
    // are replaced further down.
    const auto character = static_cast<char32_t>(element);
    if (character <= 0xFFFF) {
      units += static_cast<char16_t>(character);
    } else if (character <= 0x10FFFF) {
      units += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
    } else {
      units += u'\uFFFD';
    }
  }
  return utf8FromUTF16(units);
}

}  // namespace

std::atomic<LogState*> LogState::current_ = nullptr;

LogState::LogState(const UserDefaults& defaults, SystemLog& systemLog)
    : previous_(current_.load()), defaults_(defaults), systemLog_(systemLog) {
  current_ = this;
}

LogState::~LogState() {
  current_ = previous_;
}

LogState* LogState::current() {
  return current_.load(std::memory_order_acquire);
}

std::string LogState::linePrefix(std::uint64_t options) const {
  std::string prefix;
  if ((options & kLogIncludeMilliseconds) != 0) {
    const std::chrono::duration<double> elapsed =
        std::chrono::system_clock::now() - firstMessageTime_;
    prefix += secondsText(elapsed.count()) + " - ";
  } else if ((options & kLogIncludeTimestamp) != 0) {
    prefix += localTimeText() + " - ";
  }
  // The kernel's ids, which ps and /proc show, and not pthread_self(), which nothing else shows.
  if ((options & kLogIncludeThreadID) != 0)
    prefix += formatted("[%d:0x%X] ", ::getpid(), static_cast<unsigned>(::gettid()));
  return prefix;
}

std::uint64_t GGLogging::LogGetActiveLevel() {
  LogState* state = LogState::current();
  if (state == nullptr) return 0;
  // The preferences must not log while they are read: the thread would wait for itself here.
  std::call_once(state->computed_, [state] {
    state->firstMessageTime_ = std::chrono::system_clock::now();
    for (const auto& row : kPreferenceFlags)
      if (state->defaults_.boolForKey(row.key).value_or(false)) state->activeLogFlags_ |= row.flags;
  });
  return state->activeLogFlags_;
}

bool GGLogging::LogCheck(std::uint64_t flags) {
  const LogState* state = LogState::current();
  return state != nullptr && (state->activeLogFlags_ & flags) == flags;
}

void GGLogging::SetDynLogFlags(std::uint64_t flags) {
  LogState* state = LogState::current();
  if (state == nullptr) return;
  const std::scoped_lock lock(state->dynFlagsLock_);
  for (std::size_t bit = 0; bit < 64; ++bit)
    if (isBitSet(flags, bit)) ++state->sDynFlagCnt_[bit];
  state->sDynFlags_ |= flags;
}

void GGLogging::ClearDynLogFlags(std::uint64_t flags) {
  LogState* state = LogState::current();
  if (state == nullptr) return;
  const std::scoped_lock lock(state->dynFlagsLock_);
  for (std::size_t bit = 0; bit < 64; ++bit) {
    // The whole argument is toggled once for each bit that loses its last user; this is intended.
    if (isBitSet(flags, bit) && --state->sDynFlagCnt_[bit] == 0) state->sDynFlags_ ^= flags;
  }
}

void GGLogging::Log(std::uint64_t level, std::string_view facility, std::string_view message) {
  if (!tarvo::LogCheck(level)) return;
  LogState* state = LogState::current();
  std::uint64_t options = LogGetActiveLevel();
  {
    // Not held while the line is written: a slow system log must not stop other threads.
    const std::scoped_lock lock(state->dynFlagsLock_);
    options |= static_cast<std::uint32_t>(state->sDynFlags_);  // the low word alone counts
  }
  std::string line = state->linePrefix(options);
  // The whole line is a format without arguments, the facility and the prefix too.
  line.append(facility).append(" - ").append(message);
  state->systemLog_.write(LogLevel::kInfo, expandMissingArguments(line));
}

bool LogCheck(std::uint64_t flags) {
  LogState* state = LogState::current();
  if (state == nullptr) return false;
  std::call_once(state->cacheFilled_,
                 [state] { state->cachedFlags_ = GGLogging::LogGetActiveLevel(); });
  return (state->cachedFlags_ & flags) == flags;
}

std::wstring Log(std::uint64_t level, const std::wstring& facility, const std::wstring& message) {
  GGLogging::Log(level, textFromWide(facility), textFromWide(message));
  return facility;
}

void systemLogLine(std::string_view line) {
  if (LogState* state = LogState::current()) state->systemLog_.write(LogLevel::kInfo, line);
}

void TraceLog::trace(const char* format, ...) {
  if (!isActive()) return;
  // The compiler refuses a literal null only; a variable may still be one.
  if (format == nullptr) {
    traceWithTag("*** Nil format passed to -trace: ***", "");
    return;
  }
  std::va_list arguments;
  va_start(arguments, format);
  const std::string message = formattedV(format, arguments);
  va_end(arguments);
  traceWithTag(message, "");
}

void TraceLog::traceWithTag(std::string_view message, std::string_view /*tag*/) {
  LogState* state = LogState::current();
  if (state == nullptr) return;
  const std::scoped_lock lock(state->traceLock_);
  // Passes with the plain flag alone, with which nothing is written: the level needs both bits.
  if ((GGLogging::LogGetActiveLevel() & kAnyCameraFlag) == 0) return;
  GGLogging::Log(kLogCameraVerbose, kTraceFacility, message);
}

void TraceLog::traceFormat(std::string_view facility, const char* format, ...) {
  if (!isActive()) return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string message = formattedV(format, arguments);
  va_end(arguments);
  GGLogging::Log(kLogCameraVerbose, facility, message);
}

void TraceLog::traceMethod(std::string_view className, std::string_view selector,
                           const void* self) {
  // The names are views, not zero-terminated, hence the precision.
  trace("%c[%.*s %.*s] (self=0x%llx)", self == nullptr ? '+' : '-',
        static_cast<int>(className.size()), className.data(), static_cast<int>(selector.size()),
        selector.data(), static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(self)));
}

void TraceLog::dump(std::string_view text) {
  if (!isActive()) return;
  LogState::current()->systemLog_.write(LogLevel::kInfo, expandMissingArguments(text));
}

bool TraceLog::isActive() {
  return LogCheck(kLogCameraVerbose);
}

}  // namespace tarvo
