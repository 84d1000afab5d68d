#include "NativeServices/Logging.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <ctime>
#include <optional>

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
/// share a bit: intended, see docs/oddities.md.
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
    // The whole argument is toggled once for each bit that loses its last user: intended, see
    // docs/oddities.md.
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

namespace {

/// Text of a device must not blow a line up: "%999999999d" is padded no further than this.
constexpr std::size_t kWidest = 64;

constexpr std::string_view kFlags = "-+ #0'";
/// Lengths ("ll", "hh", "z") do not matter without an argument; in any order and number.
constexpr std::string_view kLengths = "hlqLjzt";
constexpr std::string_view kDigits = "0123456789";

/// One "%..." of a format, taken apart (C11, 7.21.6.1; "%@", "%C" and "%S" as Cocoa has them, "%D",
/// "%O" and "%U" as BSD has them).
struct Directive {
  std::string_view flags;
  std::size_t width = 0;
  std::optional<std::size_t> precision;  ///< "%.d" has one, 0
  char conversion = '\0';

  bool has(char flag) const { return flags.find(flag) != std::string_view::npos; }
};

/// The longest beginning of `rest` that consists of `characters`, taken off it.
std::string_view take(std::string_view& rest, std::string_view characters) {
  const auto length = std::min(rest.find_first_not_of(characters), rest.size());
  const std::string_view taken = rest.substr(0, length);
  rest.remove_prefix(length);
  return taken;
}

/// A number or "*" (a missing argument, hence 0), no larger than kWidest.
std::size_t takeNumber(std::string_view& rest) {
  if (rest.starts_with('*')) {
    rest.remove_prefix(1);
    return 0;
  }
  std::size_t number = 0;
  for (const char digit : take(rest, kDigits))
    number = std::min(number * 10 + static_cast<std::size_t>(digit - '0'), kWidest);
  return number;
}

/// Takes the directive behind a "%" off `rest`. The conversion stays 0 where the text ends first.
Directive takeDirective(std::string_view& rest) {
  Directive directive;
  // Digits are a width unless a "$" follows, so they are read on a copy first.
  std::string_view position = rest;
  if (!take(position, kDigits).empty() && position.starts_with('$')) {
    rest = position.substr(1);  // "%1$s": which argument is missing does not matter
  }
  directive.flags = take(rest, kFlags);
  directive.width = takeNumber(rest);
  if (rest.starts_with('.')) {
    rest.remove_prefix(1);
    directive.precision = takeNumber(rest);
  }
  take(rest, kLengths);
  if (!rest.empty()) {
    directive.conversion = rest.front();
    rest.remove_prefix(1);
  }
  return directive;
}

std::string signOf(const Directive& directive) {
  if (directive.has('+')) return "+";
  return directive.has(' ') ? " " : "";
}

/// Zero as a floating directive writes it, without a sign.
std::string floatingZero(const Directive& directive) {
  const std::size_t digits = directive.precision.value_or(6);
  std::string fixed = digits == 0 ? "0" : "0." + std::string(digits, '0');
  switch (directive.conversion) {
    case 'f':
    case 'F':
      return fixed;
    case 'e':
      return fixed + "e+00";
    case 'E':
      return fixed + "E+00";
    case 'a':
      return "0x0p+0";  // exact already; a precision would only lengthen it
    case 'A':
      return "0X0P+0";
    default:  // 'g' and 'G' take trailing zeros away
      return "0";
  }
}

/// What stands for a missing text, character, object or pointer.
std::string missingText(const Directive& directive) {
  constexpr std::string_view kNull = "(null)";
  switch (directive.conversion) {
    case 's':
    case 'S':
      return std::string(kNull.substr(0, directive.precision.value_or(kNull.size())));
    case '@':
      return std::string(kNull);  // an object's description is never cut
    case 'p':
      return "0x0";
    default:
      return "";
  }
}

/// `text` behind `sign`, brought to the directive's width.
std::string padded(const Directive& directive, const std::string& sign, const std::string& text,
                   bool zeros) {
  const std::size_t length = sign.size() + text.size();
  const std::size_t missing = directive.width > length ? directive.width - length : 0;
  if (directive.has('-')) return sign + text + std::string(missing, ' ');
  if (zeros && directive.has('0')) return sign + std::string(missing, '0') + text;
  return std::string(missing, ' ') + sign + text;
}

/// What the directive gives without its argument; none when it is no directive.
std::optional<std::string> expansion(const Directive& directive) {
  const auto isOneOf = [&](std::string_view conversions) {
    return conversions.find(directive.conversion) != std::string_view::npos;
  };
  if (isOneOf("%")) return "%";
  if (isOneOf("n")) return "";  // there is nothing to store the length in
  if (isOneOf("cCsS@p")) return padded(directive, "", missingText(directive), false);
  // A precision of 0 leaves nothing of the number 0, and any precision disables padding by zeros
  // (C11, 7.21.6.1).
  const std::string integer(directive.precision.value_or(1), '0');
  if (isOneOf("diD")) return padded(directive, signOf(directive), integer, !directive.precision);
  if (isOneOf("uUoOxX")) return padded(directive, "", integer, !directive.precision);
  if (isOneOf("fFeEgGaA"))
    return padded(directive, signOf(directive), floatingZero(directive), true);
  return std::nullopt;
}

}  // namespace

std::string expandMissingArguments(std::string_view format) {
  std::string line;
  line.reserve(format.size());
  while (!format.empty()) {
    const auto percent = std::min(format.find('%'), format.size());
    line += format.substr(0, percent);
    format.remove_prefix(percent);
    if (format.empty()) break;
    // What is no directive keeps its "%" and is looked at again from the next character on, where
    // another "%" may stand.
    std::string_view rest = format.substr(1);
    const auto text = expansion(takeDirective(rest));
    line += text ? std::string_view(*text) : format.substr(0, 1);
    format = text ? rest : format.substr(1);
  }
  return line;
}

}  // namespace tarvo
