#include "platform/foundation/JournalLog.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

/// Whether standard error is closed or the null device.
bool standardErrorLeadsNowhere() {
  struct stat ours {};
  struct stat null {};
  // A service manager or a desktop may start the agent with either; lines would be lost there.
  if (::fstat(STDERR_FILENO, &ours) != 0) return true;
  return S_ISCHR(ours.st_mode) && ::stat("/dev/null", &null) == 0 && ours.st_rdev == null.st_rdev;
}

/// syslog's number of a level.
const char* priorityOf(LogLevel level) {
  switch (level) {
    case LogLevel::kDebug:
      return "7";
    case LogLevel::kInfo:
      return "6";
    case LogLevel::kWarning:
      return "4";
    case LogLevel::kError:
      return "3";
  }
  return "6";
}

GLogLevelFlags glibLevelOf(LogLevel level) {
  switch (level) {
    case LogLevel::kDebug:
      return G_LOG_LEVEL_DEBUG;
    case LogLevel::kInfo:
      return G_LOG_LEVEL_INFO;
    case LogLevel::kWarning:
      return G_LOG_LEVEL_WARNING;
    case LogLevel::kError:
      return G_LOG_LEVEL_CRITICAL;
  }
  return G_LOG_LEVEL_INFO;
}

/// What stands in a line for a control character.
std::string escaped(char32_t character) {
  if (character == '\t') return "\t";
  if (character == '\n') return "\n\t";
  return formatted(character < 0x80 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(character));
}

void writeToStandardError(std::string line) {
  line += '\n';  // joined, so that lines of several processes do not mix
  for (std::string_view rest = line; !rest.empty();) {
    const ssize_t size = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return;  // a log that cannot be written leaves nobody to tell
    rest.remove_prefix(static_cast<std::size_t>(size));
  }
}

}  // namespace

JournalLog::JournalLog(std::string identifier, Destination destination)
    : identifier_(std::move(identifier)),
      useJournal_(destination == Destination::kAutomatic &&
                  (g_log_writer_is_journald(STDERR_FILENO) != 0 || standardErrorLeadsNowhere())) {}

void JournalLog::write(LogLevel level, std::string_view line) {
  const std::string text = replacingControls(validUTF8(line), escaped);
  if (!useJournal_ || !writeToJournal(level, text)) writeToStandardError(text);
}

LogSink JournalLog::sink() {
  return [this](LogLevel level, std::string_view line) { write(level, line); };
}

bool JournalLog::writeToJournal(LogLevel level, std::string_view line) const {
  // Given as fields, not by g_log: that would put GLib's own prefix before the line and obey
  // G_MESSAGES_DEBUG. The length is given, so that no zero byte ends the text.
  const std::array<GLogField, 3> fields{{
      {"MESSAGE", line.data(), static_cast<gssize>(line.size())},
      {"PRIORITY", priorityOf(level), -1},
      {"SYSLOG_IDENTIFIER", identifier_.c_str(), -1},
  }};
  return g_log_writer_journald(glibLevelOf(level), fields.data(), fields.size(), nullptr) ==
         G_LOG_WRITER_HANDLED;
}

}  // namespace tarvo
