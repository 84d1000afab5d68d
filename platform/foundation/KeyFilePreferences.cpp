#include "platform/foundation/KeyFilePreferences.h"

#include <glib.h>

#include <cerrno>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/Numbers.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/KeyFile.h"
#include "platform/foundation/XdgFolders.h"

namespace tarvo {
namespace {

constexpr std::string_view kPreferences = "Preferences";
constexpr const char* kFileName = "/tarvo/agent.conf";
/// No preferences come near it; a larger file is some other one.
constexpr std::size_t kLongestFile = 1 << 20;

std::optional<bool> booleanOf(std::string_view value) {
  if (value == "true" || value == "1") return true;
  if (value == "false" || value == "0") return false;
  return std::nullopt;
}

}  // namespace

KeyFilePreferences::KeyFilePreferences(const LogSink& log,
                                       const std::optional<std::string>& configFile) {
  // A file that the caller names is meant: when it cannot be read, going on without it would hide
  // the mistake.
  if (configFile) {
    std::string reason;
    const auto content = readWholeFile(*configFile, kLongestFile, &reason);
    if (!content) {
      throw Exception(std::string(exception_name::kInvalidArgument),
                      "cannot read " + *configFile + ": " + reason);
    }
    takeText(*configFile, *content, log);
  } else {
    readFile(xdgConfigHome() + kFileName, log);
  }
  for (const auto& folder : xdgConfigDirs())
    readFile(folder + kFileName, log);
}

std::optional<bool> KeyFilePreferences::boolForKey(std::string_view key) const {
  const auto value = text(kPreferences, key);
  return value ? booleanOf(*value) : std::nullopt;
}

std::optional<std::string> KeyFilePreferences::text(std::string_view group,
                                                    std::string_view key) const {
  const auto found = values_.find({std::string(group), std::string(key)});
  return found != values_.end() ? std::optional(found->second) : std::nullopt;
}

void KeyFilePreferences::readFile(const std::string& path, const LogSink& log) {
  std::string reason;
  if (const auto content = readWholeFile(path, kLongestFile, &reason)) {
    takeText(path, *content, log);
    // Most users have no file, and that is no news.
  } else if (errno != ENOENT && errno != ENOTDIR) {
    logTo(log, LogLevel::kWarning, path + " is ignored: " + reason);
  }
}

void KeyFilePreferences::takeText(const std::string& path, std::string_view content,
                                  const LogSink& log) {
  const auto warn = [&](int line, const std::string& what) {
    logTo(log, LogLevel::kWarning, path + ", line " + std::to_string(line) + ": " + what);
  };
  // Collected first, since a malformed file counts for nothing at all.
  Values values;
  const auto malformed = readKeyFile(content, [&](const KeyFileLine& line) {
    const auto value = unescapedKeyFileValue(line.value);
    // Values go into logs, JSON and D-Bus messages, all of which require UTF-8.
    const bool valid =
        value && g_utf8_validate(value->data(), static_cast<gssize>(value->size()), nullptr) != 0;
    if (!valid) {
      warn(line.number, "the value of " + std::string(line.key) + " is malformed and ignored");
    } else if (line.group == kPreferences && !booleanOf(*value)) {
      warn(line.number,
           std::string(line.key) + " is ignored: '" + *value + "' is neither true nor false");
    } else {
      values[{std::string(line.group), std::string(line.key)}] = *value;
    }
    return true;
  });
  if (malformed) {
    warn(*malformed, "neither a group nor \"key=value\"; the file is ignored");
    return;
  }
  values_.merge(values);  // keeps what stands already
}

std::int32_t systemVersion(const UserDefaults& defaults, const LogSink& log) {
  const auto text = defaults.text("Platform", "SystemVersion");
  const auto number =
      text ? numberOf(*text, std::numeric_limits<std::int32_t>::max()) : std::nullopt;
  if (text && !number) {
    logTo(log, LogLevel::kWarning,
          "[Platform] SystemVersion is ignored: '" + *text + "' is no number of its range");
  }
  return static_cast<std::int32_t>(number.value_or(0));
}

namespace {

/// Everything that has a meaning in the text files of devices; UTF-16 and EBCDIC are out.
constexpr std::string_view kSyntax = "\r\n \"<>[]=@.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool isUsable(const std::string& encoding) {
  const GCharPtr text(g_convert(kSyntax.data(), static_cast<gssize>(kSyntax.size()), "UTF-8",
                                encoding.c_str(), nullptr, nullptr, nullptr));
  return text && text.get() == kSyntax;
}

}  // namespace

std::string defaultEncoding(const UserDefaults& defaults, const LogSink& log) {
  const auto configured = defaults.text("Platform", "DefaultEncoding");
  if (configured && !configured->empty()) {
    if (isUsable(*configured)) return *configured;
    logTo(log, LogLevel::kWarning,
          "[Platform] DefaultEncoding is ignored: '" + *configured +
              "' is no 8-bit encoding that is known");
  }
  const char* ofLocale = "UTF-8";
  g_get_charset(&ofLocale);
  return ofLocale;
}

}  // namespace tarvo
