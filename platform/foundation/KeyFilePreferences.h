// The user's preferences from key files.
//
// $XDG_CONFIG_HOME/tarvo/agent.conf, or a file named in its stead, stands over the same file in
// each folder of $XDG_CONFIG_DIRS, the first of which stands over the next.
//
//   [Preferences]
//   LOG_SUBSYS_LISTENER=true
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Utilities/LogSink.h"
#include "platform/foundation/UserDefaults.h"

namespace tarvo {

/// A boolean is true, false, 1 or 0. A malformed file and a malformed value are reported to the log
/// with file and line and count as absent.
class KeyFilePreferences : public UserDefaults {
 public:
  /// Reads the files. `configFile` replaces the user's own file. Raises NSInvalidArgumentException,
  /// with the cause in words, when `configFile` cannot be read; other missing files are normal.
  explicit KeyFilePreferences(const LogSink& log,
                              const std::optional<std::string>& configFile = std::nullopt);

  /// Where a file has no boolean under the key, what a lower file has shows through.
  std::optional<bool> boolForKey(std::string_view key) const override;
  /// The value with its escapes resolved, as the highest file has it; always valid UTF-8.
  std::optional<std::string> text(std::string_view group, std::string_view key) const override;

 private:
  /// Value by group and key.
  using Values = std::map<std::pair<std::string, std::string>, std::string>;

  /// Reads `path` where it exists; anything else that stands in the way is logged.
  void readFile(const std::string& path, const LogSink& log);
  /// Takes over what `content` says and no file above has said already.
  void takeText(const std::string& path, std::string_view content, const LogSink& log);

  Values values_;  ///< what stands already is never replaced: files are read from the top down
};

// The version of the system as the preferences tell it.

/// The number under SystemVersion of group [Platform], decimal or 0x..., for example 0x1062 for
/// 10.6.2. 0 when it is absent, and, which `log` is told, when it cannot be read. Any thread.
std::int32_t systemVersion(const UserDefaults& defaults, const LogSink& log = {});

// The 8-bit encoding of text that does not say its own, on cards and devices.

/// The encoding under DefaultEncoding of group [Platform], by a name that iconv knows, for example
/// "ISO-8859-1"; without the key the character set of the locale that the program has set. One that
/// is unknown, or has other bytes than ASCII for what ASCII has, is ignored, which `log` is told.
/// Main thread.
std::string defaultEncoding(const UserDefaults& defaults, const LogSink& log = {});

}  // namespace tarvo
