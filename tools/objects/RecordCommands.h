// decode and encode: data sets as JSON and back, without a device.
#pragma once

#include <string>
#include <vector>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct RecordOptions {
  std::string type{};  ///< as a record type is named
  /// Paths; "-" is standard input. Not empty.
  std::vector<std::string> files{};
};

/// One file gives its JSON document, several an array of them in their order. What cannot be
/// decoded is an entry with the key "error" in such an array, and makes the exit status kFailed.
int runDecode(ToolContext& context, const RecordOptions& options);
/// The bytes of one JSON document a file, one behind the other, in either form of output. Nothing
/// is written unless all of them can be.
int runEncode(ToolContext& context, const RecordOptions& options);

/// Names and descriptions of all types, one a line, for help texts.
std::string recordTypeHelp();

}  // namespace tarvo::tools
