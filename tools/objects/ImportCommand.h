// What the command "import" may be told.
#pragma once

#include <string>
#include <vector>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

struct ImportCommandOptions {
  std::vector<std::string> objects{};
  bool pictures = false;
  bool films = false;
  bool allFiles = false;
  std::string since{};
  std::string output{};
  std::string pattern{};
  bool dryRun = false;
  bool verifies = false;
  bool deletes = false;
  bool yes = false;
  bool setsClock = false;
  bool orders = false;
  std::string progress{};
};

}  // namespace tarvo::tools
