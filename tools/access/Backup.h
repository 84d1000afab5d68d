// What a device held before it was changed, kept on this computer: dated files that nothing
// replaces.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "tools/access/OpenedDevice.h"

namespace tarvo::tools {

/// Writes "SERIAL-WHAT-20261125T011500.EXTENSION" into $XDG_DATA_HOME/tarvo/backups, readable for
/// its owner alone, and returns its path. A name that is taken gets a number. Raises a ToolError
/// where it cannot be written: then nothing may be sent.
std::string keepBackup(const OpenedDevice& device, std::string_view what,
                       std::string_view extension, std::span<const std::byte> content);
std::string keepBackup(const OpenedDevice& device, std::string_view what,
                       std::string_view extension, std::string_view text);

}  // namespace tarvo::tools
