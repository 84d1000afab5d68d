// property: the settings of a device.
#pragma once

#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Every property that the device lists, with its value.
int runPropertyList(ToolContext& context);

struct PropertyOptions {
  std::string property{};  ///< name or code
  std::string value{};     ///< of `set`: text, a number, or a JSON array, as the property has it
};

int runPropertyGet(ToolContext& context, const PropertyOptions& options);
/// Refuses a value that does not fit the property's type, and one for a read-only property.
int runPropertySet(ToolContext& context, const PropertyOptions& options);

}  // namespace tarvo::tools
