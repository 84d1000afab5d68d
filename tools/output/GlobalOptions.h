// What every command of tarvoctl is told, whichever it is.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tarvo::tools {

struct GlobalOptions {
  bool json = false;   ///< one JSON document on standard output
  bool quiet = false;  ///< neither messages nor progress; errors are still said
  /// Serial number or USB location of the device; empty: the one that is there.
  std::string device{};
  /// Preferences file in place of the user's own.
  std::optional<std::string> configFile{};
  /// How long a device may be silent in one transaction; none: as the transport has it.
  std::optional<std::chrono::milliseconds> timeout{};
};

}  // namespace tarvo::tools
