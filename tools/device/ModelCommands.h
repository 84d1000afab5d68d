// models: which USB ids are supported, without a device.
#pragma once

#include <string>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct ModelCheckOptions {
  std::string ids{};  ///< "VID:PID", hexadecimal
};

/// Every supported product id. Raises a ToolError where the list of models cannot be read.
int runModelsList(ToolContext& context);
/// Whether the ids are those of a camera that speaks PTP ("ptp") and of a device that appears as
/// mass storage ("massStorage"). Being no model is an answer, no failure.
int runModelsCheck(ToolContext& context, const ModelCheckOptions& options);

}  // namespace tarvo::tools
