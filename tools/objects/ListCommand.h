// ls: the objects on a device.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct ListOptions {
  std::string store{};        ///< id as the user wrote it; empty: all
  std::string format{};       ///< code or extension; empty: all
  std::string association{};  ///< handle of a folder; empty: the root
  bool isLong = false;
  bool isRecursive = false;  ///< all that lies below
  bool handlesOnly = false;  ///< asks nothing of the objects themselves
  std::optional<std::uint64_t> limit{};
};

/// Handles first, then one object after the other, each shown as soon as it is known. An object
/// that cannot be read is said and does not end the list.
int runList(ToolContext& context, const ListOptions& options);

/// A format as a user writes it: a code (0x3801), or a file extension ("jpg"). Raises kBadUsage.
std::uint16_t formatArgument(const std::string& operation, const std::string& text);

}  // namespace tarvo::tools
