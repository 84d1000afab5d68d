// collection, shoebox, wireless-config and display: small things that a device is given or asked.
#pragma once

#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// The id under which the device files what it gets.
int runCollectionGet(ToolContext& context);

struct CollectionSetOptions {
  std::string id{};    ///< a GUID
  bool clear = false;  ///< takes it away
};
int runCollectionSet(ToolContext& context, const CollectionSetOptions& options);

struct FileOptions {
  std::string file{};
};

/// A shoebox file for the device.
int runShoeboxSend(ToolContext& context, const FileOptions& options);
/// A picture for the device's shoebox.
int runShoeboxAdd(ToolContext& context, const FileOptions& options);

/// The device's settings for a wireless network, as the device keeps them.
int runWirelessConfigShow(ToolContext& context);

/// Sends a display request, whose bytes the file holds. What a device understands depends on its
/// maker's version of them.
int runDisplay(ToolContext& context, const FileOptions& options);

}  // namespace tarvo::tools
